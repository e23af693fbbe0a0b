#ifndef VELDAN_RECOG_GALLERY_KERNELS_X86_HPP
#define VELDAN_RECOG_GALLERY_KERNELS_X86_HPP

#include "recog/gallery_kernels.hpp"

#include <cstddef>
#include <cstdint>

// The library is built for any x86-64; only these functions are compiled for more.
#define VELDAN_AVX2 __attribute__((target("avx2,fma")))
#define VELDAN_AVX512 __attribute__((target("avx512f,avx512dq,avx512vl,avx512bw,avx2,fma")))

namespace veldan {

bool runsAvx2();
bool runsAvx512();

// Each to be called only where the processor runs it.
extern const GalleryKernel avx2Kernel;
extern const GalleryKernel avx512Kernel;

// What the two have in common.
namespace x86 {

// Templates whose sums are brought together at a time, so that adding up across a vector is shared between them.
constexpr int group = 8;

constexpr std::uint64_t tagMask = 0x00FFFFFFFFFFFFFF; // in the first eight bytes
constexpr std::ptrdiff_t size = templateSize;

// Dot products and squared norms of a block. The last group of a block may overlap with the one before it and find the
// same once more.
struct Products {
    alignas(64) float dot[galleryBlock];
    alignas(64) float norm[galleryBlock];
};

// What sums of products mean, of a group and more. Apart from the sums, so that roots and quotients of many groups are
// under way at the same time.
void scoreProducts(const Products& products, int count, float toBeat, GalleryScores& scores);

} // namespace x86

} // namespace veldan

#endif
