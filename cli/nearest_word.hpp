#ifndef VELDAN_CLI_NEAREST_WORD_HPP
#define VELDAN_CLI_NEAREST_WORD_HPP

#include <string>
#include <vector>

namespace veldan::cli {

/** The known word that a mistyped one was probably meant to be; empty when none is near. */
std::string nearestWord(const std::string& word, const std::vector<std::string>& known);

} // namespace veldan::cli

#endif
