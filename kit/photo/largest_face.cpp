#include "photo/largest_face.hpp"

#include "report/exit_codes.hpp"

#include <chrono>

namespace veldan::kit {

LargestFace largestFace(FaceApi& api, Photo& photo) {
    const FaceApi::Detection detection = api.detect(photo);
    if (detection.faces.empty())
        throw CommandError(ExitCode::Unsuitable, "no face was found");
    const auto start = std::chrono::steady_clock::now();
    const JudgedFace face = judge(api.instance(), photo, {detection.faces.front()}, Light::Visible).front();
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    return {face, detection.faces.size(), detection.milliseconds + elapsed.count()};
}

Template templateOf(Instance& instance, Photo& photo, const JudgedFace& face, Kind kind) {
    VDFACEINFOEX record = face.record;
    try {
        return face.masked ? instance.extract(viewOf(photo), record, kind)
                           : instance.extractForEnrolment(viewOf(photo), record, kind);
    } catch (const Error& error) {
        throw CommandError(ExitCode::Library, error.what());
    }
}

} // namespace veldan::kit
