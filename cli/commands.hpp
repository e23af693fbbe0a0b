#ifndef VELDAN_CLI_COMMANDS_HPP
#define VELDAN_CLI_COMMANDS_HPP

#include "kit_names.hpp"
#include "report/exit_codes.hpp"

#include <functional>

namespace CLI {
class App;
}

namespace veldan::cli {

/** What the chosen command line runs; parsing only fills it in, so that nothing happens before parsing has succeeded.
 */
using Action = std::function<ExitCode()>;

/** Each of these adds one subcommand to the application and stores its action when the user chose it. */
void addCalibrateCommand(CLI::App& app, Action& action);
void addDetectCommand(CLI::App& app, Action& action);
void addEnrollCommand(CLI::App& app, Action& action);
void addGalleryCommand(CLI::App& app, Action& action);
void addIdentifyCommand(CLI::App& app, Action& action);
void addInspectCommand(CLI::App& app, Action& action);
void addMatchCommand(CLI::App& app, Action& action);
void addNetworksCommand(CLI::App& app, Action& action);
void addServeCommand(CLI::App& app, Action& action);
/** A subcommand of the gallery command. */
void addShardCommand(CLI::App& galleryCommand, Action& action);
void addTemplateCommand(CLI::App& app, Action& action);
void addTokenCommand(CLI::App& app, Action& action);
void addVersionCommand(CLI::App& app, Action& action);
void addWatchCommand(CLI::App& app, Action& action);

} // namespace veldan::cli

#endif
