#include "align/square_crop.hpp"
#include "engine/data_size.hpp"
#include "engine/engine_network.hpp"
#include "engine/evaluation.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"

#include <veldan/face_landmark.hpp>
#include <veldan/model_store.hpp>
#include <veldan/result_codes.h>

namespace {

constexpr int inputSide = 48;
constexpr int firstPoint = 5;
constexpr int landmarkValues = 4;

} // namespace

// By value: the signature is fixed.
int get_crop_landmark(cv::Mat img, int x, int y, int w, int h, int size, cv::Mat& out, // NOLINT(performance-*)
                      cv::Rect& rect) {
    rect = veldan::cropSquare(img, x, y, w, h, size, out);
    return VD_OK;
}

vdFaceLandmark::vdFaceLandmark() : network(std::make_unique<veldan::EngineNetwork>()) {}
vdFaceLandmark::~vdFaceLandmark() = default;

int vdFaceLandmark::landmarkInitAlg(char* /*path*/) {
    return veldan::loadTensorflowNet(
        length_VELDAN_V5_1_0_FaceMaskAlign, data_VELDAN_V5_1_0_FaceMaskAlign,
        {"input_image", 3, {inputSide, inputSide}, {{"landmark_fc/MatMul", landmarkValues}}}, network->net);
}

int vdFaceLandmark::landmarkEvaluation(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    cv::Mat crop;
    cv::Rect rect;
    const auto findPoints = [&](const cv::Mat& frame, VDFACEINFOEX& face) {
        get_crop_landmark(frame, face.x, face.y, face.width, face.height, inputSide, crop, rect);
        network->net.setInput(veldan::inputBlob(crop), "input_image", 1.0, cv::Scalar());
        const cv::Mat output = network->net.forward("landmark_fc/MatMul");
        const float* const point = veldan::outputValues(output, landmarkValues);
        // In the pixels of the bordered image when the square left the image, and deliberately not shifted back.
        const auto left = static_cast<float>(rect.x);
        const auto top = static_cast<float>(rect.y);
        const float w = static_cast<float>(rect.width) + 1;
        const float h = static_cast<float>(rect.height) + 1;
        for (int k = 0; k < 2; ++k) {
            face.keyPointX[firstPoint + k] = veldan::truncate(left + point[2 * k] * w);
            face.keyPointY[firstPoint + k] = veldan::truncate(top + point[2 * k + 1] * h);
        }
    };
    return veldan::evaluateFaces(network->net, image, width, height, faceNum, faces, findPoints);
}

int vdFaceLandmark::landmarkFreeAlg() {
    return VD_OK;
}

int vdFaceLandmark::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
