#include <veldan/face_api.h>
#include <veldan/instance.hpp>

#include <cstdlib>
#include <memory>
#include <new>

namespace {

VdFaceAPI* instanceOf(void* handle) {
    return static_cast<VdFaceAPI*>(handle);
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
