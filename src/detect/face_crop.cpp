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

namespace {

// The pixels of a box, cut off at the image's borders; and whether anything was cut off.
struct Cut {
    int left, top, right, bottom;
    bool leavesImage;

    Cut(const cv::Mat& image, const FaceInfo& box)
        : left(std::max(static_cast<int>(box.x1), 0)), top(std::max(static_cast<int>(box.y1), 0)),
          right(std::min(static_cast<int>(box.x2), image.cols)), bottom(std::min(static_cast<int>(box.y2), image.rows)),
          leavesImage(box.x1 < 0 || box.x2 > static_cast<float>(image.cols) || box.y1 < 0 ||
                      box.y2 > static_cast<float>(image.rows)) {}
};

} // namespace

bool FaceCropper::hasCrop(const cv::Mat& image, const FaceInfo& box) {
    if (!isNear(box.x1) || !isNear(box.y1) || !isNear(box.x2) || !isNear(box.y2))
        return false;
    const Cut cut(image, box);
    if (!cut.leavesImage)
        return cut.right > cut.left && cut.bottom > cut.top;
    const int width = static_cast<int>(box.x2 - box.x1);
    const int height = static_cast<int>(box.y2 - box.y1);
    const int largestSide =
        std::max({alwaysAllowedSide, 2 * std::min(image.cols, 1 << 29), 2 * std::min(image.rows, 1 << 29)});
    return width > 0 && height > 0 && width <= largestSide && height <= largestSide;
}

const cv::Mat& FaceCropper::crop(const cv::Mat& image, const FaceInfo& box, cv::Size size) {
    const Cut cut(image, box);
    if (!cut.leavesImage) {
        cv::resize(image(cv::Range(cut.top, cut.bottom), cv::Range(cut.left, cut.right)), resized, size, 0, 0,
                   cv::INTER_LINEAR);
        return resized;
    }

    const cv::Size paddedSize(static_cast<int>(box.x2 - box.x1), static_cast<int>(box.y2 - box.y1));
    black.assign(static_cast<std::size_t>(paddedSize.width) * static_cast<std::size_t>(paddedSize.height) * 3, 0);
    cv::Mat padded(paddedSize, CV_8UC3, black.data());
    // Where the image's part lies in the crop. With whole edges, as the cascade has them, both have the same size; a
    // fractional edge can make them differ by one, then the smaller one counts.
    const int cropLeft = static_cast<int>(static_cast<float>(cut.left) - box.x1);
    const int cropTop = static_cast<int>(static_cast<float>(cut.top) - box.y1);
    const int width = std::min(cut.right - cut.left, padded.cols - cropLeft);
    const int height = std::min(cut.bottom - cut.top, padded.rows - cropTop);
    if (width > 0 && height > 0)
        image(cv::Rect(cut.left, cut.top, width, height)).copyTo(padded(cv::Rect(cropLeft, cropTop, width, height)));
    cv::resize(padded, resized, size, 0, 0, cv::INTER_LINEAR);
    if (black.size() > keptScratchBytes)
        black = {};
    return resized;
}

} // namespace veldan
