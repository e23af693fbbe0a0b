#include "photo/judge.hpp"

#include "report/exit_codes.hpp"
#include "report/thresholds.hpp"

#include <veldan/align.h>
#include <veldan/face_mask.hpp>
#include <veldan/face_quality.hpp>
#include <veldan/instance.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/result_codes.h>
#include <veldan/spoof_detection.hpp>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>

namespace veldan::kit {

namespace {

constexpr int cropSide = 112;

// A grey picture saved with loss and loaded in colour differs by one or two levels between its channels.
constexpr std::uint64_t greyDeviation = 2;

void require(int code, const char* engine) {
    if (code != VD_OK)
        throw CommandError(ExitCode::Library,
                           std::string("the ") + engine + " engine failed with code " + std::to_string(code));
}

using Aligner = int (*)(const unsigned char*, int, int, unsigned char*, int, int, const float*);

template <std::size_t Count>
Photo aligned(const Photo& photo, const VDFACEINFOEX& face, std::size_t first, Aligner align) {
    std::array<float, 2 * Count> points{};
    for (std::size_t k = 0; k < Count; ++k) {
        points[2 * k] = static_cast<float>(face.keyPointX[first + k]);
        points[2 * k + 1] = static_cast<float>(face.keyPointY[first + k]);
    }
    Photo crop{cropSide, cropSide, std::vector<unsigned char>(std::size_t{cropSide} * cropSide * 3)};
    align(photo.pixels.data(), photo.width, photo.height, crop.pixels.data(), cropSide, cropSide, points.data());
    return crop;
}

} // namespace

bool isLive(const VDFACEINFOEX& face) {
    return face.liveness >= VELDAN_LIVE;
}

bool isGrey(const Photo& photo) {
    std::uint64_t differences = 0;
    for (std::size_t i = 0; i + 2 < photo.pixels.size(); i += 3) {
        const auto [least, most] = std::minmax({photo.pixels[i], photo.pixels[i + 1], photo.pixels[i + 2]});
        differences += static_cast<std::uint64_t>(most - least);
    }
    return differences <= greyDeviation * (photo.pixels.size() / 3);
}

std::vector<JudgedFace> judge(void* handle, Photo& photo, const std::vector<VDFACEINFOEX>& faces, Light light) {
    const VdFaceAPI& engines = *static_cast<const VdFaceAPI*>(handle);
    std::vector<VDFACEINFOEX> records = faces;
    unsigned char* const pixels = photo.pixels.data();
    const int count = static_cast<int>(records.size());

    // The points for masked faces are there since detection. Liveness comes after the mask: it reads maskScore to
    // choose between the two kinds of points.
    require(engines.faceMask->maskEvaluation(pixels, photo.width, photo.height, count, records.data()), "mask");
    require(engines.faceQuality->mqQualityEvaluation(pixels, photo.width, photo.height, count, records.data()),
            "quality");
    vdSpoofDetection& liveness = *engines.livenessDetector;
    require(light == Light::NearInfrared
                ? liveness.vdSpoofNIREvaluation(pixels, photo.width, photo.height, count, records.data())
                : liveness.vdSpoofRGBEvaluation(pixels, photo.width, photo.height, count, records.data()),
            "liveness");

    FaceQuality tests;
    std::vector<JudgedFace> judged;
    judged.reserve(records.size());
    for (const VDFACEINFOEX& record : records)
        judged.push_back({record, record.maskScore >= maskedFrom,
                          tests.Face_blurRGB(pixels, photo.width, photo.height, record) == 1,
                          tests.Face_Front(pixels, photo.width, photo.height, record) == 1, isLive(record)});
    return judged;
}

Photo alignedByFive(const Photo& photo, const VDFACEINFOEX& face) {
    return aligned<5>(photo, face, 0, alignface_pinv);
}

Photo alignedByTwo(const Photo& photo, const VDFACEINFOEX& face) {
    return aligned<2>(photo, face, 5, alignface_mask);
}

} // namespace veldan::kit
