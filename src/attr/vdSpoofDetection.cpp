#include "engine/data_size.hpp"
#include "engine/evaluation.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"

#include <veldan/align.h>
#include <veldan/model_store.hpp>
#include <veldan/result_codes.h>
#include <veldan/spoof_detection.hpp>

#include <opencv2/imgproc.hpp>

namespace {

constexpr int cropSide = 112;

// From this score on a face is aligned by the two points. The combined flows begin at 41; both are kept as they are.
constexpr int maskedFrom = 40;

// The outputs of the two networks have opposite orders: that of the live class.
constexpr int rgbLiveClass = 1;
constexpr int nirLiveClass = 0;

// What the near-infrared network sees of the crop: both eyes and the nose. It ends above the mouth.
const cv::Rect nirRegion(16, 24, 80, 64);

void alignFace(unsigned char* image, int width, int height, const VDFACEINFOEX& face, cv::Mat& crop) {
    float points[10];
    const auto collect = [&](int first, int count) {
        for (int k = 0; k < count; ++k) {
            points[2 * k] = static_cast<float>(face.keyPointX[first + k]);
            points[2 * k + 1] = static_cast<float>(face.keyPointY[first + k]);
        }
    };
    // A score that was never written is -1, and such a face counts as bare.
    if (face.maskScore < maskedFrom) {
        collect(0, 5);
        alignface_pinv(image, width, height, crop.data, crop.cols, crop.rows, points);
    } else {
        collect(5, 2);
        alignface_mask(image, width, height, crop.data, crop.cols, crop.rows, points);
    }
}

int livenessOf(cv::dnn::Net& net, const cv::Mat& blob, int liveClass) {
    net.setInput(blob, cv::String(), 1.0, cv::Scalar());
    const cv::Mat output = net.forward();
    return veldan::percent(veldan::outputValues(output, 2)[liveClass]);
}

} // namespace

vdSpoofDetection::vdSpoofDetection() = default;
vdSpoofDetection::~vdSpoofDetection() = default;

int vdSpoofDetection::vdSpoofInitAlg(char* /*path*/) {
    const int error = veldan::loadTensorflowNet(length_VELDAN_V5_0_0_LiveDetect_RGB, data_VELDAN_V5_0_0_LiveDetect_RGB,
                                                {"", 3, {cropSide, cropSide}, {{"", 2}}}, rgbNet);
    if (error != VD_OK)
        return error;
    return veldan::loadTensorflowNet(length_VELDAN_V5_1_0_LiveDetect_NIR, data_VELDAN_V5_1_0_LiveDetect_NIR,
                                     {"", 1, nirRegion.size(), {{"", 2}}}, nirNet);
}

int vdSpoofDetection::vdSpoofFreeAlg() {
    return VD_OK;
}

int vdSpoofDetection::vdSpoofRGBEvaluation(unsigned char* image, int width, int height, int faceNum,
                                           VDFACEINFOEX* faces) {
    if (faceNum <= 0)
        return VD_OK;
    if (!veldan::canEvaluate(rgbNet, image, width, height, faces))
        return veldan::evaluationRefused;

    cv::Mat crop(cropSide, cropSide, CV_8UC3);
    for (int i = 0; i < faceNum; ++i) {
        alignFace(image, width, height, faces[i], crop);
        faces[i].liveness = livenessOf(rgbNet, veldan::inputBlob(crop), rgbLiveClass);
    }
    return VD_OK;
}

int vdSpoofDetection::vdSpoofNIREvaluation(unsigned char* image, int width, int height, int faceNum,
                                           VDFACEINFOEX* faces) {
    if (faceNum <= 0)
        return VD_OK;
    if (!veldan::canEvaluate(nirNet, image, width, height, faces))
        return veldan::evaluationRefused;

    cv::Mat crop(cropSide, cropSide, CV_8UC3);
    cv::Mat grey;
    for (int i = 0; i < faceNum; ++i) {
        alignFace(image, width, height, faces[i], crop);
        // The crop is in blue, green, red order, so blue gets the weight of red and red that of blue. The network was
        // trained on exactly this grey; near-infrared frames have equal channels anyway.
        cv::cvtColor(crop, grey, cv::COLOR_RGB2GRAY);
        faces[i].liveness = livenessOf(nirNet, veldan::inputBlob(grey(nirRegion)), nirLiveClass);
    }
    return VD_OK;
}

int vdSpoofDetection::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
