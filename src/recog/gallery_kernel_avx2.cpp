// The search's kernel for AVX2: a feature is sixteen vectors.

#if defined(__x86_64__) && defined(__GNUC__)

#include "recog/gallery_kernels_x86.hpp"
#include "recog/gallery_search.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <immintrin.h>

#ifndef __clang__
// GCC's intrinsics start from vectors left undefined on purpose; it warns of them nonetheless.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif

namespace veldan {

bool runsAvx2() {
    return __builtin_cpu_supports("avx2") != 0 && __builtin_cpu_supports("fma") != 0;
}

namespace x86 {

namespace {

VELDAN_AVX2 __m256i percentsOf(__m256 scores) {
    // The maximum with a NaN is the second operand: what is not a number becomes 0.
    const __m256 positive = _mm256_max_ps(scores, _mm256_setzero_ps());
    return _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_set1_ps(100), positive));
}

VELDAN_AVX2 std::uint64_t bitsOf(__m256 mask) {
    return static_cast<std::uint64_t>(_mm256_movemask_ps(mask));
}

} // namespace

VELDAN_AVX2 void scoreProducts(const Products& products, int count, float toBeat, GalleryScores& scores) {
    const __m256 error = _mm256_set1_ps(galleryScoreError);
    std::uint64_t open = 0;
    std::uint64_t contending = 0;
    std::uint64_t safe = 0;
    for (int done = 0; done < count; done += group) {
        const int first = std::min(done, count - group);
        const __m256 norm = _mm256_loadu_ps(products.norm + first);
        const __m256 cosine = _mm256_div_ps(_mm256_loadu_ps(products.dot + first), _mm256_sqrt_ps(norm));
        const __m256 score = _mm256_add_ps(_mm256_set1_ps(0.5F), cosine);
        const __m256 most = _mm256_add_ps(score, error);
        const __m256i lower = percentsOf(_mm256_sub_ps(score, error));
        const __m256i upper = percentsOf(most);
        _mm256_storeu_ps(scores.score + first, score);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(scores.lower + first), lower);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(scores.upper + first), upper);
        open |= bitsOf(_mm256_castsi256_ps(_mm256_xor_si256(_mm256_cmpeq_epi32(lower, upper), _mm256_set1_epi32(-1))))
                << first;
        contending |= bitsOf(_mm256_cmp_ps(most, _mm256_set1_ps(toBeat), _CMP_GT_OQ)) << first;
        safe |= bitsOf(_mm256_and_ps(_mm256_cmp_ps(norm, _mm256_set1_ps(leastSquaredNorm), _CMP_GE_OQ),
                                     _mm256_cmp_ps(norm, _mm256_set1_ps(mostSquaredNorm), _CMP_LE_OQ)))
                << first;
    }
    scores.open = open;
    scores.contending = contending;
    scores.unsafe = safe ^ (~std::uint64_t{0} >> (galleryBlock - count));
}

namespace {

std::uint64_t otherTags(const unsigned char* entry, const unsigned char* tag) {
    std::uint64_t bits = 0;
    for (int i = 0; i < group; ++i)
        bits |= std::uint64_t{std::memcmp(entry + i * size, tag, templateTagLength) != 0} << i;
    return bits;
}

VELDAN_AVX2 __m256 load8(const unsigned char* bytes, int vector) {
    return _mm256_loadu_ps(reinterpret_cast<const float*>(bytes + static_cast<std::ptrdiff_t>(vector) * 32));
}

struct Sums256 {
    __m256 dot;
    __m256 norm;
    __m256i bytes;
};

VELDAN_AVX2 inline __attribute__((always_inline)) Sums256 sumsOf(const unsigned char* entry, const GalleryProbe& probe,
                                                                 __m128i tag, __m128i& tags) {
    const __m128i head = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(entry));
    tags = _mm_or_si128(tags, _mm_xor_si128(head, tag));
    const unsigned char* const feature = entry + templateHeadLength;
    __m256 dot[2];
    __m256 norm[2];
    __m256 bytes = _mm256_castsi256_ps(_mm256_zextsi128_si256(head));
    for (int j = 0; j < 16; ++j) {
        const __m256 v = load8(feature, j);
        const __m256 p = _mm256_load_ps(probe.halfDirection + static_cast<std::ptrdiff_t>(j) * 8);
        dot[j % 2] = j < 2 ? _mm256_mul_ps(v, p) : _mm256_fmadd_ps(v, p, dot[j % 2]);
        norm[j % 2] = j < 2 ? _mm256_mul_ps(v, v) : _mm256_fmadd_ps(v, v, norm[j % 2]);
        bytes = _mm256_xor_ps(bytes, v);
    }
    return {_mm256_add_ps(dot[0], dot[1]), _mm256_add_ps(norm[0], norm[1]), _mm256_castps_si256(bytes)};
}

