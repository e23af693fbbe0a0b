#ifndef VELDAN_CLI_HELP_TREE_HPP
#define VELDAN_CLI_HELP_TREE_HPP

#include "kit_names.hpp"
#include "report/json.hpp"

namespace CLI {
class App;
}

namespace veldan::cli {

/**
 * All that the help of the command and of its subcommands tells, as data: what manual pages and completions are made
 * of.
 *
 * A command has "name", "description", "text" (what stands below its options), "options", "arguments" and "commands",
 * all in the order of the help. An option has "names"; one with a value also "value", the word that stands for it, and,
 * where there is one, "range" and "default". Arguments and options say whether they are "required" and may be given
 * "often".
 */
Json helpTree(const CLI::App& app);

} // namespace veldan::cli

#endif
