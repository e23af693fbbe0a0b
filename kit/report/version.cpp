#include "report/version.hpp"

#include <veldan/face_api.h>
#include <veldan/image_tool.h>

#include <array>

namespace veldan::kit {

Json versionJson() {
    std::array<char, VELDAN_VERSION_SIZE> algorithm{};
    zzGetAlgVersionThread(algorithm.data());
    std::array<char, VELDAN_TOOL_VERSION_SIZE> imageTools{};
    CVToolVersion(imageTools.data());
    return {{"veldan", VELDAN_VERSION}, {"algorithm", algorithm.data()}, {"imageTools", imageTools.data()}};
}

} // namespace veldan::kit
