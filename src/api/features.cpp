#include "recog/template_layout.hpp"

#include <veldan/feature_template.hpp>
#include <veldan/instance.hpp>
#include <veldan/mask_recognizer.hpp>
#include <veldan/recognizer.hpp>
#include <veldan/result_codes.h>

#include <cstddef>
#include <vector>

namespace {

using veldan::bareKind;
using veldan::maskedKind;

constexpr int floatBytes = 4;

// What extraction itself says is deliberately not looked at: a face that could not be extracted still has its template,
// of what the buffer holds, so that the templates of a call always stand where the caller expects them. The buffer
// begins as zeros, and a template of zeros is similar to nothing.
template <class Extract>
int extractTemplates(const Extract& extract, int kind, int length, int stride, int faceNum, VDFACEINFOEX* faces,
                     unsigned char* feature) {
    std::vector<float> values(static_cast<std::size_t>(length));
    for (int i = 0; i < faceNum; ++i) {
        extract(faces + i, values.data());
        TzEncode(kind, reinterpret_cast<const unsigned char*>(values.data()), length * floatBytes,
                 feature + static_cast<std::ptrdiff_t>(i) * stride);
    }
    return VD_OK;
}

int extractMasked(VdFaceAPI& api, bool fivePoints, unsigned char* image, int width, int height, int faceNum,
                  VDFACEINFOEX* faces, unsigned char* feature) {
    if (api.faceRecognizer == nullptr || api.maskFaceRecognizer == nullptr || faces == nullptr || feature == nullptr)
        return VD_OK;
    const auto extract = [&](VDFACEINFOEX* face, float* values) {
        api.maskFaceRecognizer->maskfFeatureExtract(fivePoints, image, width, height, 1, face, values);
    };
    return extractTemplates(extract, maskedKind, api.maskFaceRecognizer->maskfFeatureSize(), api.vdGetFeatureSize(),
                            faceNum, faces, feature);
}

} // namespace

int VdFaceAPI::vdGetFeatureSize() {
    return faceRecognizer != nullptr ? faceRecognizer->mfFeatureSize() * floatBytes + veldan::templateHeadLength : 0;
}

int VdFaceAPI::vdExtractFeature(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                                unsigned char* feature) {
    if (faceRecognizer == nullptr || faces == nullptr || feature == nullptr)
        return VD_OK;
    const auto extract = [&](VDFACEINFOEX* face, float* values) {
        faceRecognizer->mfFeatureExtract(image, width, height, 1, face, values);
    };
    return extractTemplates(extract, bareKind, faceRecognizer->mfFeatureSize(), vdGetFeatureSize(), faceNum, faces,
                            feature);
}

int VdFaceAPI::vdMaskExtractFeature(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                                    unsigned char* feature) {
    return extractMasked(*this, false, image, width, height, faceNum, faces, feature);
}

int VdFaceAPI::vdMaskExtractFeature4Reg(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                                        unsigned char* feature) {
    return extractMasked(*this, true, image, width, height, faceNum, faces, feature);
}

int VdFaceAPI::MatchFeature(int kind, unsigned char* featureA, unsigned char* featureB, float* score) {
    if (faceRecognizer == nullptr || score == nullptr)
        return VD_ERR_TEMPLATE;
    const int size = vdGetFeatureSize();
    float a[veldan::featureLength];
    float b[veldan::featureLength];
    if (TzDecode(kind, featureA, size, reinterpret_cast<unsigned char*>(a)) != 0 ||
        TzDecode(kind, featureB, size, reinterpret_cast<unsigned char*>(b)) != 0)
        return VD_ERR_TEMPLATE;
    *score = static_cast<float>(faceRecognizer->mfFeatureMatch(a, b));
    return VD_OK;
}

int VdFaceAPI::vdMatchFeature(unsigned char* featureA, unsigned char* featureB, float* score) {
    return MatchFeature(bareKind, featureA, featureB, score);
}

int VdFaceAPI::vdMaskMatchFeature(unsigned char* featureA, unsigned char* featureB, float* score) {
    return MatchFeature(maskedKind, featureA, featureB, score);
}
