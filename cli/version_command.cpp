#include "commands.hpp"
#include "report/json.hpp"

#include <veldan/face_api.h>
#include <veldan/image_tool.h>

#include <CLI/CLI.hpp>

#include <array>
#include <iostream>
#include <memory>

namespace veldan::cli {

namespace {

ExitCode printVersion(bool json) {
    std::array<char, VELDAN_VERSION_SIZE> algorithm{};
    zzGetAlgVersionThread(algorithm.data());
    std::array<char, VELDAN_TOOL_VERSION_SIZE> imageTools{};
    CVToolVersion(imageTools.data());
    if (json) {
        const Json document = {
            {"veldan", VELDAN_VERSION}, {"algorithm", algorithm.data()}, {"imageTools", imageTools.data()}};
        std::cout << written(document) << '\n';
    } else {
        std::cout << "veldan       " << VELDAN_VERSION << '\n'
                  << "algorithm    " << algorithm.data() << '\n'
                  << "image tools  " << imageTools.data() << '\n';
    }
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
