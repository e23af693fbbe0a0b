#ifndef VELDAN_KIT_REPORT_JSON_HPP
#define VELDAN_KIT_REPORT_JSON_HPP

#include "report/exit_codes.hpp"

#include <nlohmann/json.hpp>

#include <string>

namespace veldan::kit {

/** Objects keep the order in which their fields were set. */
using Json = nlohmann::ordered_json;

/**
 * A document as it leaves the program, without an end of line. Names of files and people need not be UTF-8; what is not
 * is replaced rather than losing the whole document.
 * @param indent  blanks for each level; -1: all on one line
 */
std::string written(const Json& document, int indent = 2);

/** A failure as every document has it: name and number of its exit code, and what happened. */
Json failureJson(ExitCode code, const std::string& message);

} // namespace veldan::kit

#endif
