#ifndef VELDAN_TEMPLATE_HPP
#define VELDAN_TEMPLATE_HPP

/**
 * @file
 * Templates as C++17 programs keep them, and whether one that comes from elsewhere can be a template at all. C++ only,
 * on top of <veldan/feature_template.hpp>. No state: any number of threads may call these functions.
 */

#include <veldan/feature_template.hpp>

#include <array>
#include <cmath>
#include <cstddef>

namespace veldan {

/** Templates of the two kinds are never similar to each other. */
enum class Kind { Bare = 1, Masked = 2 };

/** Bytes of a template of either kind. */
constexpr std::size_t templateBytes = 520;
using Template = std::array<unsigned char, templateBytes>;

/**
 * @name Euclidean length that a feature must have
 * Features of photos have lengths of 30 to 130, those of flat, checkered and noisy pictures 23 to 82. The limits lie
 * far outside, so that they hold for other networks as well, and far inside of what 32-bit floats can hold, so that
 * similarities of such features lie between 0 and 1.
 */
///@{
constexpr double leastFeatureNorm = 0.1;
constexpr double mostFeatureNorm = 10000;
///@}

/**
 * Why these bytes are no template that extraction could have made, in words that continue "the template ...".
 *
 * The checksum protects against accidents only. Bytes with a right checksum may still hold values that are infinite,
 * not a number or so small that their squares vanish; the similarities of such templates are not bounded, and
 * zzMatchFeatureThread() and the searches take them as they are. So whoever takes templates from outside, such as from
 * a file, asks here first; the functions of <veldan/veldan.hpp> do so.
 * @return a constant text; empty when nothing is wrong
 */
inline const char* flawOf(const Template& one, Kind kind) {
    std::array<float, 128> feature;
    switch (TzDecode(static_cast<int>(kind), one.data(), static_cast<int>(one.size()),
                     reinterpret_cast<unsigned char*>(feature.data()))) {
    case 0:
        break;
    case -2:
        return "is of the other kind, or none at all";
    default:
        return "is damaged: its checksum does not hold";
    }
    double squares = 0;
    for (const float value : feature)
        squares += static_cast<double>(value) * static_cast<double>(value);
    if (!std::isfinite(squares))
        return "holds values that are not numbers";
    if (squares < leastFeatureNorm * leastFeatureNorm || squares > mostFeatureNorm * mostFeatureNorm)
        return "holds a feature of a length that no face has";
    return "";
}

/** Whether extraction could have made the template. */
inline bool plausible(const Template& one, Kind kind) {
    return *flawOf(one, kind) == '\0';
}

} // namespace veldan

#endif
