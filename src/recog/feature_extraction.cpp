#include "recog/feature_extraction.hpp"

#include "engine/evaluation.hpp"

#include <algorithm>

namespace veldan {

namespace {

constexpr int cropSide = 112;

} // namespace

NetworkForm recognizerForm(const std::string& outputLayer) {
    return {"", 3, {cropSide, cropSide}, {{outputLayer, featureLength}}};
}

int extractFeatures(cv::dnn::Net& net, const std::string& layer, const AlignFace& align, unsigned char* image,
                    int width, int height, int faceNum, const VDFACEINFOEX* faces, float* feature) {
    if (faceNum <= 0)
        return VD_OK;
    if (!canEvaluate(net, image, width, height, faces) || feature == nullptr)
        return evaluationRefused;
    const cv::Mat frame = wrapImage(image, width, height, 3);
    cv::Mat crop(cropSide, cropSide, CV_8UC3);
    for (int i = 0; i < faceNum; ++i) {
        crop.setTo(cv::Scalar());
        const int error = align(frame, faces[i], crop);
        if (error != VD_OK)
            return error;
        // Red first, unlike all other engines.
        net.setInput(inputBlob(crop, {}, true), "", 1.0, cv::Scalar());
        const cv::Mat output = net.forward(layer);
        std::copy_n(outputValues(output, featureLength), featureLength,
                    feature + static_cast<std::ptrdiff_t>(i) * featureLength);
    }
    return VD_OK;
}

} // namespace veldan
