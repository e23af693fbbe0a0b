#include "api/search_history.hpp"
#include "engine/rounding.hpp"

#include <veldan/face_api.h>
#include <veldan/face_landmark.hpp>
#include <veldan/face_mask.hpp>
#include <veldan/instance.hpp>
#include <veldan/mask_recognizer.hpp>
#include <veldan/mtcnn.hpp>
#include <veldan/onet_landmark.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/recognizer.hpp>
#include <veldan/result_codes.h>
#include <veldan/spoof_detection.hpp>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>

// Applications keep arrays of the record, in memory and on disk.
static_assert(sizeof(VDFACEINFOEX) == 262 * 4);
static_assert(offsetof(VDFACEINFOEX, x) == 0 * 4);
static_assert(offsetof(VDFACEINFOEX, y) == 1 * 4);
static_assert(offsetof(VDFACEINFOEX, width) == 2 * 4);
static_assert(offsetof(VDFACEINFOEX, height) == 3 * 4);
static_assert(offsetof(VDFACEINFOEX, keyPointNum) == 4 * 4);
static_assert(offsetof(VDFACEINFOEX, keyPointX) == 5 * 4);
static_assert(offsetof(VDFACEINFOEX, keyPointY) == 125 * 4);
static_assert(offsetof(VDFACEINFOEX, reserved1) == 245 * 4);
static_assert(offsetof(VDFACEINFOEX, quality) == 248 * 4);
static_assert(offsetof(VDFACEINFOEX, eyeDistance) == 249 * 4);
static_assert(offsetof(VDFACEINFOEX, liveness) == 250 * 4);
static_assert(offsetof(VDFACEINFOEX, reserved2) == 251 * 4);
static_assert(offsetof(VDFACEINFOEX, trackId) == 252 * 4);
static_assert(offsetof(VDFACEINFOEX, reserved3) == 253 * 4);
static_assert(offsetof(VDFACEINFOEX, searchFlag) == 254 * 4);
static_assert(offsetof(VDFACEINFOEX, searchId) == 255 * 4);
static_assert(offsetof(VDFACEINFOEX, searchScore) == 256 * 4);
static_assert(offsetof(VDFACEINFOEX, maskScore) == 257 * 4);
static_assert(offsetof(VDFACEINFOEX, strangerFlag) == 258 * 4);
static_assert(offsetof(VDFACEINFOEX, reserved4) == 259 * 4);

// The entry points put the instance into raw memory.
static_assert(std::is_trivial_v<VdFaceAPI> && std::is_standard_layout_v<VdFaceAPI>);

namespace {

constexpr char version[] = "Quilvane_FaceAPI_V5.4.7.20200817";
static_assert(sizeof(version) == VELDAN_VERSION_SIZE);

// The engine comes back also when its network did not load: who asked for it releases it.
template <class Engine>
Engine* createEngine(int (Engine::*load)(char*), char* path, int* error) {
    auto engine = std::make_unique<Engine>();
    const int result = (engine.get()->*load)(path);
    if (error != nullptr)
        *error = result;
    return engine.release();
}

template <class Engine>
int freeEngine(Engine* engine) {
    delete engine;
    return VD_OK;
}

} // namespace

int VdFaceAPI::vdInitAlg(char* path, int /*mode*/, int capacity_) {
    // A negative capacity has no meaning; as 0 it still gives every row the three words in front of its blocks.
    capacity = std::max(capacity_, 0);
    faceDetector = nullptr;
    faceQuality = nullptr;
    faceRecognizer = nullptr;
    livenessDetector = nullptr;
    faceMask = nullptr;
    faceLandmark = nullptr;
    onetLandmark = nullptr;
    maskFaceRecognizer = nullptr;
    searchHistory = nullptr;
    currentFaceNum = 0;
    previousFaceNum = 0;

    int error = VD_OK;
    const auto load = [&](auto& slot, auto create) {
        slot = create(path, &error);
        if (slot == nullptr && error == VD_OK)
            error = VD_ERR_NETWORK;
        return error == VD_OK;
    };
    // The order is fixed: detector, quality, recognizer, liveness, mask, two-point landmark, masked recognizer,
    // landmark refinement. The last two are deliberately not in the order of their slots.
    const bool loaded =
        load(faceDetector, InitFaceDetectorEngine) && load(faceQuality, InitFaceQualityEngine) &&
        load(faceRecognizer, InitFaceRecognizerEngine) && load(livenessDetector, InitLivenessDetectorEngine) &&
        load(faceMask, InitFaceMaskEngine) && load(faceLandmark, InitFaceLandmarkEngine) &&
        load(maskFaceRecognizer, InitMaskFaceRecognizerEngine) && load(onetLandmark, InitOnetLandmarkEngine);
    if (!loaded) {
        vdFreeAlg();
        return error;
    }

    searchHistory = veldan::allocateHistory(capacity);
    return VD_OK;
}

