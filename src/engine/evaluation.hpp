#ifndef VELDAN_ENGINE_EVALUATION_HPP
#define VELDAN_ENGINE_EVALUATION_HPP

#include "tool/image_buffer.hpp"

#include <veldan/face_record.h>
#include <veldan/result_codes.h>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include <cstddef>

namespace veldan {

// What the engines that run one network on one face after the other have in common.

// Returned by an evaluation whose arguments make no sense; the instance turns it into the code of the operation.
constexpr int evaluationRefused = -1;

// Whether there is something to evaluate with and on.
inline bool canEvaluate(const cv::dnn::Net& net, const unsigned char* image, int width, int height,
                        const VDFACEINFOEX* faces) {
    return !net.empty() && image != nullptr && width > 0 && height > 0 && faces != nullptr;
}

// Calls evaluate(frame, face) for each face, the frame being the caller's pixels. Returns 0, also when there are no
// faces, or evaluationRefused with nothing called.
template <class Evaluate>
int evaluateFaces(const cv::dnn::Net& net, unsigned char* image, int width, int height, int faceNum,
                  VDFACEINFOEX* faces, const Evaluate& evaluate) {
    if (faceNum <= 0)
        return VD_OK;
    if (!canEvaluate(net, image, width, height, faces))
        return evaluationRefused;
    const cv::Mat frame = wrapImage(image, width, height, 3);
    for (int i = 0; i < faceNum; ++i)
        evaluate(frame, faces[i]);
    return VD_OK;
}

// A network's input, resized unless size is empty: (sample - 127.5) / 128, channels in the image's order unless red and
// blue are to be swapped.
inline cv::Mat inputBlob(const cv::Mat& image, cv::Size size = {}, bool swapRedBlue = false) {
    return cv::dnn::blobFromImage(image, 0.0078125, size, cv::Scalar(127.5, 127.5, 127.5), swapRedBlue, false, CV_32F);
}

// The first values of a network's output, at least count of them.
inline const float* outputValues(const cv::Mat& output, int count) {
    CV_Assert(output.type() == CV_32F && output.isContinuous() && output.total() >= static_cast<std::size_t>(count));
    return output.ptr<float>();
}

} // namespace veldan

#endif
