#ifndef VELDAN_KIT_REPORT_PRINTABLE_HPP
#define VELDAN_KIT_REPORT_PRINTABLE_HPP

#include <cstddef>
#include <string>
#include <string_view>

namespace veldan::kit {

/** The UTF-8 character that a text begins with. */
struct Character {
    std::size_t bytes = 0; ///< 0: the text begins with none
    bool control = false;  ///< below U+0020, or U+007F to U+009F
};

/** Of a text that is not empty. */
Character firstCharacter(std::string_view text);

/**
 * A line as a terminal may see it: names of files and people come from others, and control characters among them would
 * move the cursor or do worse. These, and what is not UTF-8, become question marks.
 */
std::string printable(std::string_view line);

} // namespace veldan::kit

#endif
