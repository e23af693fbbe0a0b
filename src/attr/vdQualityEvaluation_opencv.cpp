#include "attr/clip.hpp"
#include "engine/data_size.hpp"
#include "engine/evaluation.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"

#include <veldan/model_store.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/result_codes.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace {

constexpr int inputSide = 24;
constexpr int goodClass = 1;

} // namespace

QUALITYEVALUATION::QUALITYEVALUATION() = default;
QUALITYEVALUATION::~QUALITYEVALUATION() = default;

int QUALITYEVALUATION::mqInitAlg(char* /*path*/) {
    return veldan::loadTensorflowNet(length_VELDAN_V5_0_0_FaceQuality, data_VELDAN_V5_0_0_FaceQuality,
                                     {"input_image", 3, {inputSide, inputSide}, {{"softmax/Softmax", 2}}}, net);
}

int QUALITYEVALUATION::mqQualityEvaluation(unsigned char* image, int width, int height, int faceCount,
                                           VDFACEINFOEX* faces) {
    const auto score = [&](const cv::Mat& frame, VDFACEINFOEX& face) {
        // The definition is one of 32-bit integers; wider ones give the same wherever those do not overflow.
        const std::int64_t side = std::max(face.width, face.height);
        const std::int64_t left = face.x + (face.width - side) / 2;
        const std::int64_t top = face.y + (face.height - side) / 2;
        const int cx = np_round(static_cast<float>(left));
        const int cy = np_round(static_cast<float>(top));
        // Clipped, not padded, and stretched to the network's square: unlike the other engines' crops, on purpose. An
        // empty crop raises OpenCV's exception.
        const cv::Mat crop = frame(veldan::clip(cx, cy, side, side, frame.size()));
        net.setInput(veldan::inputBlob(crop, cv::Size(inputSide, inputSide)), "input_image", 1.0, cv::Scalar());
        const cv::Mat output = net.forward("softmax/Softmax");
        face.quality = veldan::percent(veldan::outputValues(output, 2)[goodClass]);
    };
    return veldan::evaluateFaces(net, image, width, height, faceCount, faces, score);
}

int QUALITYEVALUATION::mqFreeAlg() {
    return VD_OK;
}

int QUALITYEVALUATION::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}

int QUALITYEVALUATION::np_round(float value) {
    return veldan::roundHalves(value);
}
