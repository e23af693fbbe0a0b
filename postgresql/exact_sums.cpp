#include "exact_sums.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#include "recog/gallery_kernels_x86.hpp"

#include <immintrin.h>

#ifndef __clang__
// GCC's intrinsics start from vectors left undefined on purpose; it warns of them nonetheless.
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#pragma GCC diagnostic ignored "-Wuninitialized"
#endif
#endif

namespace veldan::exact {

Sums plainSums(const float* feature, const float* probe, double /*squaredProbeNorm*/) {
    Sums sums{};
    for (int j = 0; j < featureLength; ++j) {
        sums.dot += static_cast<double>(feature[j] * probe[j]);
        sums.squaredNorm += static_cast<double>(feature[j] * feature[j]);
    }
    return sums;
}

#if defined(__x86_64__) && defined(__GNUC__)

namespace {

// Vectors add up in another order than the definition. That is the same to the last bit as long as no addition rounds:
// values of single precision of 2^m and more are multiples of 2^(m-23), so are all of their sums, and those of up to
// 2^53 such multiples are exact in double precision. For features of faces it nearly always holds; where it does not,
// the definition serves.

// Of magnitudes as bits less one, the least: by that, zeros, which are multiples of anything, are the greatest.
using LeastBits = std::uint32_t;

// The greatest sum of magnitudes that stays exact; less a little, since sums are compared that may be rounded.
double greatestExactSum(LeastBits least) {
    // Only zeros: no sum is too great.
    if (least == ~LeastBits{0})
        return 0x1p200;
    // 0 for numbers too small to have all their bits: they are multiples of the same as those of exponent 1.
    const std::uint64_t exponent = (least + 1) >> 23;
    const std::uint64_t bits = (exponent + 1023 - 127 - 23 + 53) << 52;
    double limit;
    std::memcpy(&limit, &bits, sizeof limit);
    return limit * 0.9999;
}

bool isExact(const Sums& sums, LeastBits leastProduct, LeastBits leastSquare, double squaredProbeNorm) {
    // Below and above, squares lose digits; also false for what is not a number.
    if (!(sums.squaredNorm >= 0x1p-60 && sums.squaredNorm <= 0x1p60))
        return false;
    const double product = greatestExactSum(leastProduct);
    // The magnitudes of the products sum up to no more than the product of the norms.
    return sums.squaredNorm <= greatestExactSum(leastSquare) &&
           sums.squaredNorm * squaredProbeNorm <= product * product;
}

VELDAN_AVX2 inline __attribute__((always_inline)) __m256d lowHalf(__m256 v) {
    return _mm256_cvtps_pd(_mm256_castps256_ps128(v));
}

VELDAN_AVX2 inline __attribute__((always_inline)) __m256d highHalf(__m256 v) {
    return _mm256_cvtps_pd(_mm256_extractf128_ps(v, 1));
}

VELDAN_AVX2 inline __attribute__((always_inline)) double sumOf(__m256d v) {
    const __m128d pair = _mm_add_pd(_mm256_castpd256_pd128(v), _mm256_extractf128_pd(v, 1));
    return _mm_cvtsd_f64(_mm_add_sd(pair, _mm_unpackhi_pd(pair, pair)));
}

VELDAN_AVX2 inline __attribute__((always_inline)) __m256i bitsOf(__m256 v) {
    const __m256i magnitude = _mm256_and_si256(_mm256_castps_si256(v), _mm256_set1_epi32(0x7FFFFFFF));
    return _mm256_add_epi32(magnitude, _mm256_set1_epi32(-1));
}

VELDAN_AVX2 inline __attribute__((always_inline)) LeastBits leastOf(__m256i v) {
    __m128i least = _mm_min_epu32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
    least = _mm_min_epu32(least, _mm_shuffle_epi32(least, 0x4E));
    least = _mm_min_epu32(least, _mm_shuffle_epi32(least, 0xB1));
    return static_cast<LeastBits>(_mm_cvtsi128_si32(least));
}

VELDAN_AVX2 Sums sumsAvx2(const float* feature, const float* probe, double squaredProbeNorm) {
    __m256d dots[2] = {_mm256_setzero_pd(), _mm256_setzero_pd()};
    __m256d norms[2] = {_mm256_setzero_pd(), _mm256_setzero_pd()};
    __m256i leastProduct = _mm256_set1_epi32(-1);
    __m256i leastSquare = _mm256_set1_epi32(-1);
    for (int j = 0; j < featureLength; j += 8) {
        const __m256 v = _mm256_loadu_ps(feature + j);
        const __m256 product = _mm256_mul_ps(v, _mm256_loadu_ps(probe + j));
        const __m256 square = _mm256_mul_ps(v, v);
        leastProduct = _mm256_min_epu32(leastProduct, bitsOf(product));
        leastSquare = _mm256_min_epu32(leastSquare, bitsOf(square));
        dots[0] = _mm256_add_pd(dots[0], lowHalf(product));
        dots[1] = _mm256_add_pd(dots[1], highHalf(product));
        norms[0] = _mm256_add_pd(norms[0], lowHalf(square));
        norms[1] = _mm256_add_pd(norms[1], highHalf(square));
    }
    const Sums sums = {sumOf(_mm256_add_pd(dots[0], dots[1])), sumOf(_mm256_add_pd(norms[0], norms[1]))};
    return isExact(sums, leastOf(leastProduct), leastOf(leastSquare), squaredProbeNorm)
               ? sums
               : plainSums(feature, probe, squaredProbeNorm);
}

VELDAN_AVX512 inline __attribute__((always_inline)) __m512d lowHalf(__m512 v) {
    return _mm512_cvtps_pd(_mm512_castps512_ps256(v));
}

VELDAN_AVX512 inline __attribute__((always_inline)) __m512d highHalf(__m512 v) {
    return _mm512_cvtps_pd(_mm512_extractf32x8_ps(v, 1));
}

VELDAN_AVX512 inline __attribute__((always_inline)) __m512i bitsOf(__m512 v) {
    const __m512i magnitude = _mm512_and_si512(_mm512_castps_si512(v), _mm512_set1_epi32(0x7FFFFFFF));
    return _mm512_add_epi32(magnitude, _mm512_set1_epi32(-1));
}

VELDAN_AVX512 Sums sumsAvx512(const float* feature, const float* probe, double squaredProbeNorm) {
    __m512d dots[2] = {_mm512_setzero_pd(), _mm512_setzero_pd()};
    __m512d norms[2] = {_mm512_setzero_pd(), _mm512_setzero_pd()};
    __m512i leastProduct = _mm512_set1_epi32(-1);
    __m512i leastSquare = _mm512_set1_epi32(-1);
    for (int j = 0; j < featureLength; j += 16) {
        const __m512 v = _mm512_loadu_ps(feature + j);
        const __m512 product = _mm512_mul_ps(v, _mm512_loadu_ps(probe + j));
        const __m512 square = _mm512_mul_ps(v, v);
        leastProduct = _mm512_min_epu32(leastProduct, bitsOf(product));
        leastSquare = _mm512_min_epu32(leastSquare, bitsOf(square));
        dots[0] = _mm512_add_pd(dots[0], lowHalf(product));
        dots[1] = _mm512_add_pd(dots[1], highHalf(product));
        norms[0] = _mm512_add_pd(norms[0], lowHalf(square));
        norms[1] = _mm512_add_pd(norms[1], highHalf(square));
    }
    const Sums sums = {_mm512_reduce_add_pd(_mm512_add_pd(dots[0], dots[1])),
                       _mm512_reduce_add_pd(_mm512_add_pd(norms[0], norms[1]))};
    return isExact(sums, _mm512_reduce_min_epu32(leastProduct), _mm512_reduce_min_epu32(leastSquare), squaredProbeNorm)
               ? sums
               : plainSums(feature, probe, squaredProbeNorm);
}

} // namespace

const NamedSums (&allSums())[sumsNumber] {
    static const NamedSums all[sumsNumber] = {{"plain", plainSums},
                                              {"avx2", runsAvx2() ? sumsAvx2 : nullptr},
                                              {"avx512", runsAvx512() ? sumsAvx512 : nullptr}};
    return all;
}

#else

const NamedSums (&allSums())[sumsNumber] {
    static const NamedSums all[sumsNumber] = {{"plain", plainSums}};
    return all;
}

#endif

SumsFunction fastestSums() {
    SumsFunction fastest = nullptr;
    for (const NamedSums& one : allSums())
        if (one.function != nullptr)
            fastest = one.function;
    return fastest;
}

} // namespace veldan::exact
