#ifndef VELDAN_CLI_KIT_NAMES_HPP
#define VELDAN_CLI_KIT_NAMES_HPP

namespace veldan::kit {}

namespace veldan::cli {

using namespace kit; // what the command shares with other programs, it calls by its plain names

} // namespace veldan::cli

#endif
