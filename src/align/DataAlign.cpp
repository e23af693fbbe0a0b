#include "align/similarity_transform.hpp"
#include "tool/image_buffer.hpp"

#include <veldan/align.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

// Not made from the constants below, and not read by them: see the header.
float templatekeypoints[10] = {38.2946F, 51.6953F, 73.5318F, 51.6953F, 56.0252F,
                               71.7366F, 41.5493F, 92.3655F, 70.7299F, 92.2041F};

namespace {

// The five points in a crop of 96 x 112 pixels.
constexpr int baseWidth = 96;
constexpr int baseHeight = 112;
constexpr double basePoints[5][2] = {
    {30.2946, 51.6953}, {65.5318, 51.5014}, {48.0252, 71.7366}, {33.5493, 92.3655}, {62.7299, 92.2041}};

constexpr float maskCorner = 112;

template <int Points>
int align(const unsigned char* image, int width, int height, unsigned char* aligned, int alignedWidth,
          int alignedHeight, const float* points, const cv::Point2f (&places)[Points]) {
    cv::Point2f from[Points];
    for (int i = 0; i < Points; ++i)
        from[i] = {points[2 * i], points[2 * i + 1]};
    const cv::Matx23d forward = veldan::fitSimilarity(from, places);

    // OpenCV takes no pointer to const; the source is only read.
    const cv::Mat source = veldan::wrapImage(const_cast<unsigned char*>(image), width, height, 3);
    cv::Mat crop = veldan::wrapImage(aligned, alignedWidth, alignedHeight, 3);
    cv::warpAffine(source, crop, forward, crop.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
    return 0;
}

bool areUsable(const unsigned char* image, int width, int height, const unsigned char* aligned, int alignedWidth,
               int alignedHeight, const float* points) {
    return image != nullptr && width > 0 && height > 0 && aligned != nullptr && alignedWidth > 0 && alignedHeight > 0 &&
           points != nullptr;
}

} // namespace

int alignface_pinv(const unsigned char* image, int width, int height, unsigned char* aligned, int alignedWidth,
                   int alignedHeight, const float* points) {
    if (!areUsable(image, width, height, aligned, alignedWidth, alignedHeight, points))
        return 0;
    // Each step has its precision, which decides the last bit of the places: the offsets are halved in double and kept
    // as floats, the sums are made in double and kept as floats.
    const auto dx = static_cast<float>((alignedWidth - baseWidth) / 2.0);
    const auto dy = static_cast<float>((alignedHeight - baseHeight) / 2.0);
    cv::Point2f places[5];
    for (int i = 0; i < 5; ++i)
        places[i] = {static_cast<float>(static_cast<double>(dx) + basePoints[i][0]),
                     static_cast<float>(static_cast<double>(dy) + basePoints[i][1])};
    return align(image, width, height, aligned, alignedWidth, alignedHeight, points, places);
}

int alignface_mask(const unsigned char* image, int width, int height, unsigned char* aligned, int alignedWidth,
                   int alignedHeight, const float* points) {
    if (!areUsable(image, width, height, aligned, alignedWidth, alignedHeight, points))
        return 0;
    // Whatever the size of the crop, on purpose: callers who want another size scale the points.
    const cv::Point2f places[] = {{0, 0}, {maskCorner, maskCorner}};
    return align(image, width, height, aligned, alignedWidth, alignedHeight, points, places);
}
