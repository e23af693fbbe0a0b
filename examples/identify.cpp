// Says which of some photos show the person of a new one: identify NEW_PHOTO KNOWN_PHOTO...

#include <veldan/image_tool.h>
#include <veldan/thresholds.h>
#include <veldan/veldan.hpp>

#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr float threshold = VELDAN_SAME_PERSON / 100.0F;

// The template of the largest face of a photo.
veldan::Template extract(veldan::Instance& instance, const std::string& path) {
    int width = 0;
    int height = 0;
    if (ImageLoad(path.c_str(), 0, nullptr, &width, &height) != 1)
        throw std::runtime_error(path + ": not a picture");
    std::vector<unsigned char> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    ImageLoad(path.c_str(), 0, pixels.data(), &width, &height);

    const veldan::ImageView image{pixels.data(), width, height};
    std::vector<VDFACEINFOEX> faces = instance.detect(image);
    if (faces.empty())
        throw std::runtime_error(path + ": no face");
    return instance.extract(image, faces.front());
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::cerr << "usage: " << argv[0] << " NEW_PHOTO KNOWN_PHOTO...\n";
        return 1;
    }
    try {
        veldan::Instance instance;
        veldan::Gallery gallery;
        for (int i = 2; i < argc; ++i)
            gallery.add({extract(instance, argv[i])}); // one photo a person; more are better
        const auto [person, similarity] = instance.identify(gallery, extract(instance, argv[1]), threshold);
        if (person >= 0)
            std::cout << argv[1] << ": the person of " << argv[2 + person] << ", similarity " << similarity << '\n';
        else
            std::cout << argv[1] << ": unknown\n";
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
