#ifndef VELDAN_KIT_REPORT_VERSION_HPP
#define VELDAN_KIT_REPORT_VERSION_HPP

#include "report/json.hpp"

namespace veldan::kit {

/** The versions of the programs, of the algorithm and of the image tools. */
Json versionJson();

} // namespace veldan::kit

#endif
