#include "arguments.hpp"
#include "commands.hpp"
#include "help_tree.hpp"
#include "report/json.hpp"
#include "report/messages.hpp"
#include "system/file_bytes.hpp"
#include "system/foreign_noise.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

using veldan::kit::ExitCode;

ExitCode run(const std::vector<std::string>& words) {
    CLI::App app{"Finds, judges and recognises faces.", "veldan"};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("veldan ") + VELDAN_VERSION);
    app.footer("Examples:\n"
               "  veldan detect photo.jpg\n"
               "  veldan detect photo.jpg --draw faces.jpg\n"
               "  veldan detect *.jpg --json > faces.json\n"
               "  veldan inspect photo.jpg --draw judged.jpg\n"
               "  veldan enroll --gallery people.db \"Ada Lovelace\" ada.jpg\n"
               "  veldan identify --gallery people.db photo.jpg --draw named.jpg\n"
               "  veldan networks\n"
               "\"veldan help COMMAND\" tells more about a command.\n");

    veldan::cli::Action action;
    veldan::cli::addCalibrateCommand(app, action);
    veldan::cli::addDetectCommand(app, action);
    veldan::cli::addEnrollCommand(app, action);
    veldan::cli::addGalleryCommand(app, action);
    veldan::cli::addIdentifyCommand(app, action);
    veldan::cli::addInspectCommand(app, action);
    veldan::cli::addMatchCommand(app, action);
    veldan::cli::addNetworksCommand(app, action);
#ifdef VELDAN_WITH_SERVICE
    veldan::cli::addServeCommand(app, action);
#endif
    veldan::cli::addTemplateCommand(app, action);
#ifdef VELDAN_WITH_SERVICE
    veldan::cli::addTokenCommand(app, action);
#endif
    veldan::cli::addVersionCommand(app, action);
#ifdef VELDAN_WITH_VIDEO
    veldan::cli::addWatchCommand(app, action);
#endif
    app.add_subcommand("help-tree", "Print the help of all commands as JSON, for manual pages and completions")
        ->group("")
        ->callback([&] {
            action = [&app] {
                std::cout << veldan::kit::written(veldan::cli::helpTree(app)) << '\n';
                return ExitCode::Success;
            };
        });

    return veldan::cli::parseArguments(app, words) ? action() : ExitCode::Success;
}

/** A document of its own for a failure that left no other one. */
void printFailure(ExitCode code, const std::string& message) {
    std::cout << veldan::kit::written({{"version", VELDAN_VERSION}, {"error", veldan::kit::failureJson(code, message)}})
              << '\n';
}

ExitCode guarded(const std::vector<std::string>& words) {
    const bool json = veldan::cli::asksForJson(words);
    try {
        return run(words);
    } catch (const veldan::kit::CommandError& error) {
        veldan::kit::tellUser(error.what());
        if (const auto* usage = dynamic_cast<const veldan::cli::UsageError*>(&error))
            veldan::kit::tellUser("\"" + usage->command() + " --help\" tells more");
        if (json && !error.inOutput())
            printFailure(error.code(), error.what());
        return error.code();
    } catch (const std::exception& error) {
        const std::string message = std::string("unexpected failure: ") + error.what();
        veldan::kit::tellUser(message);
        if (json)
            printFailure(ExitCode::Internal, message);
        return ExitCode::Internal;
    }
}

} // namespace

int main(int argc, char** argv) {
    std::signal(SIGXFSZ, SIG_IGN); // a limit on the size of files is a failure to report, not one to die of
    veldan::kit::muteForeignNoise();
    ExitCode code = guarded({argv + 1, argv + std::max(argc, 1)});
    // A full disk or a closed pipe shows only when the text leaves the buffer.
    if (!std::cout.flush()) {
        // What the stream met is long overwritten; a byte more meets it again.
        const bool again = ::write(STDOUT_FILENO, "\n", 1) < 0;
        std::cerr << "veldan: the output could not be written" << (again ? ": " + veldan::kit::reasonOf(errno) : "")
                  << '\n';
        code = ExitCode::NotWritten;
    }
    return static_cast<int>(code);
}
