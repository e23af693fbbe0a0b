#include "align/square_crop.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>

namespace veldan {

namespace {

constexpr double mostBytes = 1 << 30;

double bytesOf(const cv::Mat& image, std::int64_t width, std::int64_t height) {
    return static_cast<double>(image.elemSize()) * static_cast<double>(width) * static_cast<double>(height);
}

cv::Rect toRect(std::int64_t x, std::int64_t y, std::int64_t side) {
    return {cv::saturate_cast<int>(x), cv::saturate_cast<int>(y), static_cast<int>(side), static_cast<int>(side)};
}

} // namespace

cv::Rect cropSquare(const cv::Mat& image, int x, int y, int w, int h, int size, cv::Mat& out) {
    // The definition is one of 32-bit integers. Wider ones give the same wherever those do not overflow.
    const std::int64_t side = std::max(w, h);
    const std::int64_t cx = x + (w - side) / 2;
    const std::int64_t cy = y + (h - side) / 2;
    CV_Assert(!image.empty() && side > 0);

    const std::int64_t pad = std::max({-cx, -cy, cx + side - image.cols, cy + side - image.rows});
    const cv::Size target(size, size);
    if (pad < 1) {
        const cv::Rect square = toRect(cx, cy, side);
        cv::resize(image(square), out, target, 0, 0, cv::INTER_LINEAR);
        return square;
    }

    const cv::Rect square = toRect(cx + pad, cy + pad, side);
    if (bytesOf(image, image.cols + 2 * pad, image.rows + 2 * pad) <= mostBytes) {
        // The border goes around the whole image, by the largest overshoot on all four sides: the points that the
        // two-point engine reports are relative to this copy.
        const int border = static_cast<int>(pad);
        cv::Mat padded;
        cv::copyMakeBorder(image, padded, border, border, border, border, cv::BORDER_CONSTANT, cv::Scalar(0, 0, 0, 0));
        cv::resize(padded(square), out, target, 0, 0, cv::INTER_LINEAR);
        return square;
    }

    // A box so far away, or so large, that the copy would exhaust the memory: the same pixels without it.
    CV_Assert(bytesOf(image, side, side) <= mostBytes);
    cv::Mat cut = cv::Mat::zeros(square.size(), image.type());
    const std::int64_t left = std::max<std::int64_t>(cx, 0);
    const std::int64_t top = std::max<std::int64_t>(cy, 0);
    const std::int64_t width = std::min<std::int64_t>(cx + side, image.cols) - left;
    const std::int64_t height = std::min<std::int64_t>(cy + side, image.rows) - top;
    if (width > 0 && height > 0) {
        const cv::Size part(static_cast<int>(width), static_cast<int>(height));
        image(cv::Rect({static_cast<int>(left), static_cast<int>(top)}, part))
            .copyTo(cut(cv::Rect({static_cast<int>(left - cx), static_cast<int>(top - cy)}, part)));
    }
    cv::resize(cut, out, target, 0, 0, cv::INTER_LINEAR);
    return square;
}

} // namespace veldan
