// The combined flows: quality and mask gating, extraction and search over the faces of a frame in one call.

#include "api/instance_handle.hpp"
#include "engine/rounding.hpp"
#include "recog/gallery_search.hpp"

#include <veldan/face_api.h>
#include <veldan/face_flows.hpp>

#include <cstdint>
#include <vector>

namespace {

using veldan::bareKind;
using veldan::maskedKind;

// From this maskScore on a face counts as masked.
constexpr int maskedFrom = 41;
constexpr int verdictCalls = 1000000;

constexpr int noPerson = -1;
constexpr int matchingFailed = -100;

struct Frame {
    unsigned char* image;
    int width;
    int height;
};

struct Gallery {
    unsigned char* templates;
    int galleryNum;
    int* templateNums;
    int personNum;
};

using Template = std::vector<unsigned char>;

bool isMasked(const VDFACEINFOEX& face) {
    return face.maskScore >= maskedFrom;
}

// A mask costs quality, so half of it is enough for a masked face.
bool isGoodEnough(const VDFACEINFOEX& face, int qualityThreshold) {
    return face.quality >= (isMasked(face) ? qualityThreshold / 2 : qualityThreshold);
}

Template templateBuffer(void* handle) {
    return Template(static_cast<std::size_t>(zzGetFeatureSizeThread(handle)));
}

int extract(int kind, void* handle, const Frame& frame, VDFACEINFOEX& face, Template& feature) {
    const auto operation = kind == bareKind ? zzExtractFeatureThread : zzMaskExtractFeatureThread;
    return operation(handle, frame.image, frame.width, frame.height, 1, &face, feature.data());
}

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

void searchTracked(int kind, void* handle, const Gallery& gallery, int threshold, const Frame& frame,
                   VDFACEINFOEX& face, Template& feature) {
    if (extract(kind, handle, frame, face, feature) != VD_OK)
        return;
    const auto search = kind == bareKind ? zzSearchNFeatureThread : zzMaskSearchNFeatureThread;
    const int code = search(handle, gallery.templates, gallery.galleryNum, gallery.templateNums, gallery.personNum,
                            threshold, feature.data(), &face);
    if (code == VD_SEARCH_UNKNOWN && face.strangerFlag < 1)
        face.strangerFlag = 1;
}

} // namespace

int SearchFaceThread(int kind, void* handle, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                     int threshold, int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                     VDFACEINFOEX* faces) {
    if (handle == nullptr)
        return VD_ERR_HANDLE;
    if (faces == nullptr)
        return VD_OK;
    Template feature = templateBuffer(handle);
    const Frame frame{image, width, height};
    const Gallery searched{gallery, galleryNum, templateNums, personNum};
    for (int i = 0; i < faceNum; ++i) {
        ageVerdicts(faces[i]);
        // Quality is what tracking wrote, whatever the face wears.
        if (faces[i].quality >= qualityThreshold && faces[i].searchFlag < 1)
            searchTracked(kind, handle, searched, threshold, frame, faces[i], feature);
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
    if (faces == nullptr)
        return VD_OK;
    Template feature = templateBuffer(handle);
    zzFaceMaskThread(handle, image, width, height, faceNum, faces);
    const Frame frame{image, width, height};
    for (int i = 0; i < faceNum; ++i) {
        ageVerdicts(faces[i]);
        if (!isGoodEnough(faces[i], qualityThreshold) || faces[i].searchFlag >= 1)
            continue;
        const bool masked = isMasked(faces[i]);
        const Gallery searched{masked ? maskGallery : gallery, galleryNum, templateNums, personNum};
        searchTracked(masked ? maskedKind : bareKind, handle, searched, masked ? maskThreshold : threshold, frame,
                      faces[i], feature);
    }
    return VD_OK;
}

int zzMaxFaceRecogThread(void* handle, unsigned char* gallery, unsigned char* maskGallery, int /*galleryNum*/,
                         int* templateNums, int personNum, int threshold, int maskThreshold, int qualityThreshold,
                         unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    if (handle == nullptr)
        return VD_ERR_HANDLE;
    zzFaceMaskThread(handle, image, width, height, faceNum, faces);
    zzFaceQualityThread(handle, image, width, height, faceNum, faces);
    if (faceNum < 1 || faces == nullptr || !isGoodEnough(faces[0], qualityThreshold))
        return VD_ERR_ENGINE;
    VDFACEINFOEX& face = faces[0];
    const bool masked = isMasked(face);
    const int kind = masked ? maskedKind : bareKind;
    Template feature = templateBuffer(handle);
    if (feature.size() != veldan::templateSize || extract(kind, handle, {image, width, height}, face, feature) != VD_OK)
        return VD_ERR_EXTRACT;

    const auto verdict = [&face](int flag, int person, int score) {
        face.searchFlag = flag;
        face.searchId = person;
        face.searchScore = score;
    };
    const unsigned char* const searched = masked ? maskGallery : gallery;
    veldan::GalleryMatch match;
    match.refused = searched == nullptr && personNum > 0;
    if (!match.refused)
        match = veldan::searchGallery(kind, searched, templateNums, personNum, feature.data(), nullptr);
    // One template that cannot be compared ends the search, unlike in the other flows.
    if (match.refused) {
        verdict(-1, matchingFailed, 0);
        return VD_ERR_TEMPLATE;
    }
    const int score = veldan::percent(match.score);
    if (score >= (masked ? maskThreshold : threshold))
        verdict(1, match.person, score);
    else
        verdict(-1, noPerson, score);
    return VD_OK;
}

int DetectSearchFeatureThread(void* handle, int kind, unsigned char* gallery, int galleryNum, float threshold,
                              unsigned char* feature, VDFACEINFOEX* face) {
    if (handle == nullptr)
        return VD_ERR_HANDLE;
    if (face == nullptr || feature == nullptr || (gallery == nullptr && galleryNum > 0))
        return VD_ERR_TEMPLATE;
    const veldan::GalleryMatch match = veldan::searchGallery(kind, gallery, nullptr, galleryNum, feature, nullptr);
    const bool found = match.score >= threshold;
    face->searchFlag = found ? 1 : 0;
    face->searchId = found ? match.person : noPerson;
    face->searchScore = veldan::percent(match.score);
    return found ? VD_OK : VD_SEARCH_UNDECIDED;
}

int zzDetectSearchFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                unsigned char* feature, VDFACEINFOEX* face) {
    return DetectSearchFeatureThread(handle, bareKind, gallery, galleryNum, static_cast<float>(threshold / 100.0),
                                     feature, face);
}

int zzMaskDetectSearchFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                    unsigned char* feature, VDFACEINFOEX* face) {
    return DetectSearchFeatureThread(handle, maskedKind, gallery, galleryNum, static_cast<float>(threshold / 100.0),
                                     feature, face);
}

int DetectSearchFaceThread(int kind, void* handle, unsigned char* gallery, int galleryNum, int threshold,
                           int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                           VDFACEINFOEX* faces) {
    // Without an instance every step would fail, and none of these failures is reported.
    if (handle == nullptr || faces == nullptr)
        return VD_OK;
    zzFaceQualityThread(handle, image, width, height, faceNum, faces);
    Template feature = templateBuffer(handle);
    const auto search = kind == bareKind ? zzDetectSearchFeatureThread : zzMaskDetectSearchFeatureThread;
    for (int i = 0; i < faceNum; ++i)
        if (faces[i].quality >= qualityThreshold &&
            extract(kind, handle, {image, width, height}, faces[i], feature) == VD_OK)
            search(handle, gallery, galleryNum, threshold, feature.data(), &faces[i]);
    return VD_OK;
}

int zzDetectSearchFaceThread(void* handle, unsigned char* gallery, int galleryNum, int threshold, int qualityThreshold,
                             unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return DetectSearchFaceThread(bareKind, handle, gallery, galleryNum, threshold, qualityThreshold, image, width,
                                  height, faceNum, faces);
}

// Masked faces are deliberately searched in the first gallery too.
int zzDetectSearchAllFaceThread(void* handle, unsigned char* gallery, unsigned char* /*maskGallery*/, int galleryNum,
                                int threshold, int maskThreshold, int qualityThreshold, unsigned char* image, int width,
                                int height, int faceNum, VDFACEINFOEX* faces) {
    if (handle == nullptr || faces == nullptr)
        return VD_OK;
    zzFaceQualityThread(handle, image, width, height, faceNum, faces);
    zzFaceMaskThread(handle, image, width, height, faceNum, faces);
    Template feature = templateBuffer(handle);
    for (int i = 0; i < faceNum; ++i) {
        if (!isGoodEnough(faces[i], qualityThreshold))
            continue;
        const bool masked = isMasked(faces[i]);
        if (extract(masked ? maskedKind : bareKind, handle, {image, width, height}, faces[i], feature) != VD_OK)
            continue;
        if (masked)
            zzMaskDetectSearchFeatureThread(handle, gallery, galleryNum, maskThreshold, feature.data(), &faces[i]);
        else
            zzDetectSearchFeatureThread(handle, gallery, galleryNum, threshold, feature.data(), &faces[i]);
    }
    return VD_OK;
}
