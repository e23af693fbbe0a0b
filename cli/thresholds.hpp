#ifndef VELDAN_CLI_THRESHOLDS_HPP
#define VELDAN_CLI_THRESHOLDS_HPP

namespace veldan::cli {

/** @name Defaults of the commands */
///@{
/** Similarity from which two bare faces count as one person: 1 in 1000 pairs of different people reach it. */
inline constexpr double recognitionThreshold = 0.70;
/** The same for faces with masks. */
inline constexpr double maskedRecognitionThreshold = 0.77;
/** Quality that a photo needs to be enrolled. */
inline constexpr int enrolmentQuality = 40;
///@}

/** From this maskScore on a face counts as masked, as in the library's combined flows. */
inline constexpr int maskedFrom = 41;

} // namespace veldan::cli

#endif
