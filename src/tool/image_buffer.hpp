#ifndef VELDAN_TOOL_IMAGE_BUFFER_HPP
#define VELDAN_TOOL_IMAGE_BUFFER_HPP

#include <opencv2/core.hpp>

#include <cstddef>
#include <cstring>

namespace veldan {

// A view of the caller's pixels, nothing copied. cv::Mat takes a negative size over external data without a word, and
// what works on it then reads and writes anywhere; here it raises the cv::Exception that an allocation of that size
// would raise.
inline cv::Mat wrapImage(unsigned char* pixels, int width, int height, int channels) {
    CV_CheckGE(width, 0, "negative image width");
    CV_CheckGE(height, 0, "negative image height");
    CV_CheckGE(channels, 1, "number of channels");
    CV_CheckLE(channels, CV_CN_MAX, "number of channels");
    return {height, width, CV_8UC(channels), pixels};
}

// Copies a matrix to a raw buffer, rows without padding.
inline void copyImage(const cv::Mat& image, unsigned char* out) {
    const std::size_t rowBytes = static_cast<std::size_t>(image.cols) * image.elemSize();
    if (image.empty())
        return;
    for (int row = 0; row < image.rows; ++row, out += rowBytes)
        std::memcpy(out, image.ptr(row), rowBytes);
}

} // namespace veldan

#endif
