#include "engine/data_size.hpp"
#include "engine/evaluation.hpp"
#include "engine/network_loader.hpp"
#include "recog/feature_extraction.hpp"

#include <veldan/align.h>
#include <veldan/mask_recognizer.hpp>
#include <veldan/model_store.hpp>
#include <veldan/result_codes.h>

namespace {

constexpr char outputLayer[] = "pre_fc1";

// Rows from here on are painted; 127 and not 128, as in training, where the network learned to expect it.
constexpr int firstPaintedRow = 56;
constexpr int paint = 127;

} // namespace

MASKMOBILEFACENET::MASKMOBILEFACENET() = default;
MASKMOBILEFACENET::~MASKMOBILEFACENET() = default;

int MASKMOBILEFACENET::maskfInitAlg(char* /*path*/) {
    return veldan::loadCaffeNet(
        {length_VELDAN_V5_2_0_FaceMaskRecog_Model, data_VELDAN_V5_2_0_FaceMaskRecog_Model},
        {length_VELDAN_V5_2_0_FaceMaskRecog_Prototxt, data_VELDAN_V5_2_0_FaceMaskRecog_Prototxt},
        veldan::recognizerForm(outputLayer), net);
}

int MASKMOBILEFACENET::maskfFreeAlg() {
    return VD_OK;
}

int MASKMOBILEFACENET::maskfFeatureSize() {
    return veldan::featureLength;
}

int MASKMOBILEFACENET::maskfFeatureExtract(bool fivePoints, unsigned char* image, int width, int height, int faceNum,
                                           VDFACEINFOEX* faces, float* feature) {
    if (faceNum <= 0)
        return VD_OK;
    if (!veldan::canEvaluate(net, image, width, height, faces) || feature == nullptr)
        return veldan::evaluationRefused;
    const auto align = [&](const VDFACEINFOEX& face, cv::Mat& crop) {
        const int error = fivePoints ? alignface_pinv(image, width, height, crop.data, crop.cols, crop.rows,
                                                      veldan::AlignmentPoints<5>(face, 0).values)
                                     : alignface_mask(image, width, height, crop.data, crop.cols, crop.rows,
                                                      veldan::AlignmentPoints<2>(face, 5).values);
        crop.rowRange(firstPaintedRow, crop.rows).setTo(cv::Scalar::all(paint));
        return error;
    };
    return veldan::extractFeatures(net, outputLayer, align, faceNum, faces, feature);
}

int MASKMOBILEFACENET::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
