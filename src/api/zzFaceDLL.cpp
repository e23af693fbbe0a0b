#include "api/instance_handle.hpp"

#include <veldan/face_api.h>
#include <veldan/instance.hpp>

#include <cstdlib>
#include <memory>
#include <new>

using veldan::instanceOf;

namespace {

// Calls an operation of the instance behind the handle.
template <class... Parameters, class... Arguments>
int forward(void* handle, int (VdFaceAPI::*operation)(Parameters...), Arguments... arguments) {
    return handle != nullptr ? (instanceOf(handle)->*operation)(arguments...) : VD_ERR_HANDLE;
}

void* createInstance(char* path, int mode, int capacity, int* result) {
    void* const memory = std::malloc(sizeof(VdFaceAPI));
    if (memory == nullptr)
        throw std::bad_alloc();
    // Filled before anything can fail, so that the guard below may free the instance at any point.
    std::unique_ptr<VdFaceAPI, int (*)(void*)> guard(new (memory) VdFaceAPI(), zzFreeAlgThread);
    const int error = guard->vdInitAlg(path, mode, capacity);
    if (result != nullptr)
        *result = error;
    return error == VD_OK ? guard.release() : nullptr;
}

} // namespace

int zzGetAlgVersionThread(char* version) {
    return VdFaceAPI::vdGetAlgVersion(version);
}

void* zzInitAlgThread(char* path, int* result) {
    return createInstance(path, 0, VELDAN_DEFAULT_CAPACITY, result);
}

void* zzInitAlgNThread(char* path, int capacity, int* result) {
    return createInstance(path, 1, capacity, result);
}

int zzFreeAlgThread(void* handle) {
    if (handle == nullptr || instanceOf(handle)->vdFreeAlg() != VD_OK)
        return VD_ERR_HANDLE;
    std::free(handle);
    return VD_OK;
}

int zzDetectFaceThread(void* handle, unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces) {
    if (handle == nullptr)
        return VD_ERR_HANDLE;
    const int code = instanceOf(handle)->vdDetectFace(image, width, height, faceNum, faces);
    // Whatever detection said: an array this long does not fit into the operations on a frame's faces.
    if (faceNum != nullptr && *faceNum > VELDAN_MAX_FACES)
        return VD_ERR_TOO_MANY_FACES;
    return code;
}

int zzTrackFaceThread(void* handle, unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces) {
    return forward(handle, &VdFaceAPI::vdTrackFace, image, width, height, faceNum, faces);
}

int zzFaceQualityThread(void* handle, unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return forward(handle, &VdFaceAPI::vdFaceQuality, image, width, height, faceNum, faces);
}

int zzFaceQuality4RegisterThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                 VDFACEINFOEX* faces) {
    return forward(handle, &VdFaceAPI::vdFaceQuality4Register, image, width, height, faceNum, faces);
}

int zzVisLivenessDetectThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                              VDFACEINFOEX* faces) {
    return forward(handle, &VdFaceAPI::vdVisLivenessDetect, image, width, height, faceNum, faces);
}

int zzNirLivenessDetectThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                              VDFACEINFOEX* faces) {
    return forward(handle, &VdFaceAPI::vdNirLivenessDetect, image, width, height, faceNum, faces);
}

int zzFaceMaskThread(void* handle, unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    return forward(handle, &VdFaceAPI::vdFaceMaskRGB, image, width, height, faceNum, faces);
}

// 12 reads like a size here; no template is that small.
int zzGetFeatureSizeThread(void* handle) {
    return forward(handle, &VdFaceAPI::vdGetFeatureSize);
}

int zzExtractFeatureThread(void* handle, unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                           unsigned char* feature) {
    return forward(handle, &VdFaceAPI::vdExtractFeature, image, width, height, faceNum, faces, feature);
}

int zzMaskExtractFeatureThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                               VDFACEINFOEX* faces, unsigned char* feature) {
    return forward(handle, &VdFaceAPI::vdMaskExtractFeature, image, width, height, faceNum, faces, feature);
}

int zzMaskExtractFeature4RegThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                   VDFACEINFOEX* faces, unsigned char* feature) {
    return forward(handle, &VdFaceAPI::vdMaskExtractFeature4Reg, image, width, height, faceNum, faces, feature);
}

int zzMatchFeatureThread(void* handle, unsigned char* featureA, unsigned char* featureB, float* score) {
    return forward(handle, &VdFaceAPI::vdMatchFeature, featureA, featureB, score);
}

int zzMaskMatchFeatureThread(void* handle, unsigned char* featureA, unsigned char* featureB, float* score) {
    return forward(handle, &VdFaceAPI::vdMaskMatchFeature, featureA, featureB, score);
}

int zzSearchNFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                           int threshold, unsigned char* feature, VDFACEINFOEX* face) {
    return forward(handle, &VdFaceAPI::vdSearchFeature, gallery, galleryNum, templateNums, personNum, threshold,
                   feature, face);
}

int zzMaskSearchNFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums, int personNum,
                               int threshold, unsigned char* feature, VDFACEINFOEX* face) {
    return forward(handle, &VdFaceAPI::vdMaskSearchFeature, gallery, galleryNum, templateNums, personNum, threshold,
                   feature, face);
}

int zzSearchFeatureThread(void* handle, unsigned char* gallery, int personNum, int threshold, unsigned char* feature,
                          VDFACEINFOEX* face) {
    // Without counts every person has one template.
    return forward(handle, &VdFaceAPI::vdSearchFeature, gallery, personNum, nullptr, personNum, threshold, feature,
                   face);
}

int zzMaskSearchFeatureThread(void* handle, unsigned char* gallery, int personNum, int threshold,
                              unsigned char* feature, VDFACEINFOEX* face) {
    // Without counts every person has one template.
    return forward(handle, &VdFaceAPI::vdMaskSearchFeature, gallery, personNum, nullptr, personNum, threshold, feature,
                   face);
}
