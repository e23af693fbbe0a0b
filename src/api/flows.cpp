// The combined flows: quality and mask gating, extraction and search over the faces of a frame in one call. The
// exported functions at the end only find the instance behind the handle.

#include "api/flows.hpp"

#include "api/instance_handle.hpp"
#include "engine/rounding.hpp"
#include "recog/gallery_search.hpp"

#include <veldan/face_api.h>
#include <veldan/face_flows.hpp>

#include <cstdint>
#include <vector>

namespace {

using veldan::bareKind;
using veldan::Frame;
using veldan::instanceOf;
using veldan::maskedKind;
using veldan::Persons;
using veldan::SearchTarget;

// From this maskScore on a face counts as masked.
constexpr int maskedFrom = 41;
constexpr int verdictCalls = 1000000;

constexpr int noPerson = -1;
constexpr int matchingFailed = -100;

using Template = std::vector<unsigned char>;

int kindOf(const VDFACEINFOEX& face) {
    return face.maskScore >= maskedFrom ? maskedKind : bareKind;
}

// A mask costs quality, so half of it is enough for a masked face.
bool isGoodEnough(const VDFACEINFOEX& face, int qualityThreshold) {
    return face.quality >= (kindOf(face) == maskedKind ? qualityThreshold / 2 : qualityThreshold);
}

Template templateBuffer(VdFaceAPI& api) {
    return Template(static_cast<std::size_t>(api.vdGetFeatureSize()));
}

int extract(VdFaceAPI& api, int kind, const Frame& frame, VDFACEINFOEX& face, Template& feature) {
    const auto operation = kind == bareKind ? &VdFaceAPI::vdExtractFeature : &VdFaceAPI::vdMaskExtractFeature;
    return (api.*operation)(frame.image, frame.width, frame.height, 1, &face, feature.data());
}

void setVerdict(VDFACEINFOEX& face, int flag, int person, int score) {
    face.searchFlag = flag;
    face.searchId = person;
    face.searchScore = score;
}

// ---- Tracked: with history and verdict counters.

// A positive flag is the number of calls since the verdict plus one; it wraps before it could become negative.
void age(std::int32_t& flag) {
    if (flag > 0) {
        ++flag;
        if (flag > verdictCalls)
            flag = 1;
    }
}

void ageVerdicts(VDFACEINFOEX& face) {
    age(face.strangerFlag);
    age(face.searchFlag);
}

void searchTracked(VdFaceAPI& api, int kind, const Persons& persons, const SearchTarget& target, const Frame& frame,
                   VDFACEINFOEX& face, Template& feature) {
    if (extract(api, kind, frame, face, feature) != VD_OK)
        return;
    const int code = api.SearchFeature(kind, target.gallery, persons.galleryNum, persons.templateNums,
                                       persons.personNum, target.threshold, feature.data(), &face);
    if (code == VD_SEARCH_UNKNOWN && face.strangerFlag < 1)
        face.strangerFlag = 1;
}

// ---- One shot: without either.

// In a gallery of one template a person.
int searchOnce(int kind, const unsigned char* gallery, int galleryNum, float threshold, const unsigned char* feature,
               VDFACEINFOEX* face) {
    if (face == nullptr || feature == nullptr || (gallery == nullptr && galleryNum > 0))
        return VD_ERR_TEMPLATE;
    const veldan::GalleryMatch match = veldan::searchGallery(kind, gallery, nullptr, galleryNum, feature, nullptr);
    const bool found = match.score >= threshold;
    setVerdict(*face, found ? 1 : 0, found ? match.person : noPerson, veldan::percent(match.score));
    return found ? VD_OK : VD_SEARCH_UNDECIDED;
}

float shareOf(int percent) {
    return static_cast<float>(percent / 100.0);
}

void extractAndSearchOnce(VdFaceAPI& api, int kind, const SearchTarget& target, int galleryNum, const Frame& frame,
                          VDFACEINFOEX& face, Template& feature) {
    if (extract(api, kind, frame, face, feature) == VD_OK)
        searchOnce(kind, target.gallery, galleryNum, shareOf(target.threshold), feature.data(), &face);
}

// The first face of a frame, mask and quality judged.
int recognise(VdFaceAPI& api, const Persons& persons, const SearchTarget& bare, const SearchTarget& masked,
              const Frame& frame, VDFACEINFOEX& face) {
    const int kind = kindOf(face);
    const SearchTarget& target = kind == bareKind ? bare : masked;
    Template feature = templateBuffer(api);
    if (feature.size() != veldan::templateSize || extract(api, kind, frame, face, feature) != VD_OK)
        return VD_ERR_EXTRACT;

    veldan::GalleryMatch match;
    match.refused = target.gallery == nullptr && persons.personNum > 0;
    if (!match.refused)
        match = veldan::searchGallery(kind, target.gallery, persons.templateNums, persons.personNum, feature.data(),
                                      nullptr);
    // One template that cannot be compared ends the search, unlike in the other flows.
    if (match.refused) {
        setVerdict(face, -1, matchingFailed, 0);
        return VD_ERR_TEMPLATE;
    }
    const int score = veldan::percent(match.score);
    const bool found = score >= target.threshold;
    setVerdict(face, found ? 1 : -1, found ? match.person : noPerson, score);
    return VD_OK;
}

} // namespace

