#include "tool/image_buffer.hpp"
#include "tool/refused_formats.hpp"
#include "tool/report.hpp"

#include <veldan/image_tool.h>
#include <veldan/image_tool.hpp>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using veldan::copyImage;
using veldan::report;
using veldan::wrapImage;

namespace {

// Results are computed in a matrix of our own and then copied out, so that input and output may be the same buffer.

constexpr int success = 1;
// For the functions that have no error code of their own.
constexpr int nothingDone = 0;

// One value for the process, by contract. Atomic only so that two threads that start it do not make a broken value.
std::atomic<double> stopwatchStart{0.0};

const cv::Scalar& colourOf(int index) {
    static const cv::Scalar colours[] = {{0, 0, 255}, {0, 255, 0}, {255, 0, 0}};
    // Too large an index draws in red by contract; a negative one has no meaning and is treated alike.
    return colours[index < 0 || index > 2 ? 0 : index];
}

// Moves a corner that lies far outside of the image nearer to it. The lines of an upright rectangle look the same
// inside, and the drawing code is spared coordinates on which its fixed-point arithmetic overflows or runs for seconds.
int nearImage(std::int64_t coordinate, int imageSize) {
    constexpr std::int64_t margin = 64;
    static_assert(margin > 8, "a line beyond the margin must not reach into the image");
    return static_cast<int>(
        std::clamp<std::int64_t>(coordinate, -margin, std::min<std::int64_t>(imageSize + margin, INT_MAX)));
}

// What stands after the last dot, in lower case; the whole format when it has no dot.
std::string extensionOf(const std::string& format) {
    const std::size_t dot = format.rfind('.');
    std::string extension = dot == std::string::npos ? format : format.substr(dot + 1);
    for (char& c : extension)
        if (c >= 'A' && c <= 'Z')
            c = static_cast<char>(c - 'A' + 'a');
    return extension;
}

int encode(const cv::Mat& image, const std::string& format, const std::vector<int>& parameters, unsigned char* out,
           int* outSize) {
    std::vector<unsigned char> file;
    // The outcome is not looked at: a failed encoder leaves no bytes, and 0 is the length that the caller gets.
    cv::imencode(format, image, file, parameters);
    if (file.size() > INT_MAX)
        file.clear();
    report(outSize, static_cast<int>(file.size()));
    if (out != nullptr && !file.empty())
        std::memcpy(out, file.data(), file.size());
    return success;
}

} // namespace

int ImageLoad(const char* path, int flag, unsigned char* out, int* width, int* height) {
    constexpr int unreadable = -3;
    if (path == nullptr || veldan::isRefusedFile(path))
        return unreadable;
    const cv::Mat image = cv::imread(path, flag == 1 ? cv::IMREAD_GRAYSCALE : cv::IMREAD_COLOR);
    if (image.empty())
        return unreadable;
    report(width, image.cols);
    report(height, image.rows);
    if (out != nullptr)
        copyImage(image, out);
    return success;
}

int ImageSave(const char* path, unsigned char* image, int width, int height, int channels) {
    if (path != nullptr && image != nullptr)
        cv::imwrite(path, wrapImage(image, width, height, channels));
    return success;
}

void ImageYUV2RGB(unsigned char* yuv, int width, int height, unsigned char* out) {
    if (yuv == nullptr || out == nullptr)
        return;
    cv::Mat colour = wrapImage(out, width, height, 3);
    // An odd size has no whole chroma samples: OpenCV refuses the plane, and the sum below stays small enough for it.
    CV_CheckLE(height, INT_MAX / 3 * 2, "image height");
    cv::cvtColor(wrapImage(yuv, width, height + height / 2, 1), colour, cv::COLOR_YUV2BGR_NV21);
    // The mirror belongs to the contract: this function serves previews.
    cv::flip(colour, colour, 1);
}

void ImageRGB2GRAY(unsigned char* image, int width, int height, unsigned char* out) {
    if (image == nullptr || out == nullptr)
        return;
    cv::Mat grey;
    cv::cvtColor(wrapImage(image, width, height, 3), grey, cv::COLOR_BGR2GRAY);
    copyImage(grey, out);
}

int ImageZoom(unsigned char* image, int width, int height, int channels, int newWidth, int newHeight,
              unsigned char* out) {
    if (image == nullptr || out == nullptr)
        return nothingDone;
    cv::Mat resized;
    cv::resize(wrapImage(image, width, height, channels), resized, cv::Size(newWidth, newHeight), 0, 0,
               cv::INTER_LINEAR);
    copyImage(resized, out);
    return success;
}

int ImageDrawRect(unsigned char* image, int width, int height, int* rect, int colour) {
    if (image == nullptr || rect == nullptr)
        return nothingDone;
    cv::Mat canvas = wrapImage(image, width, height, 3);
    const std::int64_t x = rect[0];
    const std::int64_t y = rect[1];
    const cv::Point from(nearImage(x, width), nearImage(y, height));
    const cv::Point to(nearImage(x + rect[2], width), nearImage(y + rect[3], height));
    cv::rectangle(canvas, from, to, colourOf(colour), 8, cv::LINE_8, 0);
    return success;
}

