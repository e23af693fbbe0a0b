#include "photo/face_api.hpp"

#include "report/exit_codes.hpp"

#include <chrono>
#include <string>

namespace veldan::kit {

namespace {

Instance start(int capacity) {
    try {
        return Instance(capacity);
    } catch (const Error& error) {
        throw CommandError(ExitCode::Library, error.what());
    }
}

} // namespace

FaceApi::FaceApi(int capacity) : instance_(start(capacity)) {}

FaceApi::Detection FaceApi::detect(Photo& photo) {
    Detection detection;
    const auto start = std::chrono::steady_clock::now();
    try {
        detection.faces = instance_.detect(viewOf(photo));
    } catch (const Error& error) {
        if (error.code() == VD_ERR_IMAGE_TOO_SMALL)
            throw CommandError(ExitCode::TooSmall, "too small: " + std::to_string(photo.width) + " x " +
                                                       std::to_string(photo.height) +
                                                       " pixels, at least 100 x 100 are needed");
        throw CommandError(ExitCode::Library, error.what());
    }
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    detection.milliseconds = elapsed.count();
    return detection;
}

} // namespace veldan::kit
