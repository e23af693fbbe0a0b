#include "comparison.h"

#include "exact_sums.hpp"
#include "recog/template_layout.hpp"

#include <cmath>
#include <cstring>

static_assert(VELDAN_TEMPLATE_SIZE == veldan::templateSize);

namespace {

// Where the server puts values of the type, floats are aligned.
const float* featureOf(const unsigned char* bytes) {
    return reinterpret_cast<const float*>(bytes + veldan::templateHeadLength);
}

} // namespace

extern "C" void veldan_prepare_probe(veldan_probe* probe, const unsigned char* bytes) {
    std::memcpy(probe->bytes, bytes, sizeof probe->bytes);
    const float* const feature = featureOf(probe->bytes);
    probe->squared_norm = veldan::exact::plainSums(feature, feature, 0).squaredNorm;
    probe->norm = std::sqrt(probe->squared_norm);
}

extern "C" float veldan_similarity(const unsigned char* enrolled, const veldan_probe* probe) {
    static const veldan::exact::SumsFunction sumsOf = veldan::exact::fastestSums();
    if (std::memcmp(enrolled, probe->bytes, veldan::templateTagLength) != 0)
        return 0;
    const veldan::exact::Sums sums = sumsOf(featureOf(enrolled), featureOf(probe->bytes), probe->squared_norm);
    // As src/recog/similarity.hpp ends.
    const double cosine = sums.dot / std::sqrt(sums.squaredNorm) / probe->norm;
    return static_cast<float>((cosine + 1.0) / 2.0);
}
