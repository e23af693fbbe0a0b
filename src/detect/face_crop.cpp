#include "detect/face_crop.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>

namespace veldan {

namespace {

// Differences of two such coordinates stay inside the range of int.
constexpr float farthestCoordinate = 1 << 30;

// Crops up to this side are always made, whatever the size of the image.
constexpr int alwaysAllowedSide = 4096;

// A padded crop larger than this is not kept as scratch.
constexpr std::size_t keptScratchBytes = std::size_t{3} * 2048 * 2048;

bool isNear(float coordinate) {
    return std::abs(coordinate) < farthestCoordinate; // false when not a number
}

} // namespace

void writePlanes(const cv::Mat& image, float mean, float scale, float* planes) {
    const std::size_t plane = image.total();
    for (int y = 0; y < image.rows; ++y) {
        const auto* pixel = image.ptr<unsigned char>(y);
        float* out = planes + static_cast<std::size_t>(y) * static_cast<std::size_t>(image.cols);
        for (int x = 0; x < image.cols; ++x, pixel += 3, ++out) {
            out[0] = (static_cast<float>(pixel[0]) - mean) * scale;
            out[plane] = (static_cast<float>(pixel[1]) - mean) * scale;
            out[2 * plane] = (static_cast<float>(pixel[2]) - mean) * scale;
        }
    }
}

const cv::Mat* FaceCropper::crop(const cv::Mat& image, const FaceInfo& box, cv::Size size) {
    if (!isNear(box.x1) || !isNear(box.y1) || !isNear(box.x2) || !isNear(box.y2))
        return nullptr;
    const int left = std::max(static_cast<int>(box.x1), 0);
    const int top = std::max(static_cast<int>(box.y1), 0);
    const int right = std::min(static_cast<int>(box.x2), image.cols);
    const int bottom = std::min(static_cast<int>(box.y2), image.rows);

    const bool leavesImage =
        box.x1 < 0 || box.x2 > static_cast<float>(image.cols) || box.y1 < 0 || box.y2 > static_cast<float>(image.rows);
    if (!leavesImage) {
        if (right <= left || bottom <= top)
            return nullptr;
        cv::resize(image(cv::Range(top, bottom), cv::Range(left, right)), resized, size, 0, 0, cv::INTER_LINEAR);
        return &resized;
    }

    const int cropWidth = static_cast<int>(box.x2 - box.x1);
    const int cropHeight = static_cast<int>(box.y2 - box.y1);
    const int largestSide =
        std::max({alwaysAllowedSide, 2 * std::min(image.cols, 1 << 29), 2 * std::min(image.rows, 1 << 29)});
    if (cropWidth <= 0 || cropHeight <= 0 || cropWidth > largestSide || cropHeight > largestSide)
        return nullptr;
    padded.create(cropHeight, cropWidth, image.type());
    padded.setTo(cv::Scalar::all(0));
    // Where the image's part lies in the crop. With whole edges, as the cascade has them, both have the same size; a
    // fractional edge can make them differ by one, then the smaller one counts.
    const int cropLeft = static_cast<int>(static_cast<float>(left) - box.x1);
    const int cropTop = static_cast<int>(static_cast<float>(top) - box.y1);
    const int width = std::min(right - left, cropWidth - cropLeft);
    const int height = std::min(bottom - top, cropHeight - cropTop);
    if (width > 0 && height > 0)
        image(cv::Rect(left, top, width, height)).copyTo(padded(cv::Rect(cropLeft, cropTop, width, height)));
    cv::resize(padded, resized, size, 0, 0, cv::INTER_LINEAR);
    if (padded.total() * padded.elemSize() > keptScratchBytes)
        padded.release();
    return &resized;
}

} // namespace veldan
