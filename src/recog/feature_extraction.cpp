#include "recog/feature_extraction.hpp"

#include "engine/evaluation.hpp"

#include <algorithm>

namespace veldan {

namespace {

constexpr int cropSide = 112;

// Red first, unlike all other engines.
cv::Mat recognizerBlob(const cv::Mat& crop) {
    return cv::dnn::blobFromImage(crop, 0.0078125, cv::Size(), cv::Scalar(127.5, 127.5, 127.5), true, false, CV_32F);
}

} // namespace

NetworkForm recognizerForm(const std::string& outputLayer) {
    return {"", 3, {cropSide, cropSide}, {{outputLayer, featureLength}}};
}

int extractFeatures(cv::dnn::Net& net, const std::string& layer, const AlignFace& align, int faceNum,
                    const VDFACEINFOEX* faces, float* feature) {
    cv::Mat crop(cropSide, cropSide, CV_8UC3);
    for (int i = 0; i < faceNum; ++i) {
        crop.setTo(cv::Scalar());
        const int error = align(faces[i], crop);
        if (error != 0)
            return error;
        net.setInput(recognizerBlob(crop), "", 1.0, cv::Scalar());
        const cv::Mat output = net.forward(layer);
        std::copy_n(outputValues(output, featureLength), featureLength,
                    feature + static_cast<std::ptrdiff_t>(i) * featureLength);
    }
    return 0;
}

} // namespace veldan
