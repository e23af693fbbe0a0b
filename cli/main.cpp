#include "commands.hpp"
#include "printable.hpp"

#include <CLI/CLI.hpp>

#include <exception>
#include <iostream>
#include <string>
#include <vector>

namespace {

using veldan::cli::ExitCode;

ExitCode run(int argc, char** argv) {
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
               "\"veldan COMMAND --help\" tells more about a command.\n");
    app.failure_message(CLI::FailureMessage::simple);

    veldan::cli::Action action;
    veldan::cli::addDetectCommand(app, action);
    veldan::cli::addEnrollCommand(app, action);
    veldan::cli::addGalleryCommand(app, action);
    veldan::cli::addIdentifyCommand(app, action);
    veldan::cli::addInspectCommand(app, action);
    veldan::cli::addMatchCommand(app, action);
    veldan::cli::addNetworksCommand(app, action);
    veldan::cli::addTemplateCommand(app, action);
    veldan::cli::addVersionCommand(app, action);
    veldan::cli::addWatchCommand(app, action);

    try {
        app.parse(argc, argv);
    } catch (const CLI::RequiredError& error) {
        // A mistyped command counts as a missing one; the word itself helps more.
        if (const std::vector<std::string> words = app.remaining(true); !words.empty()) {
            std::cerr << "There is no command \"" << words.front() << "\"\nRun with --help for more information.\n";
            return ExitCode::Usage;
        }
        app.exit(error);
        return ExitCode::Usage;
    } catch (const CLI::ParseError& error) {
        // Help and version end parsing the same way as a mistake does; only the latter has a code of its own.
        return app.exit(error) == 0 ? ExitCode::Success : ExitCode::Usage;
    }
    return action();
}

} // namespace

int main(int argc, char** argv) {
    ExitCode code = ExitCode::Internal;
    try {
        code = run(argc, argv);
        // A full disk or a closed pipe shows only when the text leaves the buffer.
        if (!std::cout.flush()) {
            std::cerr << "veldan: the output could not be written\n";
            code = ExitCode::NotWritten;
        }
    } catch (const veldan::cli::CommandError& error) {
        std::cerr << "veldan: " << veldan::cli::printable(error.what()) << '\n';
        code = error.code();
    } catch (const std::exception& error) {
        std::cerr << "veldan: unexpected failure: " << error.what() << '\n';
    }
    return static_cast<int>(code);
}
