#include "commands.hpp"
#include "tokens.hpp"

#include <CLI/CLI.hpp>

#include <iostream>
#include <memory>
#include <string>

namespace veldan::cli {

namespace {

struct TokenOptions {
    std::string file;
    std::string name;
    std::string role;
    std::string expiry;
};

} // namespace

void addTokenCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("token", "Make tokens that let programs and people into veldan serve");
    command->require_subcommand(1);
    command->footer("Examples:\n"
                    "  veldan token new --tokens tokens.txt door read\n"
                    "  veldan token new --tokens tokens.txt reception enrol --expires 2030-12-31\n");
    const auto options = std::make_shared<TokenOptions>();
    CLI::App* added = command->add_subcommand("new", "Make a token, print it and add its digest to a file");
    added->add_option("--tokens", options->file, "The file; it is created when there is none")
        ->type_name("FILE")
        ->required();
    added->add_option("NAME", options->name, "Who gets the token, for logs")->type_name("")->required();
    added->add_option("ROLE", options->role, "read: look and search; enrol: add people, too; admin: everything")
        ->type_name("")
        ->required()
        ->check(CLI::IsMember({"read", "enrol", "admin"}));
    added->add_option("--expires", options->expiry, "The last day on which it holds, UTC")->type_name("YYYY-MM-DD");
    added->footer(
        "The token is printed once and kept nowhere; the file holds its SHA-256. To take a token away, delete\n"
        "its line and send the server SIGHUP.\n"
        "\n"
        "Exit codes: 0 done; 2 wrong usage, or the name has a token already; 7 the file cannot be written.\n"
        "\n"
        "Examples:\n"
        "  veldan token new --tokens tokens.txt door read\n"
        "  curl -H \"Authorization: Bearer $(cat door.token)\" https://faces.example.org/v1/people\n");
    added->callback([options, &action] {
        action = [options] {
            const auto role = service::roleOf(options->role);
            std::cout << service::newToken(options->file, options->name, role.value(), options->expiry) << '\n';
            return ExitCode::Success;
        };
    });
}

} // namespace veldan::cli
