#ifndef VELDAN_RECOG_GALLERY_KERNELS_HPP
#define VELDAN_RECOG_GALLERY_KERNELS_HPP

#include "recog/template_layout.hpp"

#include <cstdint>
#include <vector>

namespace veldan {

// The part of a search that touches every byte of the gallery: checks and approximate scores, one function for each
// kind of processor. Which of them runs never shows in the results; the search computes exactly what is too close to
// call.

// Templates that are scored in one call: few enough to stay in the cache until the search has looked at the scores.
constexpr int galleryBlock = 64;

// How far an approximate score may lie from the similarity: 20 roundings, u = 2^-24 each. With scores of at most 1 and
// k roundings in a kernel's sums (16 at most) the error is at most
//   u/2 + k u/2 + k u/4 + u   the probe's direction, the dot product, the norm, root and quotient: 0.75 k u + 1.5 u
//   u                         the last addition
//   2 u                       the single-precision products and the result of the similarity itself
// which is 16.5 u; the rest is for the rounding of "score plus or minus error" and for terms of second order.
constexpr float galleryScoreError = 20.0F / (1 << 24);

// Squared norms between which that holds: outside, products of single precision overflow or lose digits.
constexpr float leastSquaredNorm = 0x1p-60F;
constexpr float mostSquaredNorm = 0x1p60F;

// A probe as the kernels take it.
struct GalleryProbe {
    // The feature divided by twice its norm, so that its product with a direction lies between -0.5 and 0.5.
    alignas(64) float halfDirection[featureLength];
    // The first bytes of every template of the probe's kind.
    unsigned char tag[8];
};

// What a kernel finds out about a block; bit i stands for template i.
struct GalleryScores {
    alignas(64) float score[galleryBlock];
    // Percents of the score less and plus the error, at least 0.
    alignas(64) std::int32_t lower[galleryBlock];
    alignas(64) std::int32_t upper[galleryBlock];
    // Templates whose two percents differ.
    std::uint64_t open;
    // Templates whose score plus the error is greater than the one to beat.
    std::uint64_t contending;
    // Templates that are damaged or of the other kind. Nothing else that is said of them holds.
    std::uint64_t refused;
    // Templates with a norm outside the range above. Nothing else that is said of them holds; they may be refused as
    // well.
    std::uint64_t unsafe;
};

struct GalleryKernel {
    const char* name;
    // Scores 1 to galleryBlock templates.
    void (*score)(const unsigned char* templates, int count, const GalleryProbe& probe, float toBeat,
                  GalleryScores& scores);
};

// The kernels that this processor can run, fastest first. The last one runs everywhere.
std::vector<GalleryKernel> galleryKernels();

// The first and the last of them.
GalleryKernel fastestGalleryKernel();
extern const GalleryKernel portableKernel;

} // namespace veldan

#endif
