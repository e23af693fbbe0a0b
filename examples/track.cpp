// Follows the faces of a video and says when one of them is the person of a photo: track PHOTO VIDEO

#include <veldan/cam_capture.hpp>
#include <veldan/image_tool.h>
#include <veldan/thresholds.h>
#include <veldan/veldan.hpp>

#include <algorithm>
#include <exception>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

// Both kinds of template, so that the person is recognised with and without a mask.
void enrol(veldan::Instance& instance, const std::string& path, veldan::Gallery& bare, veldan::Gallery& masked) {
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
    bare.add({instance.extractForEnrolment(image, faces.front(), veldan::Kind::Bare)});
    masked.add({instance.extractForEnrolment(image, faces.front(), veldan::Kind::Masked)});
}

std::string verdictOf(const VDFACEINFOEX& face) {
    if (face.searchFlag > 0)
        return "is the person of the photo, similarity " + std::to_string(face.searchScore) + " %";
    return face.strangerFlag > 0 ? "is a stranger" : "appeared";
}

void follow(veldan::Instance& instance, char* video, veldan::Gallery& bare, veldan::Gallery& masked) {
    const std::unique_ptr<void, int (*)(void*)> source(CamVideoOpen(video), CamClose);
    if (!source)
        throw std::runtime_error(std::string(video) + ": cannot be opened");
    const int width = GetCamWidth(source.get());
    const int height = GetCamHeight(source.get());
    std::vector<unsigned char> frame(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);

    veldan::Tracker tracker(instance);
    std::map<int, std::string> said; // by identity
    for (int number = 1;; ++number) {
        // At the end of a video the frame stays as it is, and no camera shows nothing but ones.
        std::fill(frame.begin(), frame.end(), static_cast<unsigned char>(1));
        CamCapture(source.get(), frame.data());
        if (std::all_of(frame.begin(), frame.end(), [](unsigned char byte) { return byte == 1; }))
            break;
        const veldan::ImageView image{frame.data(), width, height};
        tracker.next(image);
        for (const VDFACEINFOEX& face : tracker.search(image, bare, masked, VELDAN_SAME_PERSON,
                                                       VELDAN_SAME_PERSON_MASKED, VELDAN_TRACKED_QUALITY)) {
            const std::string verdict = verdictOf(face);
            if (std::exchange(said[face.trackId], verdict) != verdict)
                std::cout << "frame " << number << ": face " << face.trackId << ' ' << verdict << '\n';
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        std::cerr << "usage: " << argv[0] << " PHOTO VIDEO\n";
        return 1;
    }
    try {
        veldan::Instance instance;
        veldan::Gallery bare(veldan::Kind::Bare);
        veldan::Gallery masked(veldan::Kind::Masked);
        enrol(instance, argv[1], bare, masked);
        follow(instance, argv[2], bare, masked);
    } catch (const std::exception& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
    return 0;
}
