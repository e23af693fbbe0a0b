#include "align/face_alignment.hpp"
#include "engine/data_size.hpp"
#include "engine/evaluation.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"

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

void alignFace(const cv::Mat& frame, const VDFACEINFOEX& face, cv::Mat& crop) {
    // A score that was never written is -1, and such a face counts as bare.
    if (face.maskScore < maskedFrom)
        veldan::alignByFive(frame, face, crop);
    else
        veldan::alignByTwo(frame, face, crop);
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
    cv::Mat crop(cropSide, cropSide, CV_8UC3);
    const auto score = [&](const cv::Mat& frame, VDFACEINFOEX& face) {
        alignFace(frame, face, crop);
        face.liveness = livenessOf(rgbNet, veldan::inputBlob(crop), rgbLiveClass);
    };
    return veldan::evaluateFaces(rgbNet, image, width, height, faceNum, faces, score);
}

int vdSpoofDetection::vdSpoofNIREvaluation(unsigned char* image, int width, int height, int faceNum,
                                           VDFACEINFOEX* faces) {
    cv::Mat crop(cropSide, cropSide, CV_8UC3);
    cv::Mat grey;
    const auto score = [&](const cv::Mat& frame, VDFACEINFOEX& face) {
        alignFace(frame, face, crop);
        // The crop is in blue, green, red order, so blue gets the weight of red and red that of blue. The network was
        // trained on exactly this grey; near-infrared frames have equal channels anyway.
        cv::cvtColor(crop, grey, cv::COLOR_RGB2GRAY);
        face.liveness = livenessOf(nirNet, veldan::inputBlob(grey(nirRegion)), nirLiveClass);
    };
    return veldan::evaluateFaces(nirNet, image, width, height, faceNum, faces, score);
}

int vdSpoofDetection::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
