#include "commands.hpp"
#include "options.hpp"
#include "server.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <memory>
#include <thread>

namespace veldan::cli {

void addServeCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("serve", "Answer other programs and a page for people over HTTP");
    const auto options = std::make_shared<service::Options>();
    options->workers = std::max(1U, std::thread::hardware_concurrency());
    const auto megabytes = std::make_shared<std::size_t>(options->mostBody >> 20U);
    addGalleryOption(*command, options->gallery, "The gallery; it is created with the first person");
    command->add_option("--listen", options->listen, "Where to listen; port 0 is any free one")
        ->type_name("ADDRESS:PORT")
        ->capture_default_str();
    command->add_option("--workers", options->workers, "Photos worked on at the same time, with an instance each")
        ->type_name("N")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    command->add_option("--queue", options->queue, "Most requests that wait for a worker")
        ->type_name("N")
        ->check(CLI::Range(0, 100000))
        ->capture_default_str();
    command->add_option("--connections", options->connections, "Most clients at a time")
        ->type_name("N")
        ->check(CLI::Range(1, 10000))
        ->capture_default_str();
    command->add_option("--max-body", *megabytes, "Most megabytes of a request")
        ->type_name("MB")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    command->add_option("--max-pixels", options->mostMegapixels, "Most million pixels of a photo that is decoded")
        ->type_name("N")
        ->check(CLI::Range(1, 1000))
        ->capture_default_str();
    command->add_option("--timeout", options->timeout, "Seconds for a request to come, and to wait for a worker")
        ->type_name("S")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    command->add_option("--tls-cert", options->certificate, "Certificate for HTTPS, PEM")->type_name("FILE");
    command->add_option("--tls-key", options->key, "Its key, PEM")->type_name("FILE");
    command->add_option("--tokens", options->tokens, "Who may do what, as \"veldan token new\" writes it")
        ->type_name("FILE");
    command->add_option("--audit", options->audit, "Add a line to this file for every change of the gallery")
        ->type_name("FILE");
    command->add_option("--cors-origin", options->corsOrigins, "Pages of this place may ask, too: https://HOST")
        ->type_name("ORIGIN")
        ->allow_extra_args(false);
    command->add_flag("--insecure", options->insecure, "Listen on any address without TLS and tokens");
    command->footer(
        "By default only programs of this machine are answered. Any other address needs --tls-cert, --tls-key and\n"
        "--tokens. The answers are the documents that the commands print with --json; /openapi.json describes them,\n"
        "docs/service.md explains them, and / is a page for people.\n"
        "\n"
        "SIGTERM and Ctrl-C end the server once it has answered what it has begun; SIGHUP makes it read tokens,\n"
        "certificate and gallery anew. Standard error gets a line of JSON for every request.\n"
        "\n"
        "Exit codes: 0 stopped by a signal; 2 wrong usage; 3 a file does not exist; 4 a file cannot be used; 7 the\n"
        "address or a file cannot be had; 8 the library did not start; 10 the gallery cannot be used.\n"
        "\n"
        "Examples:\n"
        "  veldan serve --gallery staff.db\n"
        "  curl -s --data-binary @photo.jpg -H 'Content-Type: image/jpeg' http://127.0.0.1:8080/v1/identify\n"
        "  veldan serve --gallery staff.db --listen 0.0.0.0:8443 --tls-cert cert.pem --tls-key key.pem \\\n"
        "      --tokens tokens.txt --audit audit.jsonl\n");
    command->callback([options, megabytes, &action] {
        action = [options, megabytes] {
            options->mostBody = *megabytes << 20U;
            service::Server(*options).run();
            return ExitCode::Success;
        };
    });
}

} // namespace veldan::cli
