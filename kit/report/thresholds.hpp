#ifndef VELDAN_KIT_REPORT_THRESHOLDS_HPP
#define VELDAN_KIT_REPORT_THRESHOLDS_HPP

#include <veldan/thresholds.h>

namespace veldan::kit {

/** @name Defaults of the commands, as they take and print them */
///@{
inline constexpr double recognitionThreshold = VELDAN_SAME_PERSON / 100.0;
inline constexpr double maskedRecognitionThreshold = VELDAN_SAME_PERSON_MASKED / 100.0;
inline constexpr int enrolmentQuality = VELDAN_ENROLMENT_QUALITY;
///@}

inline constexpr int maskedFrom = VELDAN_MASKED;

} // namespace veldan::kit

#endif
