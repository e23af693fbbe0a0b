#include "attr/clip.hpp"
#include "tool/image_buffer.hpp"

#include <veldan/face_quality.hpp>

#include <opencv2/imgproc.hpp>

#include <cstdint>

namespace {

double ratio(std::int64_t dividend, std::int64_t divisor) {
    // A divisor of 0 gives infinity or no number at all, and neither lies within any bounds.
    return static_cast<double>(dividend) / static_cast<double>(divisor);
}

bool isBetween(double value, double low, double high) {
    return low < value && value < high;
}

bool isBalanced(double value) {
    return isBetween(value, 0.75, 1.3);
}

} // namespace

// There is nothing to do; they are part of the exported class.
FaceQuality::FaceQuality() {}
FaceQuality::~FaceQuality() {}

// The records come by value: the signatures are fixed.
int FaceQuality::Face_blurRGB(unsigned char* image, int width, int height, VDFACEINFOEX face) {
    if (image == nullptr || width <= 0 || height <= 0)
        return 0;
    const cv::Mat frame = veldan::wrapImage(image, width, height, 3);
    const cv::Rect region = veldan::clip(face.x, face.y, face.width, face.height, frame.size());
    // Nothing to see is not sharp; the verdict needs no exception for that.
    if (region.empty())
        return 0;

    cv::Mat grey;
    cv::Mat smooth;
    cv::Mat edges;
    cv::Mat strength;
    cv::cvtColor(frame(region), grey, cv::COLOR_BGR2GRAY);
    cv::GaussianBlur(grey, smooth, cv::Size(3, 3), 0, 0, cv::BORDER_DEFAULT);
    cv::Laplacian(smooth, edges, CV_16S, 3, 1.0, 0.0, cv::BORDER_DEFAULT);
    cv::convertScaleAbs(edges, strength, 1.0, 0.0);
    cv::Scalar mean;
    cv::Scalar deviation;
    cv::meanStdDev(strength, mean, deviation);
    return mean[0] > 10.0 && deviation[0] > 20.0 && mean[0] / deviation[0] > 0.5 ? 1 : 0;
}

int FaceQuality::Face_Front(unsigned char* /*image*/, int /*width*/, int /*height*/, VDFACEINFOEX face) {
    // Differences in integers, wide enough for points anywhere; only the ratios are floating-point.
    std::int64_t x[5];
    std::int64_t y[5];
    for (int i = 0; i < 5; ++i) {
        x[i] = face.keyPointX[i];
        y[i] = face.keyPointY[i];
    }
    const std::int64_t left = face.x;
    const std::int64_t right = left + face.width;

    const double eyes = ratio(x[2] - x[0], x[1] - x[2]);
    const double mouth = ratio(x[2] - x[3], x[4] - x[2]);
    const double nose = static_cast<double>(y[2]);
    const double eyeHeight = static_cast<double>(y[0] + y[1]) / 2.0;
    const double mouthHeight = static_cast<double>(y[3] + y[4]) / 2.0;
    const double vertical = (nose - eyeHeight) / (mouthHeight - nose);
    const double eyeMargins = ratio(x[0] - left, right - x[1]);
    const double mouthMargins = ratio(x[3] - left, right - x[4]);
    const double noseMargins = ratio(x[2] - left, right - x[2]);
    // Left mouth corner minus right one, which is negative in an upright face: the mouth must be narrower than the eyes
    // are apart. The sign is wanted.
    const std::int64_t widths = (x[1] - x[0]) + (x[3] - x[4]);

    return isBalanced(eyes) && isBalanced(mouth) && isBetween(vertical, 0.5, 2.0) && isBalanced(eyeMargins) &&
                   isBalanced(mouthMargins) && isBalanced(noseMargins) && widths > 0
               ? 1
               : 0;
}
