#include "engine/evaluation.hpp"

#include <veldan/face_landmark.hpp>
#include <veldan/face_mask.hpp>
#include <veldan/face_quality.hpp>
#include <veldan/instance.hpp>
#include <veldan/onet_landmark.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/result_codes.h>
#include <veldan/spoof_detection.hpp>

namespace {

// Enrolment: what a blurred face keeps of its quality.
constexpr double blurredShare = 0.8;
constexpr int sharp = 1;

// One engine over all faces of a frame; its failure, or an instance without it, becomes the operation's code.
template <class Engine>
int evaluate(Engine* engine, int (Engine::*operation)(unsigned char*, int, int, int, VDFACEINFOEX*), int failure,
             unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    if (engine == nullptr || (engine->*operation)(image, width, height, faceNum, faces) != 0)
        return failure;
    return VD_OK;
}

} // namespace

int VdFaceAPI::vdOnetLandmark(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return evaluate(onetLandmark, &OnetLandmark::mOnetLandmark, VD_ERR_LANDMARK, image, width, height, faceNum, faces);
}

int VdFaceAPI::vdFaceQuality(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return evaluate(faceQuality, &QUALITYEVALUATION::mqQualityEvaluation, VD_ERR_ENGINE, image, width, height, faceNum,
                    faces);
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

// Liveness deliberately passes on what its engine says.
int VdFaceAPI::vdVisLivenessDetect(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return livenessDetector != nullptr ? livenessDetector->vdSpoofRGBEvaluation(image, width, height, faceNum, faces)
                                       : veldan::evaluationRefused;
}

int VdFaceAPI::vdNirLivenessDetect(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return livenessDetector != nullptr ? livenessDetector->vdSpoofNIREvaluation(image, width, height, faceNum, faces)
                                       : veldan::evaluationRefused;
}

int VdFaceAPI::vdFaceMaskRGB(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return evaluate(faceMask, &vdFaceMask::maskEvaluation, VD_ERR_ENGINE, image, width, height, faceNum, faces);
}

int VdFaceAPI::vdFaceLandMarkRGB(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return evaluate(faceLandmark, &vdFaceLandmark::landmarkEvaluation, VD_ERR_ENGINE, image, width, height, faceNum,
                    faces);
}
