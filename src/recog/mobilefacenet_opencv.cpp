#include "align/face_alignment.hpp"
#include "engine/data_size.hpp"
#include "engine/engine_network.hpp"
#include "engine/network_loader.hpp"
#include "recog/feature_extraction.hpp"
#include "recog/similarity.hpp"

#include <veldan/model_store.hpp>
#include <veldan/recognizer.hpp>
#include <veldan/result_codes.h>

namespace {

constexpr char outputLayer[] = "fc1_scale";

} // namespace

MOBILEFACENET::MOBILEFACENET() : network(std::make_unique<veldan::EngineNetwork>()) {}
MOBILEFACENET::~MOBILEFACENET() = default;

int MOBILEFACENET::mfInitAlg(char* /*path*/) {
    return veldan::loadCaffeNet({length_VELDAN_V5_0_0_FaceRecog_Model, data_VELDAN_V5_0_0_FaceRecog_Model},
                                {length_VELDAN_V5_0_0_FaceRecog_Prototxt, data_VELDAN_V5_0_0_FaceRecog_Prototxt},
                                veldan::recognizerForm(outputLayer), network->net);
}

int MOBILEFACENET::mfFreeAlg() {
    return VD_OK;
}

int MOBILEFACENET::mfFeatureSize() {
    return veldan::featureLength;
}

int MOBILEFACENET::mfFeatureExtract(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                                    float* feature) {
    return veldan::extractFeatures(network->net, outputLayer, veldan::alignByFive, image, width, height, faceNum, faces,
                                   feature);
}

double MOBILEFACENET::mfFeatureMatch(const float* a, const float* b) {
    return a != nullptr && b != nullptr ? veldan::similarity(a, b) : 0.0;
}

int MOBILEFACENET::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
