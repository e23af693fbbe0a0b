// The search's kernel for 64-bit ARM: a feature is 32 vectors.

#include "recog/gallery_kernel_neon.hpp"

#if VELDAN_NEON_KERNEL

#include "recog/gallery_search.hpp"

#include <algorithm>
#include <arm_neon.h>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace veldan {

namespace {

// Templates whose roots and quotients are under way at the same time.
constexpr int group = 4;

// Sums of a template are kept in so many vectors, which bounds what the kernel rounds: 8 products each, the first of
// them a plain product, 2 sums of vectors and 2 across them are 12 roundings.
constexpr int ways = 4;

constexpr std::uint64_t tagMask = 0x00FFFFFFFFFFFFFF; // in the first eight bytes

struct Sums {
    float dot;
    float norm;
    bool refused;
};

inline float addUp(const float32x4_t* sums) {
    return vaddvq_f32(vaddq_f32(vaddq_f32(sums[0], sums[1]), vaddq_f32(sums[2], sums[3])));
}

inline Sums sumsOf(const unsigned char* entry, const GalleryProbe& probe, std::uint64_t tag) {
    std::uint64_t head;
    std::memcpy(&head, entry, sizeof head);
    float32x4_t dot[ways];
    float32x4_t norm[ways];
    uint8x16_t bytes = vdupq_n_u8(0);
    for (int j = 0; j < featureLength / 4; ++j) {
        const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(j) * 4;
        // As bytes, since templates lie at any address.
        const uint8x16_t loaded = vld1q_u8(entry + templateHeadLength + at * 4);
        const float32x4_t v = vreinterpretq_f32_u8(loaded);
        const float32x4_t p = vld1q_f32(probe.halfDirection + at);
        const int way = j % ways;
        dot[way] = j < ways ? vmulq_f32(v, p) : vfmaq_f32(dot[way], v, p);
        norm[way] = j < ways ? vmulq_f32(v, v) : vfmaq_f32(norm[way], v, v);
        bytes = veorq_u8(bytes, loaded);
    }
    const uint64x2_t words = vreinterpretq_u64_u8(bytes);
    std::uint64_t sum = head ^ vgetq_lane_u64(words, 0) ^ vgetq_lane_u64(words, 1);
    for (const int half : {32, 16, 8})
        sum ^= sum >> half;
    return {addUp(dot), addUp(norm), (sum & 0xFFU) != 0 || ((head ^ tag) & tagMask) != 0};
}

inline int32x4_t percentsOf(float32x4_t scores) {
    // What is not a number becomes 0, as does what is negative.
    return vcvtq_s32_f32(vmulq_n_f32(vmaxnmq_f32(scores, vdupq_n_f32(0)), 100.0F));
}

inline std::uint64_t bitsOf(uint32x4_t mask) {
    const uint32x4_t bits = {1, 2, 4, 8};
    return vaddvq_u32(vandq_u32(mask, bits));
}

void scoreNeon(const unsigned char* templates, int count, const GalleryProbe& probe, float toBeat,
               GalleryScores& scores) {
    if (count < group) {
        portableKernel.score(templates, count, probe, toBeat, scores);
        return;
    }
    std::uint64_t tag;
    std::memcpy(&tag, probe.tag, sizeof tag);
    const float32x4_t error = vdupq_n_f32(galleryScoreError);
    std::uint64_t refused = 0;
    std::uint64_t open = 0;
    std::uint64_t contending = 0;
    std::uint64_t safe = 0;
    for (int done = 0; done < count; done += group) {
        // The last group may overlap with the one before it and find the same once more.
        const int first = std::min(done, count - group);
        float dots[group];
        float norms[group];
        for (int i = 0; i < group; ++i) {
            const Sums sums = sumsOf(templates + static_cast<std::ptrdiff_t>(first + i) * templateSize, probe, tag);
            dots[i] = sums.dot;
            norms[i] = sums.norm;
            refused |= std::uint64_t{sums.refused} << (first + i);
        }
        const float32x4_t norm = vld1q_f32(norms);
        const float32x4_t score = vaddq_f32(vdupq_n_f32(0.5F), vdivq_f32(vld1q_f32(dots), vsqrtq_f32(norm)));
        const float32x4_t most = vaddq_f32(score, error);
        const int32x4_t lower = percentsOf(vsubq_f32(score, error));
        const int32x4_t upper = percentsOf(most);
        vst1q_f32(scores.score + first, score);
        vst1q_s32(scores.lower + first, lower);
        vst1q_s32(scores.upper + first, upper);
        open |= bitsOf(vmvnq_u32(vceqq_s32(lower, upper))) << first;
        contending |= bitsOf(vcgtq_f32(most, vdupq_n_f32(toBeat))) << first;
        safe |= bitsOf(vandq_u32(vcgeq_f32(norm, vdupq_n_f32(leastSquaredNorm)),
                                 vcleq_f32(norm, vdupq_n_f32(mostSquaredNorm))))
                << first;
    }
    scores.open = open;
    scores.contending = contending;
    scores.refused = refused;
    scores.unsafe = safe ^ (~std::uint64_t{0} >> (galleryBlock - count));
}

} // namespace

const GalleryKernel neonKernel = {"neon", scoreNeon};

} // namespace veldan

#endif
