#include "comparison.h"

#include "recog/similarity.hpp"
#include "recog/template_layout.hpp"

#include <cstring>

namespace {

// The server aligns values of the type for doubles.
const float* featureOf(const unsigned char* bytes) {
    return reinterpret_cast<const float*>(bytes + veldan::templateHeadLength);
}

} // namespace

extern "C" float veldan_similarity(const unsigned char* enrolled, const unsigned char* probe) {
    if (std::memcmp(enrolled, probe, veldan::templateTagLength) != 0)
        return 0;
    return static_cast<float>(veldan::similarity(featureOf(enrolled), featureOf(probe)));
}
