#ifndef VELDAN_KIT_PHOTO_LIVENESS_RATES_HPP
#define VELDAN_KIT_PHOTO_LIVENESS_RATES_HPP

#include <optional>
#include <vector>

namespace veldan::kit {

/** What a threshold does: a face counts as live from this score on. Rates are shares, 0 to 1. */
struct LivenessRates {
    int threshold = 0;
    double letIn = 0;   ///< attacks that count as live
    double refused = 0; ///< live faces that count as attacks

    double mean() const { return (letIn + refused) / 2; }
};

/** @param live, attacks  scores of 0 to 100, at least one of each */
LivenessRates livenessRates(const std::vector<int>& live, const std::vector<int>& attacks, int threshold);

/**
 * The threshold, 1 to 100, to use for faces like these. With a limit it is the lowest that lets in no larger share of
 * the attacks, and nothing when none does; without one it has the smallest mean error. Of several thresholds that are
 * equally good the middle one is taken, where it is safest against scores that come out a little different.
 */
std::optional<LivenessRates> chooseThreshold(const std::vector<int>& live, const std::vector<int>& attacks,
                                             const std::optional<double>& mostLetIn);

/** How often a live face scores higher than an attack, equal scores counted half. */
double separation(const std::vector<int>& live, const std::vector<int>& attacks);

} // namespace veldan::kit

#endif
