#ifndef VELDAN_RECOG_SIMILARITY_HPP
#define VELDAN_RECOG_SIMILARITY_HPP

#include "recog/template_layout.hpp"

#include <cmath>

namespace veldan {

// The similarity that all scores come from. Products in single precision, sums in double, one after the other: the last
// bit counts, since scores are compared with thresholds.
inline double similarity(const float* a, const float* b) {
    double dot = 0;
    double na = 0;
    double nb = 0;
    for (int j = 0; j < featureLength; ++j) {
        dot += static_cast<double>(a[j] * b[j]);
        na += static_cast<double>(a[j] * a[j]);
        nb += static_cast<double>(b[j] * b[j]);
    }
    // Deliberately without a guard: a feature of zeros has no direction, and "not a number" compares as no match.
    const double cosine = dot / std::sqrt(na) / std::sqrt(nb);
    return (cosine + 1.0) / 2.0;
}

} // namespace veldan

#endif
