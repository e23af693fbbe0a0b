#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"

#include <veldan/image_tool.h>
#include <veldan/image_tool.hpp>

#include <opencv2/core.hpp>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <unistd.h>
#include <vector>

namespace veldan_fuzz {
namespace {

// No larger pictures are made room for; what announces one is still asked for its sizes.
constexpr std::uint64_t mostPixels = std::uint64_t{1} << 20;

bool fits(int width, int height) {
    return width >= 0 && height >= 0 &&
           static_cast<std::uint64_t>(width) * static_cast<std::uint64_t>(height) <= mostPixels;
}

// What a reader leaves open is open for as long as the process lives.
int lowestFreeDescriptor() {
    const int descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
    require(descriptor >= 0);
    close(descriptor);
    return descriptor;
}

void decodeTwice(const std::uint8_t* data, std::size_t size) {
    const auto file = exactCopy(data, size);
    const auto length = static_cast<int>(size);
    int width = -99, height = -99;
    try {
        const int asked = ImageDecode(file.get(), length, nullptr, &width, &height);
        const bool bmp = size >= 2 && data[0] == 'B' && data[1] == 'M';
        require(asked == 0 || (bmp && asked == -1));
        if (asked != 0)
            return;
        require(bmp || (width >= 0 && height >= 0));
        if (!fits(width, height))
            return;
        const std::size_t room = static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3;
        const std::unique_ptr<unsigned char[]> pixels(new unsigned char[room]);
        int again = -99, againHeight = -99;
        const int decoded = ImageDecode(file.get(), length, pixels.get(), &again, &againHeight);
        require(decoded == 1 || (bmp && decoded == -2));
        require(again == width && againHeight == height);
    } catch (const cv::Exception&) {
        // OpenCV refuses pictures beyond its limits this way; applications see the same.
    }
}

} // namespace

void bmpToRaw(const std::uint8_t* data, std::size_t size) {
    // A size of 0 means that the caller vouches for the length; here nobody does.
    if (size == 0)
        return;
    const auto file = exactCopy(data, size);
    const auto length = static_cast<int>(size);
    int width = -99, height = -99, channels = -99;
    const int asked = BMPToRaw(file.get(), length, nullptr, &width, &height, &channels);
    require(asked == 0 || asked == -1);
    if (asked == -1) {
        require(width == -99 && height == -99 && channels == -99);
        unsigned char untouched = 77;
        require(BMPToRaw(file.get(), length, &untouched, &width, &height, &channels) == -1 && untouched == 77);
        return;
    }
    require(channels >= 0);
    const bool topDown = height < 0;
    const std::uint64_t rows = topDown ? 0 : static_cast<std::uint64_t>(height);
    // A file that was accepted has its pixels; what has none may announce anything.
    const bool supported = data[29] == 0 && (data[28] == 8 || data[28] == 24 || data[28] == 32);
    const std::uint64_t samples =
        supported ? static_cast<std::uint64_t>(width) * rows * static_cast<std::uint64_t>(channels) : 0;
    require(samples <= size);
    const std::unique_ptr<unsigned char[]> pixels(new unsigned char[samples]);
    require(BMPToRaw(file.get(), length, pixels.get(), &width, &height, &channels) == (supported ? 1 : -2));
    if (!supported || topDown)
        return;

    // What was read is written, and read again, unchanged.
    int written = -1;
    require(RawToBMP(pixels.get(), width, height, channels, nullptr, &written) == 1);
    require(written > 0);
    const std::unique_ptr<unsigned char[]> again(new unsigned char[static_cast<std::size_t>(written)]);
    RawToBMP(pixels.get(), width, height, channels, again.get(), &written);
    const std::unique_ptr<unsigned char[]> back(new unsigned char[samples]);
    int backWidth = 0, backHeight = 0, backChannels = 0;
    require(BMPToRaw(again.get(), written, back.get(), &backWidth, &backHeight, &backChannels) == 1);
    require(backWidth == width && backHeight == height && backChannels == channels);
    require(std::memcmp(back.get(), pixels.get(), samples) == 0);
}

void imageDecode(const std::uint8_t* data, std::size_t size) {
    const int free = lowestFreeDescriptor();
    decodeTwice(data, size);
    require(lowestFreeDescriptor() <= free);
}

} // namespace veldan_fuzz
