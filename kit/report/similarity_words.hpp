#ifndef VELDAN_KIT_REPORT_SIMILARITY_WORDS_HPP
#define VELDAN_KIT_REPORT_SIMILARITY_WORDS_HPP

#include <veldan/veldan.hpp>

#include <array>
#include <cmath>
#include <string>

namespace veldan::kit {

/** What it means that two faces are at least this similar. */
struct SimilarityStep {
    double similarity;     ///< 0 to 1
    double falseMatchRate; ///< share of pairs of different people that are this similar
    const char* verdict;
};

using SimilaritySteps = std::array<SimilarityStep, 4>;

// The similarities are measured ones: docs/thresholds.md says on what, and other networks need other numbers.
inline constexpr SimilaritySteps bareSteps = {{{0.65, 1e-2, "perhaps the same person"},
                                               {0.70, 1e-3, "probably the same person"},
                                               {0.74, 1e-4, "very probably the same person"},
                                               {0.77, 1e-5, "almost certainly the same person"}}};
inline constexpr SimilaritySteps maskedSteps = {{{0.70, 1e-2, "perhaps the same person"},
                                                 {0.77, 1e-3, "probably the same person"},
                                                 {0.81, 1e-4, "very probably the same person"},
                                                 {0.84, 1e-5, "almost certainly the same person"}}};

/** In ascending order of the similarity. */
inline const SimilaritySteps& similaritySteps(Kind kind) {
    return kind == Kind::Bare ? bareSteps : maskedSteps;
}

/** What the similarity of two faces says about them, in words. */
inline std::string verdictOn(double similarity, Kind kind) {
    std::string verdict = "probably different people";
    for (const SimilarityStep& step : similaritySteps(kind))
        if (similarity >= step.similarity)
            verdict = step.verdict;
    return verdict;
}

/** The rate of a step, such as "1 in 1000". */
inline std::string oneIn(const SimilarityStep& step) {
    return "1 in " + std::to_string(std::lround(1 / step.falseMatchRate));
}

} // namespace veldan::kit

#endif
