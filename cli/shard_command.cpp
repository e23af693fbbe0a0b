#ifdef VELDAN_WITH_POSTGRESQL

#include "commands.hpp"
#include "gallery/location.hpp"
#include "gallery/shards.hpp"
#include "report/printable.hpp"
#include "system/file_bytes.hpp"

#include <CLI/CLI.hpp>

#include <filesystem>
#include <iostream>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace veldan::cli {

namespace {

namespace fs = std::filesystem;

struct ShardOptions {
    std::vector<std::string> locations;
    std::string folder;
    int first = 1;
};

ExitCode writeShards(const ShardOptions& options) {
    std::vector<ShardServer> servers;
    servers.reserve(options.locations.size());
    for (const std::string& location : options.locations)
        servers.push_back({options.first + static_cast<int>(servers.size()), location});
    std::vector<std::pair<std::string, std::string>> files;
    files.reserve(servers.size() + 1);
    for (const ShardServer& server : servers)
        files.emplace_back("shard-" + std::to_string(server.number) + ".sql", shardSql(server.number));
    files.emplace_back(options.first == 1 ? "gallery.sql" : "gallery-add-" + std::to_string(options.first) + ".sql",
                       routerSql(servers, options.first > 1));

    std::error_code error;
    fs::create_directories(options.folder, error);
    for (const auto& [name, text] : files) {
        const fs::path path = fs::path(options.folder) / name;
        if (fs::exists(path, error))
            throw CommandError(ExitCode::NotWritten, printable(path.string()) + ": exists already");
        try {
            // Passwords may be in it.
            writeFile(path, reinterpret_cast<const unsigned char*>(text.data()), text.size(), forOwner);
        } catch (const CommandError& failure) {
            throw CommandError(failure.code(), printable(path.string()) + ": " + failure.what());
        }
    }
    for (std::size_t i = 0; i < files.size(); ++i)
        std::cout << printable((fs::path(options.folder) / files[i].first).string()) << ": to be run "
                  << (i < servers.size() ? "on " + printable(shownLocation(servers[i].location))
                                         : "in the database of the gallery")
                  << '\n';
    return ExitCode::Success;
}

} // namespace

void addShardCommand(CLI::App& galleryCommand, Action& action) {
    const auto options = std::make_shared<ShardOptions>();
    CLI::App* command = galleryCommand.add_subcommand(
        "shard", "Write the SQL that spreads the templates of a gallery in PostgreSQL over several servers");
    command->footer(
        "Exit codes: 0 done; 2 wrong usage; 7 a file exists already or cannot be written.\n"
        "\n"
        "Examples:\n"
        "  veldan gallery shard --output sql postgresql://veldan@host1/faces postgresql://veldan@host2/faces\n"
        "  veldan gallery shard --output sql --first 3 postgresql://veldan@host3/faces\n"
        "The second one adds a third server to the two.\n");
    command
        ->add_option("SERVER", options->locations, "An empty database on a server, as the gallery's server reaches it")
        ->required()
        ->type_name("");
    command->add_option("-o,--output", options->folder, "The folder for the SQL files")
        ->required()
        ->type_name("FOLDER");
    command->add_option("--first", options->first, "Number of the first of these servers; above 1, they are added")
        ->check(CLI::Range(1, 1000000))
        ->type_name("N");
    command->callback([options, &action] { action = [options] { return writeShards(*options); }; });
}

} // namespace veldan::cli

#endif
