#ifndef VELDAN_ENGINE_ROUNDING_HPP
#define VELDAN_ENGINE_ROUNDING_HPP

#include <cmath>
#include <limits>

namespace veldan {

// Truncation toward zero that is defined for every value: what an int cannot hold becomes the nearest int, a value that
// is no number 0.
inline int truncate(float value) {
    if (std::isnan(value))
        return 0;
    if (value >= static_cast<float>(std::numeric_limits<int>::max()))
        return std::numeric_limits<int>::max();
    if (value <= static_cast<float>(std::numeric_limits<int>::min()))
        return std::numeric_limits<int>::min();
    return static_cast<int>(value);
}

// Nearest integer. Halves above zero go to the even neighbour; those below zero are never found as such, since the
// truncation lies above them, and go away from zero. On purpose: 2.5 gives 2, -2.5 gives -3.
inline int roundHalves(float value) {
    const int whole = truncate(value);
    if (static_cast<double>(value) == whole + 0.5)
        return whole % 2 == 0 ? whole : truncate(2 * value - static_cast<float>(whole));
    return truncate(std::round(value));
}

// A probability as the scores of a record give it. The product is one of single precision, and cut off: 1 is the only
// probability that gives 100.
inline int percent(float probability) {
    return truncate(100.0F * probability);
}

} // namespace veldan

#endif
