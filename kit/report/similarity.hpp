#ifndef VELDAN_KIT_REPORT_SIMILARITY_HPP
#define VELDAN_KIT_REPORT_SIMILARITY_HPP

#include "report/json.hpp"

#include <veldan/template.hpp>
#include <veldan/thresholds.h>

#include <array>
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
std::string verdictOn(double similarity, Kind kind);

/** The rate of a step, such as "1 in 1000". */
std::string oneIn(const SimilarityStep& step);

/** All steps, and whether the similarity reaches them. */
Json stepsJson(double similarity, Kind kind);

/** @name Defaults of the programs */
///@{
inline constexpr double recognitionThreshold = VELDAN_SAME_PERSON / 100.0;
inline constexpr double maskedRecognitionThreshold = VELDAN_SAME_PERSON_MASKED / 100.0;
inline constexpr int enrolmentQuality = VELDAN_ENROLMENT_QUALITY;
inline constexpr int maskedFrom = VELDAN_MASKED;
///@}

/** The similarity that a text means, 0 to 1: "0.72", "72%" and "72" are the same. Throws CommandError (Usage). */
double similarityFrom(const std::string& text);

/** The least whole percentage from 1 on that is not below the similarity: what the library's tracked search takes. */
int wholePercent(double similarity);

} // namespace veldan::kit

#endif
