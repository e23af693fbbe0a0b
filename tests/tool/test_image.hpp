#ifndef VELDAN_TESTS_TOOL_TEST_IMAGE_HPP
#define VELDAN_TESTS_TOOL_TEST_IMAGE_HPP

#include <cstddef>
#include <random>
#include <vector>

namespace veldan_tests {

// A raw image that a test owns.
struct TestImage {
    int width = 0;
    int height = 0;
    int channels = 3;
    std::vector<unsigned char> pixels;

    TestImage(int w, int h, int c = 3, unsigned char value = 0)
        : width(w), height(h), channels(c),
          pixels(static_cast<std::size_t>(w) * static_cast<std::size_t>(h * c), value) {}

    static TestImage noise(int w, int h, int c = 3, unsigned seed = 1) {
        TestImage image(w, h, c);
        std::mt19937 random(seed);
        for (unsigned char& sample : image.pixels)
            sample = static_cast<unsigned char>(random());
        return image;
    }

    unsigned char* data() { return pixels.data(); }
    std::size_t size() const { return pixels.size(); }

    std::size_t index(int x, int y, int c = 0) const {
        const auto pixel = static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x);
        return pixel * static_cast<std::size_t>(channels) + static_cast<std::size_t>(c);
    }
    int at(int x, int y, int c = 0) const { return pixels[index(x, y, c)]; }
};

} // namespace veldan_tests

#endif
