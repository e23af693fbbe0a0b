#include "photo/liveness_rates.hpp"

#include <algorithm>
#include <cstddef>

namespace veldan::kit {

namespace {

constexpr int best = 100; // a score above it cannot be

double shareFrom(const std::vector<int>& scores, int threshold) {
    const auto count = std::count_if(scores.begin(), scores.end(), [=](int score) { return score >= threshold; });
    return static_cast<double>(count) / static_cast<double>(scores.size());
}

} // namespace

LivenessRates livenessRates(const std::vector<int>& live, const std::vector<int>& attacks, int threshold) {
    return {threshold, shareFrom(attacks, threshold), 1 - shareFrom(live, threshold)};
}

std::optional<LivenessRates> chooseThreshold(const std::vector<int>& live, const std::vector<int>& attacks,
                                             const std::optional<double>& mostLetIn) {
    std::vector<LivenessRates> allowed;
    for (int threshold = 1; threshold <= best; ++threshold) {
        const LivenessRates rates = livenessRates(live, attacks, threshold);
        if (!mostLetIn || rates.letIn <= *mostLetIn)
            allowed.push_back(rates);
    }
    if (allowed.empty())
        return std::nullopt;
    const auto worse = [&](const LivenessRates& a, const LivenessRates& b) {
        return mostLetIn ? a.refused < b.refused : a.mean() < b.mean();
    };
    const auto first = std::min_element(allowed.begin(), allowed.end(), worse);
    const auto last =
        std::find_if(first, allowed.end(), [&](const LivenessRates& other) { return worse(*first, other); });
    return *(first + (last - first - 1) / 2);
}

double separation(const std::vector<int>& live, const std::vector<int>& attacks) {
    double above = 0;
    for (const int score : live) {
        for (const int attack : attacks)
            above += score > attack ? 1 : score == attack ? 0.5 : 0;
    }
    return above / (static_cast<double>(live.size()) * static_cast<double>(attacks.size()));
}

} // namespace veldan::kit
