#include "commands.hpp"
#include "report/json.hpp"
#include "report/version.hpp"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>

namespace veldan::cli {

namespace {

ExitCode printVersion(bool json) {
    const Json version = versionJson();
    if (json)
        std::cout << written(version) << '\n';
    else
        std::cout << "veldan       " << version["veldan"].get<std::string>() << '\n'
                  << "algorithm    " << version["algorithm"].get<std::string>() << '\n'
                  << "image tools  " << version["imageTools"].get<std::string>() << '\n';
    return ExitCode::Success;
}

} // namespace

void addVersionCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("version", "Print the versions of the command and of the library");
    const auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print JSON");
    command->footer("Examples:\n  veldan version\n  veldan version --json\n");
    command->callback([json, &action] { action = [json] { return printVersion(*json); }; });
}

} // namespace veldan::cli
