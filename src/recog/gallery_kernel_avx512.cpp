// The search's kernel for AVX-512: a feature is eight vectors.

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

bool runsAvx512() {
    return runsAvx2() && __builtin_cpu_supports("avx512f") != 0 && __builtin_cpu_supports("avx512dq") != 0 &&
           __builtin_cpu_supports("avx512vl") != 0 && __builtin_cpu_supports("avx512bw") != 0;
}

namespace x86 {

namespace {

VELDAN_AVX512 __m512 load16(const unsigned char* bytes, int vector) {
    return _mm512_loadu_ps(bytes + static_cast<std::ptrdiff_t>(vector) * 64);
}

VELDAN_AVX512 __m512i xor3(__m512i a, __m512i b, __m512i c) {
    return _mm512_ternarylogic_epi64(a, b, c, 0x96);
}

// Adds the 128-bit lanes of a and of b in pairs: a0+a1, a2+a3, b0+b1, b2+b3.
VELDAN_AVX512 __m512 addLanes(__m512 a, __m512 b) {
    return _mm512_add_ps(_mm512_shuffle_f32x4(a, b, 0x88), _mm512_shuffle_f32x4(a, b, 0xDD));
}

// The same within each lane.
VELDAN_AVX512 __m512 addWithinLanes(__m512 a, __m512 b) {
    return _mm512_add_ps(_mm512_shuffle_ps(a, b, 0x88), _mm512_shuffle_ps(a, b, 0xDD));
}

VELDAN_AVX512 __m512i xorLanes(__m512i a, __m512i b) {
    return _mm512_xor_si512(_mm512_shuffle_i64x2(a, b, 0x88), _mm512_shuffle_i64x2(a, b, 0xDD));
}

VELDAN_AVX512 __m512i xorWithinLanes(__m512i a, __m512i b) {
    return _mm512_xor_si512(_mm512_unpacklo_epi64(a, b), _mm512_unpackhi_epi64(a, b));
}

VELDAN_AVX512 __m512i percents512Of(__m512 scores) {
    const __m512 positive = _mm512_max_ps(scores, _mm512_setzero_ps());
    return _mm512_cvttps_epi32(_mm512_mul_ps(_mm512_set1_ps(100), positive));
}

// As scoreProducts, of twice as many at a time.
VELDAN_AVX512 void scoreProducts512(const Products& products, int count, float toBeat, GalleryScores& scores) {
    const __m512 error = _mm512_set1_ps(galleryScoreError);
    std::uint64_t open = 0;
    std::uint64_t contending = 0;
    std::uint64_t safe = 0;
    for (int done = 0; done < count; done += 16) {
        const int first = std::min(done, count - 16);
        const __m512 norm = _mm512_loadu_ps(products.norm + first);
        const __m512 cosine = _mm512_div_ps(_mm512_loadu_ps(products.dot + first), _mm512_sqrt_ps(norm));
        const __m512 score = _mm512_add_ps(_mm512_set1_ps(0.5F), cosine);
        const __m512 most = _mm512_add_ps(score, error);
        const __m512i lower = percents512Of(_mm512_sub_ps(score, error));
        const __m512i upper = percents512Of(most);
        _mm512_storeu_ps(scores.score + first, score);
        _mm512_storeu_si512(scores.lower + first, lower);
        _mm512_storeu_si512(scores.upper + first, upper);
        open |= std::uint64_t{_mm512_cmpneq_epi32_mask(lower, upper)} << first;
        contending |= std::uint64_t{_mm512_cmp_ps_mask(most, _mm512_set1_ps(toBeat), _CMP_GT_OQ)} << first;
        safe |= std::uint64_t{_mm512_mask_cmp_ps_mask(
                    _mm512_cmp_ps_mask(norm, _mm512_set1_ps(leastSquaredNorm), _CMP_GE_OQ), norm,
                    _mm512_set1_ps(mostSquaredNorm), _CMP_LE_OQ)}
                << first;
    }
    scores.open = open;
    scores.contending = contending;
    scores.unsafe = safe ^ (~std::uint64_t{0} >> (galleryBlock - count));
}

struct Sums512 {
    __m512 values; // lanes: two of the dot product, two of the squared norm
    __m512i bytes; // exclusive or of the feature
};

// One chain of sums each: several templates are under way at a time, so waiting costs nothing, but bringing two chains
// together would.
VELDAN_AVX512 inline __attribute__((always_inline)) Sums512 sumsOf(const unsigned char* entry, const __m512* probe) {
    const unsigned char* const feature = entry + templateHeadLength;
    const __m512 v0 = load16(feature, 0);
    const __m512 v1 = load16(feature, 1);
    __m512i bytes = _mm512_xor_si512(_mm512_castps_si512(v0), _mm512_castps_si512(v1));
    __m512 dot = _mm512_fmadd_ps(v1, probe[1], _mm512_mul_ps(v0, probe[0]));
    __m512 norm = _mm512_fmadd_ps(v1, v1, _mm512_mul_ps(v0, v0));
#pragma GCC unroll 3
    for (int i = 2; i < 8; i += 2) {
        const __m512 even = load16(feature, i);
        const __m512 odd = load16(feature, i + 1);
        bytes = xor3(bytes, _mm512_castps_si512(even), _mm512_castps_si512(odd));
        dot = _mm512_fmadd_ps(odd, probe[i + 1], _mm512_fmadd_ps(even, probe[i], dot));
        norm = _mm512_fmadd_ps(odd, odd, _mm512_fmadd_ps(even, even, norm));
    }
    return {addLanes(dot, norm), bytes};
}

VELDAN_AVX512 void scoreAvx512(const unsigned char* templates, int count, const GalleryProbe& probe, float toBeat,
                               GalleryScores& scores) {
    if (count < group) {
        portableKernel.score(templates, count, probe, toBeat, scores);
        return;
    }
    __m512 direction[8];
    for (int i = 0; i < 8; ++i)
        direction[i] = _mm512_load_ps(probe.halfDirection + static_cast<std::ptrdiff_t>(i) * 16);
    const __m512i order = _mm512_setr_epi32(0, 8, 1, 9, 2, 10, 3, 11, 4, 12, 5, 13, 6, 14, 7, 15);
    const __m512i starts = _mm512_setr_epi64(0, size, 2 * size, 3 * size, 4 * size, 5 * size, 6 * size, 7 * size);
    std::int64_t tagBits;
    std::memcpy(&tagBits, probe.tag, sizeof tagBits);
    const __m512i tag = _mm512_set1_epi64(tagBits);
    Products products;
    std::uint64_t refused = 0;
    for (int done = 0; done < count; done += group) {
        const int first = std::min(done, count - group);
        const unsigned char* const entry = templates + first * size;
        const __m512i heads = _mm512_i64gather_epi64(starts, entry, 1);
        // One after the other, as they lie in memory: any other order takes the processor's prefetching in.
        const Sums512 s0 = sumsOf(entry, direction);
        const Sums512 s1 = sumsOf(entry + size, direction);
        const __m512 v01 = addLanes(s0.values, s1.values);
        const __m512i b01 = xorWithinLanes(s0.bytes, s1.bytes);
        const Sums512 s2 = sumsOf(entry + 2 * size, direction);
        const Sums512 s3 = sumsOf(entry + 3 * size, direction);
        const __m512 v0123 = addWithinLanes(v01, addLanes(s2.values, s3.values));
        const __m512i b0123 = xorLanes(b01, xorWithinLanes(s2.bytes, s3.bytes));
        const Sums512 s4 = sumsOf(entry + 4 * size, direction);
        const Sums512 s5 = sumsOf(entry + 5 * size, direction);
        const __m512 v45 = addLanes(s4.values, s5.values);
        const __m512i b45 = xorWithinLanes(s4.bytes, s5.bytes);
        const Sums512 s6 = sumsOf(entry + 6 * size, direction);
        const Sums512 s7 = sumsOf(entry + 7 * size, direction);
        const __m512 v4567 = addWithinLanes(v45, addLanes(s6.values, s7.values));
        const __m512i b4567 = xorLanes(b45, xorWithinLanes(s6.bytes, s7.bytes));
        // Lanes: dot products of the even templates, their squared norms, both of the odd ones.
        const __m512 lanes = addWithinLanes(v0123, v4567);
        const __m512 packed = _mm512_permutexvar_ps(order, lanes);
        _mm256_storeu_ps(products.dot + first, _mm512_castps512_ps256(packed));
        _mm256_storeu_ps(products.norm + first, _mm512_extractf32x8_ps(packed, 1));
        __m512i sum = _mm512_xor_si512(heads, xorLanes(b0123, b4567));
        sum = _mm512_xor_si512(sum, _mm512_srli_epi64(sum, 32));
        sum = _mm512_xor_si512(sum, _mm512_srli_epi64(sum, 16));
        sum = _mm512_xor_si512(sum, _mm512_srli_epi64(sum, 8));
        // Damaged, or of the other kind.
        refused |= std::uint64_t(_mm512_test_epi64_mask(sum, _mm512_set1_epi64(0xFF)) |
                                 _mm512_test_epi64_mask(_mm512_xor_si512(heads, tag), _mm512_set1_epi64(tagMask)))
                   << first;
    }
    if (count >= 16)
        scoreProducts512(products, count, toBeat, scores);
    else
        scoreProducts(products, count, toBeat, scores);
    scores.refused = refused;
}

} // namespace

} // namespace x86

const GalleryKernel avx512Kernel = {"avx512", x86::scoreAvx512};

} // namespace veldan

#endif
