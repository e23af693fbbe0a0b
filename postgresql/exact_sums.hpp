#ifndef VELDAN_POSTGRESQL_EXACT_SUMS_HPP
#define VELDAN_POSTGRESQL_EXACT_SUMS_HPP

#include "recog/template_layout.hpp"

namespace veldan::exact {

// The two sums of a comparison with a prepared probe.
struct Sums {
    double dot;
    double squaredNorm;
};

// Computes the sums of src/recog/similarity.hpp: of products in single precision, added up in double precision one
// after the other. Features need no alignment.
using SumsFunction = Sums (*)(const float* feature, const float* probe, double squaredProbeNorm);

// By the definition. A chain of 128 additions for each sum, most of it waiting.
Sums plainSums(const float* feature, const float* probe, double squaredProbeNorm);

// The fastest one that this processor runs. All give the same bits.
SumsFunction fastestSums();

// The plain one first.
struct NamedSums {
    const char* name;
    SumsFunction function; // null where this processor cannot run it
};
constexpr int sumsNumber = 3;
const NamedSums (&allSums())[sumsNumber];

} // namespace veldan::exact

#endif