// Adds up each of four vectors: lane 0 holds partial sums 0 to 3, lane 1 what is missing from them.
VELDAN_AVX2 __m256 addAcross(__m256 a, __m256 b, __m256 c, __m256 d) {
    return _mm256_hadd_ps(_mm256_hadd_ps(a, b), _mm256_hadd_ps(c, d));
}

VELDAN_AVX2 __m256 joinSums(__m256 low, __m256 high) {
    return _mm256_add_ps(_mm256_permute2f128_ps(low, high, 0x20), _mm256_permute2f128_ps(low, high, 0x31));
}

VELDAN_AVX2 std::uint64_t damagedOf(const Sums256* sums) {
    const __m256i low = _mm256_xor_si256(_mm256_unpacklo_epi64(sums[0].bytes, sums[1].bytes),
                                         _mm256_unpackhi_epi64(sums[0].bytes, sums[1].bytes));
    const __m256i high = _mm256_xor_si256(_mm256_unpacklo_epi64(sums[2].bytes, sums[3].bytes),
                                          _mm256_unpackhi_epi64(sums[2].bytes, sums[3].bytes));
    __m256i sum =
        _mm256_xor_si256(_mm256_permute2x128_si256(low, high, 0x20), _mm256_permute2x128_si256(low, high, 0x31));
    sum = _mm256_xor_si256(sum, _mm256_srli_epi64(sum, 32));
    sum = _mm256_xor_si256(sum, _mm256_srli_epi64(sum, 16));
    sum = _mm256_xor_si256(sum, _mm256_srli_epi64(sum, 8));
    const __m256i intact = _mm256_cmpeq_epi64(_mm256_and_si256(sum, _mm256_set1_epi64x(0xFF)), _mm256_setzero_si256());
    return static_cast<std::uint64_t>(_mm256_movemask_pd(_mm256_castsi256_pd(intact))) ^ 0xFU;
}

VELDAN_AVX2 void scoreAvx2(const unsigned char* templates, int count, const GalleryProbe& probe, float toBeat,
                           GalleryScores& scores) {
    if (count < group) {
        portableKernel.score(templates, count, probe, toBeat, scores);
        return;
    }
    const __m128i tag = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(probe.tag));
    Products products;
    std::uint64_t refused = 0;
    for (int done = 0; done < count; done += group) {
        const int first = std::min(done, count - group);
        const unsigned char* const entry = templates + first * size;
        __m128i tags = _mm_setzero_si128();
        __m256 dots[2];
        __m256 norms[2];
        for (int half = 0; half < 2; ++half) {
            Sums256 sums[4];
            for (int i = 0; i < 4; ++i)
                sums[i] = sumsOf(entry + (4 * half + i) * size, probe, tag, tags);
            dots[half] = addAcross(sums[0].dot, sums[1].dot, sums[2].dot, sums[3].dot);
            norms[half] = addAcross(sums[0].norm, sums[1].norm, sums[2].norm, sums[3].norm);
            refused |= damagedOf(sums) << (first + 4 * half);
        }
        _mm256_storeu_ps(products.dot + first, joinSums(dots[0], dots[1]));
        _mm256_storeu_ps(products.norm + first, joinSums(norms[0], norms[1]));
        if ((static_cast<std::uint64_t>(_mm_cvtsi128_si64(tags)) & tagMask) != 0)
            refused |= otherTags(entry, probe.tag) << first;
    }
    scoreProducts(products, count, toBeat, scores);
    scores.refused = refused;
}

} // namespace

} // namespace x86

const GalleryKernel avx2Kernel = {"avx2", x86::scoreAvx2};

} // namespace veldan

#endif