void veldan::searchAllFaces(VdFaceAPI& api, const Persons& persons, const SearchTarget& bare,
                            const SearchTarget& masked, int qualityThreshold, const Frame& frame, int faceNum,
                            VDFACEINFOEX* faces) {
    if (faces == nullptr)
        return;
    Template feature = templateBuffer(api);
    api.vdFaceMaskRGB(frame.image, frame.width, frame.height, faceNum, faces);
    for (int i = 0; i < faceNum; ++i) {
        VDFACEINFOEX& face = faces[i];
        ageVerdicts(face);
        if (!isGoodEnough(face, qualityThreshold) || face.searchFlag >= 1)
            continue;
        const int kind = kindOf(face);
        searchTracked(api, kind, persons, kind == bareKind ? bare : masked, frame, face, feature);
    }
}

int SearchFaceThread(int kind, void* handle, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                     int threshold, int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                     VDFACEINFOEX* faces) {
    if (handle == nullptr)
        return VD_ERR_HANDLE;
    if (faces == nullptr)
        return VD_OK;
    VdFaceAPI& api = *instanceOf(handle);
    Template feature = templateBuffer(api);
    for (int i = 0; i < faceNum; ++i) {
        VDFACEINFOEX& face = faces[i];
        ageVerdicts(face);
        // Quality is what tracking wrote, whatever the face wears.
        if (face.quality >= qualityThreshold && face.searchFlag < 1)
            searchTracked(api, kind, {galleryNum, templateNums, personNum}, {gallery, threshold},
                          {image, width, height}, face, feature);
    }
    return VD_OK;
}

int zzSearchFaceThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                       int threshold, int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                       VDFACEINFOEX* faces) {
    return SearchFaceThread(bareKind, handle, gallery, galleryNum, templateNums, personNum, threshold, qualityThreshold,
                            image, width, height, faceNum, faces);
}

int zzMaskSearchFaceThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                           int threshold, int qualityThreshold, unsigned char* image, int width, int height,
                           int faceNum, VDFACEINFOEX* faces) {
    return SearchFaceThread(maskedKind, handle, gallery, galleryNum, templateNums, personNum, threshold,
                            qualityThreshold, image, width, height, faceNum, faces);
}

int zzSearchAllFaceThread(void* handle, unsigned char* gallery, unsigned char* maskGallery, int galleryNum,
                          int* templateNums, int personNum, int threshold, int maskThreshold, int qualityThreshold,
                          unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    if (handle == nullptr)
        return VD_ERR_HANDLE;
    veldan::searchAllFaces(*instanceOf(handle), {galleryNum, templateNums, personNum}, {gallery, threshold},
                           {maskGallery, maskThreshold}, qualityThreshold, {image, width, height}, faceNum, faces);
    return VD_OK;
}