int ImageCutRect(unsigned char* image, int width, int height, int* rect, unsigned char* out, int* outWidth,
                 int* outHeight) {
    if (image == nullptr || rect == nullptr || out == nullptr)
        return nothingDone;
    int& x = rect[0];
    int& y = rect[1];
    int& w = rect[2];
    int& h = rect[3];
    // The clipped values stay in the caller's array: so the caller learns what was cut. An x of exactly width is let
    // through and gives an empty piece, and a negative w or h is left for cv::Mat to refuse.
    if (x < 0 || x > width)
        x = 0;
    if (y < 0 || y > height)
        y = 0;
    if (w == 0)
        w = width;
    if (std::int64_t{x} + w > width)
        w = width - x;
    if (h == 0)
        h = height;
    if (std::int64_t{y} + h > height)
        h = height - y;
    const cv::Mat piece = wrapImage(image, width, height, 3)(cv::Rect(x, y, w, h)).clone();
    copyImage(piece, out);
    report(outWidth, w);
    report(outHeight, h);
    return success;
}

int ImageDrawPoint(unsigned char* image, int width, int height, int* points, int count, int colour) {
    if (image == nullptr || points == nullptr)
        return nothingDone;
    cv::Mat canvas = wrapImage(image, width, height, 3);
    for (int i = 0; i < count; ++i, points += 2) {
        const cv::Point centre(points[0], points[1]);
        // Nothing of this circle is in the image, and its edges need not be representable.
        if (centre.x < -1 || centre.x > width || centre.y < -1 || centre.y > height)
            continue;
        cv::circle(canvas, centre, 1, colourOf(colour), cv::FILLED, cv::LINE_8, 0);
    }
    return success;
}

int ImageDrawText(unsigned char* image, int width, int height, int x, int y, const char* text, int fontScale,
                  int colour) {
    if (image == nullptr || text == nullptr)
        return nothingDone;
    cv::Mat canvas = wrapImage(image, width, height, 3);
    constexpr int italicSimplex = cv::FONT_HERSHEY_SIMPLEX | cv::FONT_ITALIC;
    cv::putText(canvas, text, cv::Point(x, y), italicSimplex, static_cast<double>(fontScale), colourOf(colour), 1,
                cv::LINE_8, false);
    return success;
}

int ImageDecode(const unsigned char* data, int size, unsigned char* out, int* width, int* height) {
    // Neither BMPToRaw nor imdecode writes to the data.
    auto* bytes = const_cast<unsigned char*>(data);
    if (data != nullptr && size >= 2 && data[0] == 'B' && data[1] == 'M') {
        int channels = 0;
        return BMPToRaw(bytes, size, out, width, height, &channels);
    }
    cv::Mat image;
    if (data != nullptr && size > 0 && !veldan::isRefused(data, static_cast<std::size_t>(size)))
        image = cv::imdecode(cv::Mat(1, size, CV_8UC1, bytes), cv::IMREAD_COLOR);
    report(width, image.cols);
    report(height, image.rows);
    if (out == nullptr)
        return 0;
    copyImage(image, out);
    return success;
}

int ImageEncode(unsigned char* image, int width, int height, const char* format, unsigned char* out, int* outSize) {
    if (image == nullptr || format == nullptr) {
        report(outSize, 0);
        return success;
    }
    if (extensionOf(format) == "bmp")
        return RawToBMP(image, width, height, 3, out, outSize);
    return encode(wrapImage(image, width, height, 3), format, {}, out, outSize);
}

int ImageEncode2(unsigned char* image, int width, int height, int channels, const char* format, int quality,
                 unsigned char* out, int* outSize) {
    if (image == nullptr || format == nullptr) {
        report(outSize, 0);
        return success;
    }
    const std::string extension = extensionOf(format);
    if (extension == "bmp")
        return RawToBMP(image, width, height, channels, out, outSize);
    std::vector<int> parameters;
    // Only the spelling jpg carries the quality; jpeg is encoded with OpenCV's own default, on purpose.
    if (extension == "jpg")
        parameters = {cv::IMWRITE_JPEG_QUALITY, quality};
    else if (extension == "webp")
        parameters = {cv::IMWRITE_WEBP_QUALITY, quality};
    return encode(wrapImage(image, width, height, channels == 1 ? 1 : 3), format, parameters, out, outSize);
}

int ImageRotate(unsigned char* image, int width, int height, int angle, unsigned char* out, int* outWidth,
                int* outHeight) {
    if (image == nullptr || out == nullptr)
        return nothingDone;
    const cv::Mat source = wrapImage(image, width, height, 3);
    cv::Mat turned;
    switch (angle) {
    case 90:
        cv::transpose(source, turned);
        cv::flip(turned, turned, 1);
        break;
    case 180:
        cv::flip(source, turned, -1);
        break;
    case 270:
        cv::transpose(source, turned);
        cv::flip(turned, turned, 0);
        break;
    default:
        // Any other angle gives the picture unchanged, by contract.
        turned = source.clone();
        break;
    }
    copyImage(turned, out);
    report(outWidth, turned.cols);
    report(outHeight, turned.rows);
    return success;
}

int ImageFlip(unsigned char* image, int width, int height, int flipCode, unsigned char* out) {
    if (image == nullptr || out == nullptr)
        return nothingDone;
    cv::Mat flipped;
    cv::flip(wrapImage(image, width, height, 3), flipped, flipCode);
    copyImage(flipped, out);
    return success;
}

void CVTimeStart(void) {
    stopwatchStart = static_cast<double>(cv::getTickCount());
}

double CVTimeRun(void) {
    return (static_cast<double>(cv::getTickCount()) - stopwatchStart) * 1000.0 / cv::getTickFrequency();
}

void CVToolVersion(char* out) {
    static const char version[] = "VELDAN_CVTOOL_V2.4.3.20200406";
    static_assert(sizeof version == VELDAN_TOOL_VERSION_SIZE, "callers make room for this many bytes");
    ITStrcpy(out, version);
}

char* ITStrcpy(char* dst, const char* src) {
    if (dst == nullptr || src == nullptr)
        return dst;
    std::memmove(dst, src, std::strlen(src) + 1);
    return dst;
}
