#include "engine/rounding.hpp"

#include <veldan/face_quality.hpp>
#include <veldan/instance.hpp>
#include <veldan/result_codes.h>

#include <algorithm>
#include <cstring>

namespace {

// Enrolment: what a blurred face keeps of its quality.
constexpr double blurredShare = 0.8;
constexpr int sharp = 1;

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

double overlapOf(const VDFACEINFOEX& a, const VDFACEINFOEX& b) {
    return VdFaceAPI::vdIou(a.x, a.y, a.width, a.height, b.x, b.y, b.width, b.height);
}

} // namespace

double VdFaceAPI::vdIou(int x1, int y1, int w1, int h1, int x2, int y2, int w2, int h2) {
    const int iw = wrappingDifference(std::min(wrappingSum(x1, w1), wrappingSum(x2, w2)), std::max(x1, x2));
    const int ih = wrappingDifference(std::min(wrappingSum(y1, h1), wrappingSum(y2, h2)), std::max(y1, y2));
    if (iw < 1 || ih <= 0)
        return 0.0;
    const int inter = wrappingProduct(iw, ih);
    const int both = wrappingSum(wrappingProduct(w1, h1), wrappingProduct(w2, h2));
    return static_cast<double>(inter) / static_cast<double>(wrappingDifference(both, inter));
}

int VdFaceAPI::np_round(float f) {
    return veldan::roundHalves(f);
}

int VdFaceAPI::vdTrackFace(unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces) {
    if (faceNum == nullptr || faces == nullptr)
        return VD_ERR_NO_FACE;
    // What the caller claims to hand back fits into the instance, whatever the number says.
    previousFaceNum = std::clamp(*faceNum, 0, VELDAN_MAX_FACES);
    if (previousFaceNum == 0)
        faces[0] = defaultRecord();
    std::copy_n(faces, std::max(previousFaceNum, 1), previousFaces);

    if (vdDetectFace(image, width, height, faceNum, faces) != VD_OK)
        return VD_ERR_NO_FACE;
    // Largest first: what is left out are the smallest faces of a very large crowd.
    *faceNum = std::min(*faceNum, VELDAN_MAX_FACES);
    if (vdFaceQuality(image, width, height, *faceNum, faces) != VD_OK)
        return VD_ERR_ENGINE;
    if (previousFaceNum == 0)
        return VD_OK;

    currentFaceNum = *faceNum;
    for (int i = 0; i < currentFaceNum; ++i) {
        faces[i].trackId = i;
        faces[i].searchFlag = 0;
        currentFaces[i] = faces[i];
    }
    double overlap[VELDAN_MAX_FACES][VELDAN_MAX_FACES];
    for (int i = 0; i < currentFaceNum; ++i)
        for (int j = 0; j < previousFaceNum; ++j)
            overlap[i][j] = overlapOf(currentFaces[i], previousFaces[j]);

    int highest = 0;
    for (int j = 0; j < previousFaceNum; ++j)
        highest = std::max(highest, previousFaces[j].trackId);
    for (int i = 0; i < currentFaceNum; ++i) {
        // A face that overlaps nothing is deliberately compared for previous face 0 like one that does.
        int best = 0;
        double bestValue = 0.0;
        for (int j = 0; j < previousFaceNum; ++j)
            if (overlap[i][j] > bestValue) {
                bestValue = overlap[i][j];
                best = j;
            }
        // Each face with a better claim to that identity takes one number, on purpose: identities are unique, not
        // dense.
        bool contested = false;
        for (int k = 0; k < currentFaceNum; ++k)
            if (k != i && overlap[k][best] > overlap[i][best]) {
                contested = true;
                highest = wrappingSum(highest, 1);
            }
        VDFACEINFOEX& face = currentFaces[i];
        if (contested) {
            face.trackId = highest;
            face.searchFlag = 0;
        } else {
            const VDFACEINFOEX& before = previousFaces[best];
            face.trackId = before.trackId;
            face.searchFlag = before.searchFlag;
            face.searchId = before.searchId;
            face.searchScore = before.searchScore;
            face.strangerFlag = before.strangerFlag;
        }
    }
    std::copy_n(currentFaces, currentFaceNum, faces);
    return VD_OK;
}

int VdFaceAPI::vdFaceQuality4Register(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    if (faceNum != 1)
        return VD_ERR_NOT_ONE_FACE;
    if (vdFaceQuality(image, width, height, faceNum, faces) != VD_OK)
        return VD_ERR_ENGINE;
    FaceQuality classic;
    if (classic.Face_blurRGB(image, width, height, faces[0]) != sharp)
        faces[0].quality = static_cast<int>(faces[0].quality * blurredShare);
    return faces[0].quality;
}
