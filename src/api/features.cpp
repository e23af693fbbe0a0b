#include "api/search_history.hpp"
#include "engine/rounding.hpp"
#include "recog/gallery_search.hpp"
#include "recog/similarity.hpp"

#include <veldan/feature_template.hpp>
#include <veldan/instance.hpp>
#include <veldan/mask_recognizer.hpp>
#include <veldan/recognizer.hpp>
#include <veldan/result_codes.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace {

using veldan::bareKind;
using veldan::maskedKind;

constexpr int floatBytes = 4;

// Accepted at once, whatever threshold the caller asked for.
constexpr double surely = 0.8;
constexpr int attemptsToDecide = 3;
constexpr int attemptsToGiveUp = 5;

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

int VdFaceAPI::SearchFeature(int kind, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                             int threshold, unsigned char* feature, VDFACEINFOEX* face) {
    // Callers name a size that is at least the number of persons; whoever does not must not write past the history.
    if (std::max(galleryNum, personNum) > capacity || searchHistory == nullptr)
        return VD_SEARCH_CAPACITY;
    if (face == nullptr || feature == nullptr || (gallery == nullptr && personNum > 0))
        return VD_ERR_TEMPLATE;
    if (face->searchFlag == 1)
        return VD_OK;

    std::int32_t* const history = searchHistory[veldan::historyRowOf(face->trackId)];
    const int attempts = ++history[0];
    const auto scoresOf = [&](int attempt) { return veldan::historyBlock(history, capacity, attempt); };
    const veldan::GalleryMatch match =
        veldan::searchGallery(kind, gallery, templateNums, personNum, feature, scoresOf(attempts));

    // A decision for one face deliberately starts the others anew as well.
    const auto decide = [&](int code) {
        for (int i = 0; i < veldan::historyRows; ++i)
            searchHistory[i][0] = 0;
        return code;
    };
    const auto accept = [&](int person, int score) {
        face->searchFlag = 1;
        face->searchId = person;
        face->searchScore = score;
        return decide(VD_OK);
    };
    if (static_cast<double>(match.score) >= surely)
        return accept(match.person, veldan::percent(match.score));
    if (attempts < attemptsToDecide)
        return VD_SEARCH_UNDECIDED;

    int bestSum = 0;
    int bestPerson = 0;
    for (int person = 0; person < personNum; ++person) {
        const int sum = scoresOf(1)[person] + scoresOf(2)[person] + scoresOf(3)[person];
        if (sum > bestSum) {
            bestSum = sum;
            bestPerson = person;
        }
    }
    if (std::int64_t{3} * threshold <= bestSum)
        return accept(bestPerson, bestSum / 3);
    if (attempts < attemptsToGiveUp)
        return VD_SEARCH_UNDECIDED;
    face->searchScore = bestSum / 3;
    return decide(VD_SEARCH_UNKNOWN);
}

int VdFaceAPI::vdSearchFeature(unsigned char* gallery, int galleryNum, int* templateNums, int personNum, int threshold,
                               unsigned char* feature, VDFACEINFOEX* face) {
    return SearchFeature(bareKind, gallery, galleryNum, templateNums, personNum, threshold, feature, face);
}

int VdFaceAPI::vdMaskSearchFeature(unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                                   int threshold, unsigned char* feature, VDFACEINFOEX* face) {
    return SearchFeature(maskedKind, gallery, galleryNum, templateNums, personNum, threshold, feature, face);
}
