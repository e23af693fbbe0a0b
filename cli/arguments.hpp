#ifndef VELDAN_CLI_ARGUMENTS_HPP
#define VELDAN_CLI_ARGUMENTS_HPP

#include "kit_names.hpp"
#include "report/exit_codes.hpp"

#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace veldan::cli {

/** A command line that cannot be understood. */
class UsageError : public CommandError {
public:
    /** @param command  the command whose help tells more, such as "veldan gallery remove" */
    UsageError(const std::string& message, std::string command)
        : CommandError(ExitCode::Usage, message), command_(std::move(command)) {}

    const std::string& command() const { return command_; }

private:
    std::string command_;
};

/**
 * Parses the words after the program's name; help and version are printed on the way.
 * @return whether there is something left to do. Throws UsageError.
 */
bool parseArguments(CLI::App& app, std::vector<std::string> words);

/** Whether these words ask for JSON, however wrong they may be otherwise. */
bool asksForJson(const std::vector<std::string>& words);

} // namespace veldan::cli

#endif
