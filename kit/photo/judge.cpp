#include "photo/judge.hpp"

#include "photo/face_api.hpp"
#include "report/exit_codes.hpp"
#include "report/similarity.hpp"

#include <veldan/align.h>
#include <veldan/face_quality.hpp>

#include <algorithm>
#include <array>
#include <cstdint>

namespace veldan::kit {

namespace {

constexpr int cropSide = 112;

// A grey picture saved with loss and loaded in colour differs by one or two levels between its channels.
constexpr std::uint64_t greyDeviation = 2;

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

std::vector<JudgedFace> judge(Instance& instance, Photo& photo, const std::vector<VDFACEINFOEX>& faces, Light light) {
    std::vector<VDFACEINFOEX> records = faces;
    const ImageView view = viewOf(photo);
    try {
        // The points for masked faces are there since detection. Liveness comes after the mask: it reads maskScore to
        // choose between the two kinds of points.
        instance.judgeMask(view, records);
        instance.judgeQuality(view, records);
        if (light == Light::NearInfrared)
            instance.judgeNearInfraredLiveness(view, records);
        else
            instance.judgeLiveness(view, records);
    } catch (const Error& error) {
        throw CommandError(ExitCode::Library, error.what());
    }

    FaceQuality tests;
    std::vector<JudgedFace> judged;
    judged.reserve(records.size());
    for (const VDFACEINFOEX& record : records)
        judged.push_back({record, record.maskScore >= maskedFrom,
                          tests.Face_blurRGB(photo.pixels.data(), photo.width, photo.height, record) == 1,
                          tests.Face_Front(photo.pixels.data(), photo.width, photo.height, record) == 1,
                          isLive(record)});
    return judged;
}

Photo alignedByFive(const Photo& photo, const VDFACEINFOEX& face) {
    return aligned<5>(photo, face, 0, alignface_pinv);
}

Photo alignedByTwo(const Photo& photo, const VDFACEINFOEX& face) {
    return aligned<2>(photo, face, 5, alignface_mask);
}

} // namespace veldan::kit
