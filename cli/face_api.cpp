#include "face_api.hpp"

#include "exit_codes.hpp"

#include <veldan/face_api.h>
#include <veldan/result_codes.h>

#include <chrono>
#include <string>

namespace veldan::cli {

FaceApi::FaceApi() : records_(VELDAN_DETECT_CAPACITY) {
    int result = 0;
    handle_ = zzInitAlgThread(nullptr, &result);
    if (handle_ == nullptr) {
        throw CommandError(ExitCode::Library,
                           "the library did not start: code " + std::to_string(result) +
                               (result == VD_ERR_NETWORK ? ", an embedded network cannot be loaded" : ""));
    }
}

FaceApi::~FaceApi() {
    zzFreeAlgThread(handle_);
}

FaceApi::Detection FaceApi::detect(Photo& photo) {
    int count = 0;
    const auto start = std::chrono::steady_clock::now();
    const int code =
        zzDetectFaceThread(handle_, photo.pixels.data(), photo.width, photo.height, &count, records_.data());
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;

    switch (code) {
    case VD_OK:
    case VD_ERR_TOO_MANY_FACES: // the records are written all the same; the caller sees the count
        break;
    case VD_ERR_NO_FACE:
        count = 0;
        break;
    case VD_ERR_IMAGE_TOO_SMALL:
        throw CommandError(ExitCode::TooSmall, "too small: " + std::to_string(photo.width) + " x " +
                                                   std::to_string(photo.height) +
                                                   " pixels, at least 100 x 100 are needed");
    default:
        throw CommandError(ExitCode::Library, "detection failed with code " + std::to_string(code));
    }
    return {{records_.begin(), records_.begin() + count}, elapsed.count()};
}

} // namespace veldan::cli
