#ifndef VELDAN_KIT_REPORT_MESSAGES_HPP
#define VELDAN_KIT_REPORT_MESSAGES_HPP

#include <string>

namespace veldan::kit {

/** Writes a message for the user to standard error, behind what was printed before it. One line, safe for a terminal.
 */
void tellUser(const std::string& message);

} // namespace veldan::kit

#endif
