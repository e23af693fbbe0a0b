#include "align/square_crop.hpp"
#include "engine/data_size.hpp"
#include "engine/engine_network.hpp"
#include "engine/evaluation.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"

#include <veldan/face_mask.hpp>
#include <veldan/model_store.hpp>
#include <veldan/result_codes.h>

namespace {

constexpr int inputSide = 48;
constexpr int maskedClass = 1;

} // namespace

// By value: the signature is fixed.
int get_crop(cv::Mat img, int x, int y, int w, int h, int size, cv::Mat& out) { // NOLINT(performance-*)
    veldan::cropSquare(img, x, y, w, h, size, out);
    return VD_OK;
}

vdFaceMask::vdFaceMask() : network(std::make_unique<veldan::EngineNetwork>()) {}
vdFaceMask::~vdFaceMask() = default;

int vdFaceMask::maskInitAlg(char* /*path*/) {
    return veldan::loadTensorflowNet(length_VELDAN_V5_1_0_FaceMaskDetect, data_VELDAN_V5_1_0_FaceMaskDetect,
                                     {"input_image", 3, {inputSide, inputSide}, {{"Softmax", 2}}}, network->net);
}

int vdFaceMask::maskEvaluation(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    cv::Mat crop;
    const auto score = [&](const cv::Mat& frame, VDFACEINFOEX& face) {
        get_crop(frame, face.x, face.y, face.width, face.height, inputSide, crop);
        network->net.setInput(veldan::inputBlob(crop), "input_image", 1.0, cv::Scalar());
        const cv::Mat output = network->net.forward("Softmax");
        face.maskScore = veldan::percent(veldan::outputValues(output, 2)[maskedClass]);
    };
    return veldan::evaluateFaces(network->net, image, width, height, faceNum, faces, score);
}

int vdFaceMask::maskFreeAlg() {
    return VD_OK;
}

int vdFaceMask::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
