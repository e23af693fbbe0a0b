// Detection, and tracking in three steps: the faces of the frame, their overlaps with those of the frame before, and
// the identities that follow from the overlaps.

#include "api/identity.hpp"

#include <veldan/face_landmark.hpp>
#include <veldan/instance.hpp>
#include <veldan/mtcnn.hpp>
#include <veldan/result_codes.h>

#include <algorithm>
#include <cstring>

namespace {

constexpr int minImageSide = 100;

// Rows are current faces, columns previous ones.
using Overlaps = double[VELDAN_MAX_FACES][VELDAN_MAX_FACES];

// Every word -1, so that no score can be taken for a real one, except identity and verdict.
VDFACEINFOEX defaultRecord() {
    VDFACEINFOEX record;
    std::memset(&record, 0xFF, sizeof(record));
    record.trackId = 0;
    record.searchFlag = 0;
    return record;
}

// Sums and products of boxes wrap as 32-bit integers do on every machine we run on; unsigned, where that is defined.
int wrappingSum(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

int wrappingProduct(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

int wrappingDifference(int a, int b) {
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

void keepPrevious(VdFaceAPI& api, int faceNum, VDFACEINFOEX* faces) {
    // What the caller claims to hand back fits into the instance, whatever the number says.
    api.previousFaceNum = std::clamp(faceNum, 0, VELDAN_MAX_FACES);
    if (api.previousFaceNum == 0)
        faces[0] = defaultRecord();
    std::copy_n(faces, std::max(api.previousFaceNum, 1), api.previousFaces);
}

int detectForTracking(VdFaceAPI& api, unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces) {
    if (api.vdDetectFace(image, width, height, faceNum, faces) != VD_OK)
        return VD_ERR_NO_FACE;
    // Largest first: what is left out are the smallest faces of a very large crowd.
    *faceNum = std::min(*faceNum, VELDAN_MAX_FACES);
    return api.vdFaceQuality(image, width, height, *faceNum, faces);
}

void keepCurrent(VdFaceAPI& api, int faceNum, VDFACEINFOEX* faces) {
    api.currentFaceNum = faceNum;
    for (int i = 0; i < faceNum; ++i) {
        faces[i].trackId = i;
        faces[i].searchFlag = 0;
        api.currentFaces[i] = faces[i];
    }
}

void overlapFaces(const VdFaceAPI& api, Overlaps& overlaps) {
    for (int i = 0; i < api.currentFaceNum; ++i)
        for (int j = 0; j < api.previousFaceNum; ++j) {
            const VDFACEINFOEX& a = api.currentFaces[i];
            const VDFACEINFOEX& b = api.previousFaces[j];
            overlaps[i][j] = VdFaceAPI::vdIou(a.x, a.y, a.width, a.height, b.x, b.y, b.width, b.height);
        }
}

// A face that overlaps nothing is deliberately compared for previous face 0 like one that does.
int bestPrevious(const double* overlaps, int count) {
    int best = 0;
    double bestValue = 0.0;
    for (int j = 0; j < count; ++j)
        if (overlaps[j] > bestValue) {
            bestValue = overlaps[j];
            best = j;
        }
    return best;
}

void identifyFaces(VdFaceAPI& api, const Overlaps& overlaps) {
    int highest = 0;
    for (int j = 0; j < api.previousFaceNum; ++j)
        highest = std::max(highest, api.previousFaces[j].trackId);
    for (int i = 0; i < api.currentFaceNum; ++i) {
        const int best = bestPrevious(overlaps[i], api.previousFaceNum);
        int rivals = 0;
        for (int k = 0; k < api.currentFaceNum; ++k)
            if (k != i && overlaps[k][best] > overlaps[i][best])
                ++rivals;
        VDFACEINFOEX& face = api.currentFaces[i];
        if (rivals == 0) {
            veldan::inheritIdentity(api.previousFaces[best], face);
            continue;
        }
        // Each face with a better claim to that identity takes one number, on purpose: identities are unique, not
        // dense.
        highest = wrappingSum(highest, rivals);
        face.trackId = highest;
        face.searchFlag = 0;
    }
}

} // namespace

int VdFaceAPI::vdDetectFace(unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces) {
    if (faceNum != nullptr)
        *faceNum = 0;
    if (width < minImageSide || height < minImageSide)
        return VD_ERR_IMAGE_TOO_SMALL;
    if (image == nullptr || faceNum == nullptr || faces == nullptr)
        return VD_ERR_NO_FACE;
    // An instance that was freed, or never loaded, finds nothing.
    if (faceDetector == nullptr)
        return VD_ERR_NO_FACE;
    if (faceDetector->mtcnnFaceDetect(image, width, height, faceNum, faces) != 0)
        return VD_ERR_NO_FACE;
    if (faceLandmark == nullptr || faceLandmark->landmarkEvaluation(image, width, height, *faceNum, faces) != 0)
        return VD_ERR_LANDMARK;
    return VD_OK;
}

double VdFaceAPI::vdIou(int x1, int y1, int w1, int h1, int x2, int y2, int w2, int h2) {
    const int iw = wrappingDifference(std::min(wrappingSum(x1, w1), wrappingSum(x2, w2)), std::max(x1, x2));
    const int ih = wrappingDifference(std::min(wrappingSum(y1, h1), wrappingSum(y2, h2)), std::max(y1, y2));
    if (iw < 1 || ih <= 0)
        return 0.0;
    const int inter = wrappingProduct(iw, ih);
    const int both = wrappingSum(wrappingProduct(w1, h1), wrappingProduct(w2, h2));
    return static_cast<double>(inter) / static_cast<double>(wrappingDifference(both, inter));
}

int VdFaceAPI::vdTrackFace(unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces) {
    if (faceNum == nullptr || faces == nullptr)
        return VD_ERR_NO_FACE;
    keepPrevious(*this, *faceNum, faces);
    const int error = detectForTracking(*this, image, width, height, faceNum, faces);
    if (error != VD_OK || previousFaceNum == 0)
        return error;
    keepCurrent(*this, *faceNum, faces);
    Overlaps overlaps;
    overlapFaces(*this, overlaps);
    identifyFaces(*this, overlaps);
    std::copy_n(currentFaces, currentFaceNum, faces);
    return VD_OK;
}
