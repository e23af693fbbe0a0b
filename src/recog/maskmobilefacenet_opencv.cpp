#include "align/face_alignment.hpp"
#include "engine/data_size.hpp"
#include "engine/engine_network.hpp"
#include "engine/network_loader.hpp"
#include "recog/feature_extraction.hpp"

#include <veldan/mask_recognizer.hpp>
#include <veldan/model_store.hpp>
#include <veldan/result_codes.h>

namespace {

constexpr char outputLayer[] = "pre_fc1";

// Rows from here on are painted; 127 and not 128, as in training, where the network learned to expect it.
constexpr int firstPaintedRow = 56;
constexpr int paint = 127;

} // namespace

MASKMOBILEFACENET::MASKMOBILEFACENET() : network(std::make_unique<veldan::EngineNetwork>()) {}
MASKMOBILEFACENET::~MASKMOBILEFACENET() = default;

int MASKMOBILEFACENET::maskfInitAlg(char* /*path*/) {
    return veldan::loadCaffeNet(
        {length_VELDAN_V5_2_0_FaceMaskRecog_Model, data_VELDAN_V5_2_0_FaceMaskRecog_Model},
        {length_VELDAN_V5_2_0_FaceMaskRecog_Prototxt, data_VELDAN_V5_2_0_FaceMaskRecog_Prototxt},
        veldan::recognizerForm(outputLayer), network->net);
}

int MASKMOBILEFACENET::maskfFreeAlg() {
    return VD_OK;
}

int MASKMOBILEFACENET::maskfFeatureSize() {
    return veldan::featureLength;
}

int MASKMOBILEFACENET::maskfFeatureExtract(bool fivePoints, unsigned char* image, int width, int height, int faceNum,
                                           VDFACEINFOEX* faces, float* feature) {
    const auto align = [fivePoints](const cv::Mat& frame, const VDFACEINFOEX& face, cv::Mat& crop) {
        const int error = (fivePoints ? veldan::alignByFive : veldan::alignByTwo)(frame, face, crop);
        crop.rowRange(firstPaintedRow, crop.rows).setTo(cv::Scalar::all(paint));
        return error;
    };
    return veldan::extractFeatures(network->net, outputLayer, align, image, width, height, faceNum, faces, feature);
}

int MASKMOBILEFACENET::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
