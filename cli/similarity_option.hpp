#ifndef VELDAN_CLI_SIMILARITY_OPTION_HPP
#define VELDAN_CLI_SIMILARITY_OPTION_HPP

#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace veldan::cli {

/** How similarities are written, for the help of commands that take them. */
inline constexpr const char* similarityHelp =
    "A similarity is a number from 0 to 1, as in the output, or percent: 0.72, 72% and 72 are the same; numbers above\n"
    "1 are percent, and 1 without a sign is 1.0.\n";

/** The similarity that a text means, 0 to 1. Throws CommandError (Usage). */
double similarityFrom(const std::string& text);

/** The least whole percentage from 1 on that is not below the similarity: what the library's tracked search takes. */
int wholePercent(double similarity);

/** Adds an option that takes a similarity. @param value  must outlive the parsing; holds the default */
CLI::Option* addSimilarityOption(CLI::App& command, const std::string& name, double& value, const std::string& help);

} // namespace veldan::cli

#endif