int VdFaceAPI::vdFreeAlg() {
    const auto release = [](auto& slot, auto free) {
        if (slot != nullptr)
            free(slot);
        slot = nullptr;
    };
    // Slot order, except that the masked recognizer (slot 7) goes before the landmark refinement (slot 6).
    release(faceDetector, FreeFaceDetectorEngine);
    release(faceQuality, FreeQualityEngine);
    release(faceRecognizer, FreeFaceRecognizerEngine);
    release(livenessDetector, FreeLivenessDetectorEngine);
    release(faceMask, FreeMaskEngine);
    release(faceLandmark, FreeLandmarkEngine);
    release(maskFaceRecognizer, FreeMaskFaceRecognizerEngine);
    release(onetLandmark, FreeOnetLandmarkEngine);

    veldan::freeHistory(searchHistory);
    searchHistory = nullptr;
    return VD_OK;
}

int VdFaceAPI::vdGetAlgVersion(char* out) {
    if (out == nullptr)
        return VD_ERR_HANDLE;
    vdMyStrcpy(out, version);
    return VD_OK;
}

char* VdFaceAPI::vdMyStrcpy(char* dst, const char* src) {
    if (dst != nullptr && src != nullptr)
        std::memmove(dst, src, std::strlen(src) + 1);
    return dst;
}

int VdFaceAPI::np_round(float f) {
    return veldan::roundHalves(f);
}

MTCNN* VdFaceAPI::InitFaceDetectorEngine(char* path, int* error) {
    struct Release {
        void operator()(MTCNN* engine) const { FreeFaceDetectorEngine(engine); }
    };
    // Zeroed before construction, so that no byte of the detector depends on what the memory held before.
    void* const memory = ::operator new(sizeof(MTCNN));
    std::memset(memory, 0, sizeof(MTCNN));
    std::unique_ptr<MTCNN, Release> engine(new (memory) MTCNN);
    const int result = engine->mtcnnInitAlg(path);
    if (error != nullptr)
        *error = result;
    return engine.release();
}

int VdFaceAPI::FreeFaceDetectorEngine(MTCNN* engine) {
    if (engine != nullptr) {
        engine->~MTCNN();
        ::operator delete(engine);
    }
    return VD_OK;
}

QUALITYEVALUATION* VdFaceAPI::InitFaceQualityEngine(char* path, int* error) {
    return createEngine(&QUALITYEVALUATION::mqInitAlg, path, error);
}

int VdFaceAPI::FreeQualityEngine(QUALITYEVALUATION* engine) {
    return freeEngine(engine);
}

MOBILEFACENET* VdFaceAPI::InitFaceRecognizerEngine(char* path, int* error) {
    return createEngine(&MOBILEFACENET::mfInitAlg, path, error);
}

int VdFaceAPI::FreeFaceRecognizerEngine(MOBILEFACENET* engine) {
    return freeEngine(engine);
}

vdSpoofDetection* VdFaceAPI::InitLivenessDetectorEngine(char* path, int* error) {
    return createEngine(&vdSpoofDetection::vdSpoofInitAlg, path, error);
}

int VdFaceAPI::FreeLivenessDetectorEngine(vdSpoofDetection* engine) {
    return freeEngine(engine);
}

vdFaceMask* VdFaceAPI::InitFaceMaskEngine(char* path, int* error) {
    return createEngine(&vdFaceMask::maskInitAlg, path, error);
}

int VdFaceAPI::FreeMaskEngine(vdFaceMask* engine) {
    return freeEngine(engine);
}

vdFaceLandmark* VdFaceAPI::InitFaceLandmarkEngine(char* path, int* error) {
    return createEngine(&vdFaceLandmark::landmarkInitAlg, path, error);
}

int VdFaceAPI::FreeLandmarkEngine(vdFaceLandmark* engine) {
    return freeEngine(engine);
}

MASKMOBILEFACENET* VdFaceAPI::InitMaskFaceRecognizerEngine(char* path, int* error) {
    return createEngine(&MASKMOBILEFACENET::maskfInitAlg, path, error);
}

int VdFaceAPI::FreeMaskFaceRecognizerEngine(MASKMOBILEFACENET* engine) {
    return freeEngine(engine);
}

OnetLandmark* VdFaceAPI::InitOnetLandmarkEngine(char* path, int* error) {
    return createEngine(&OnetLandmark::mOnetInitAlg, path, error);
}

int VdFaceAPI::FreeOnetLandmarkEngine(OnetLandmark* engine) {
    return freeEngine(engine);
}