int zzMaxFaceRecogThread(void* handle, unsigned char* gallery, unsigned char* maskGallery, int galleryNum,
                         int* templateNums, int personNum, int threshold, int maskThreshold, int qualityThreshold,
                         unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    if (handle == nullptr)
        return VD_ERR_HANDLE;
    VdFaceAPI& api = *instanceOf(handle);
    api.vdFaceMaskRGB(image, width, height, faceNum, faces);
    api.vdFaceQuality(image, width, height, faceNum, faces);
    if (faceNum < 1 || faces == nullptr || !isGoodEnough(faces[0], qualityThreshold))
        return VD_ERR_ENGINE;
    return recognise(api, {galleryNum, templateNums, personNum}, {gallery, threshold}, {maskGallery, maskThreshold},
                     {image, width, height}, faces[0]);
}

int DetectSearchFeatureThread(void* handle, int kind, unsigned char* gallery, int galleryNum, float threshold,
                              unsigned char* feature, VDFACEINFOEX* face) {
    return handle != nullptr ? searchOnce(kind, gallery, galleryNum, threshold, feature, face) : VD_ERR_HANDLE;
}

int zzDetectSearchFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                unsigned char* feature, VDFACEINFOEX* face) {
    return DetectSearchFeatureThread(handle, bareKind, gallery, galleryNum, shareOf(threshold), feature, face);
}

int zzMaskDetectSearchFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                    unsigned char* feature, VDFACEINFOEX* face) {
    return DetectSearchFeatureThread(handle, maskedKind, gallery, galleryNum, shareOf(threshold), feature, face);
}

int DetectSearchFaceThread(int kind, void* handle, unsigned char* gallery, int galleryNum, int threshold,
                           int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                           VDFACEINFOEX* faces) {
    // Without an instance every step would fail, and none of these failures is reported.
    if (handle == nullptr || faces == nullptr)
        return VD_OK;
    VdFaceAPI& api = *instanceOf(handle);
    api.vdFaceQuality(image, width, height, faceNum, faces);
    Template feature = templateBuffer(api);
    for (int i = 0; i < faceNum; ++i)
        if (faces[i].quality >= qualityThreshold)
            extractAndSearchOnce(api, kind, {gallery, threshold}, galleryNum, {image, width, height}, faces[i],
                                 feature);
    return VD_OK;
}

int zzDetectSearchFaceThread(void* handle, unsigned char* gallery, int galleryNum, int threshold, int qualityThreshold,
                             unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return DetectSearchFaceThread(bareKind, handle, gallery, galleryNum, threshold, qualityThreshold, image, width,
                                  height, faceNum, faces);
}

int zzDetectSearchAllFaceThread(void* handle, unsigned char* gallery, unsigned char* /*maskGallery*/, int galleryNum,
                                int threshold, int maskThreshold, int qualityThreshold, unsigned char* image, int width,
                                int height, int faceNum, VDFACEINFOEX* faces) {
    if (handle == nullptr || faces == nullptr)
        return VD_OK;
    VdFaceAPI& api = *instanceOf(handle);
    api.vdFaceQuality(image, width, height, faceNum, faces);
    api.vdFaceMaskRGB(image, width, height, faceNum, faces);
    Template feature = templateBuffer(api);
    for (int i = 0; i < faceNum; ++i) {
        if (!isGoodEnough(faces[i], qualityThreshold))
            continue;
        const int kind = kindOf(faces[i]);
        // Masked faces are deliberately searched in the first gallery too.
        const SearchTarget target{gallery, kind == bareKind ? threshold : maskThreshold};
        extractAndSearchOnce(api, kind, target, galleryNum, {image, width, height}, faces[i], feature);
    }
    return VD_OK;
}
