// The tracked search: evidence of several searches of the same track makes a decision.

#include "api/search_history.hpp"
#include "engine/rounding.hpp"
#include "recog/gallery_search.hpp"
#include "recog/template_layout.hpp"

#include <veldan/instance.hpp>
#include <veldan/result_codes.h>

#include <algorithm>
#include <cstdint>

namespace {

// Accepted at once, whatever threshold the caller asked for.
constexpr double surely = 0.8;
constexpr int attemptsToDecide = 3;
constexpr int attemptsToGiveUp = 5;

} // namespace

int VdFaceAPI::SearchFeature(int kind, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                             int threshold, unsigned char* feature, VDFACEINFOEX* face) {
    // Callers name a size that is at least the number of persons; whoever does not must not write past the history.
    if (std::max(galleryNum, personNum) > capacity || searchHistory == nullptr)
        return VD_SEARCH_CAPACITY;
    if (face == nullptr || feature == nullptr || (gallery == nullptr && personNum > 0))
        return VD_ERR_TEMPLATE;
    if (face->searchFlag == 1)
        return VD_OK;

    veldan::HistoryRow row(searchHistory[veldan::historyRowOf(face->trackId)], capacity);
    const int attempts = row.countSearch();
    const veldan::GalleryMatch match =
        veldan::searchGallery(kind, gallery, templateNums, personNum, feature, row.scores(attempts));

    // A decision for one face deliberately starts the others anew as well.
    const auto decide = [this](int code) {
        veldan::forgetAllSearches(searchHistory);
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
        const int sum = row.sum(person);
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
    return SearchFeature(veldan::bareKind, gallery, galleryNum, templateNums, personNum, threshold, feature, face);
}

int VdFaceAPI::vdMaskSearchFeature(unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                                   int threshold, unsigned char* feature, VDFACEINFOEX* face) {
    return SearchFeature(veldan::maskedKind, gallery, galleryNum, templateNums, personNum, threshold, feature, face);
}
