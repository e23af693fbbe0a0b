#ifndef VELDAN_ENGINE_EVALUATION_HPP
#define VELDAN_ENGINE_EVALUATION_HPP

#include <veldan/face_record.h>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

namespace veldan {

// What the engines that run one network on one face after the other have in common.

// Returned by an evaluation whose arguments make no sense; the instance turns it into the code of the operation.
constexpr int evaluationRefused = -1;

// Whether there is something to evaluate with and on.
inline bool canEvaluate(const cv::dnn::Net& net, const unsigned char* image, int width, int height,
                        const VDFACEINFOEX* faces) {
    return !net.empty() && image != nullptr && width > 0 && height > 0 && faces != nullptr;
}

// The caller's pixels as a matrix, without copying. OpenCV takes no pointer to const; nothing here writes to them.
inline cv::Mat wrapImage(unsigned char* image, int width, int height) {
    return {height, width, CV_8UC3, image};
}

// A network's input, resized unless size is empty: (sample - 127.5) / 128, channels in the image's order.
inline cv::Mat inputBlob(const cv::Mat& image, cv::Size size = {}) {
    return cv::dnn::blobFromImage(image, 0.0078125, size, cv::Scalar(127.5, 127.5, 127.5), false, false, CV_32F);
}

// The first values of a network's output, at least count of them.
inline const float* outputValues(const cv::Mat& output, int count) {
    CV_Assert(output.type() == CV_32F && output.isContinuous() && output.total() >= static_cast<std::size_t>(count));
    return output.ptr<float>();
}

} // namespace veldan

#endif
