#include "recog/gallery_kernels.hpp"

#include "engine/rounding.hpp"
#include "recog/gallery_kernel_neon.hpp"
#include "recog/gallery_search.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#include "recog/gallery_kernels_x86.hpp"
#define VELDAN_X86_KERNELS 1
#else
#define VELDAN_X86_KERNELS 0
#endif

namespace veldan {

namespace {

// Sums that the compiler can keep in vectors of any size.
constexpr int lanes = 16;

bool isIntact(const unsigned char* entry, const GalleryProbe& probe) {
    std::uint64_t sum = 0;
    for (int i = 0; i < templateSize; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, entry + i, sizeof word);
        sum ^= word;
    }
    for (const int half : {32, 16, 8})
        sum ^= sum >> half;
    return (sum & 0xFFU) == 0 && std::memcmp(entry, probe.tag, templateTagLength) == 0;
}

float sumOf(float* sums) {
    for (int width = lanes / 2; width > 0; width /= 2)
        for (int i = 0; i < width; ++i)
            sums[i] += sums[i + width];
    return sums[0];
}

std::int32_t percentOf(float score) {
    return std::max(percent(score), 0);
}

void scorePortably(const unsigned char* templates, int count, const GalleryProbe& probe, float toBeat,
                   GalleryScores& scores) {
    scores.open = scores.contending = scores.refused = scores.unsafe = 0;
    for (int k = 0; k < count; ++k) {
        const unsigned char* const entry = templates + static_cast<std::ptrdiff_t>(k) * templateSize;
        float feature[featureLength];
        std::memcpy(feature, entry + templateHeadLength, sizeof feature);
        float dots[lanes] = {};
        float norms[lanes] = {};
        for (int j = 0; j < featureLength; j += lanes) {
            for (int i = 0; i < lanes; ++i)
                dots[i] += feature[j + i] * probe.halfDirection[j + i];
            for (int i = 0; i < lanes; ++i)
                norms[i] += feature[j + i] * feature[j + i];
        }
        const float norm = sumOf(norms);
        const std::uint64_t bit = std::uint64_t{1} << k;
        if (!isIntact(entry, probe))
            scores.refused |= bit;
        if (!(norm >= leastSquaredNorm && norm <= mostSquaredNorm))
            scores.unsafe |= bit;
        const float score = 0.5F + sumOf(dots) / std::sqrt(norm);
        scores.score[k] = score;
        scores.lower[k] = percentOf(score - galleryScoreError);
        scores.upper[k] = percentOf(score + galleryScoreError);
        if (scores.lower[k] != scores.upper[k])
            scores.open |= bit;
        if (score + galleryScoreError > toBeat)
            scores.contending |= bit;
    }
}

} // namespace

const GalleryKernel portableKernel = {"portable", scorePortably};

GalleryKernel fastestGalleryKernel() {
#if VELDAN_X86_KERNELS
    if (runsAvx512())
        return avx512Kernel;
    if (runsAvx2())
        return avx2Kernel;
#elif VELDAN_NEON_KERNEL
    return neonKernel;
#endif
    return portableKernel;
}

std::vector<GalleryKernel> galleryKernels() {
    std::vector<GalleryKernel> kernels;
#if VELDAN_X86_KERNELS
    if (runsAvx512())
        kernels.push_back(avx512Kernel);
    if (runsAvx2())
        kernels.push_back(avx2Kernel);
#elif VELDAN_NEON_KERNEL
    kernels.push_back(neonKernel);
#endif
    kernels.push_back(portableKernel);
    return kernels;
}

} // namespace veldan
