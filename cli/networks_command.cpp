#include "commands.hpp"
#include "gallery/digest.hpp"
#include "report/json.hpp"

#include <veldan/model_store.hpp>

#include <CLI/CLI.hpp>

#include <fmt/format.h>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

namespace veldan::cli {

namespace {

struct EmbeddedNetwork {
    const char* name;
    const char* extension;
    int (*length)();
    int (*data)(unsigned char*);
};

#define VELDAN_EMBEDDED_NETWORK(NAME, EXTENSION) {#NAME, #EXTENSION, length_##NAME, data_##NAME},
constexpr EmbeddedNetwork networks[] = {
#include "embedded_networks.inc"
};
#undef VELDAN_EMBEDDED_NETWORK

const char* kindOf(const std::string& extension) {
    if (extension == "pb")
        return "TensorFlow graph";
    return extension == "prototxt" ? "Caffe network text" : "Caffe weights";
}

ExitCode printNetworks(bool json) {
    Json document = {{"networks", Json::array()}};
    for (const EmbeddedNetwork& network : networks) {
        std::vector<unsigned char> bytes(static_cast<std::size_t>(network.length()));
        if (network.data(bytes.data()) != 0)
            throw CommandError(ExitCode::Library, std::string("the embedded network ") + network.name + " is damaged");
        const std::string digest = sha256(bytes);
        if (json) {
            document["networks"].push_back({{"name", network.name},
                                            {"file", std::string(network.name) + "." + network.extension},
                                            {"kind", kindOf(network.extension)},
                                            {"bytes", bytes.size()},
                                            {"sha256", digest}});
        } else {
            std::cout << fmt::format("{:<36}{:>9}  {}  {}\n", network.name, bytes.size(), digest,
                                     kindOf(network.extension));
        }
    }
    if (json)
        std::cout << written(document) << '\n';
    return ExitCode::Success;
}

} // namespace

void addNetworksCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("networks", "List the embedded networks: name, bytes, SHA-256 digest, kind");
    const auto json = std::make_shared<bool>(false);
    command->add_flag("--json", *json, "Print JSON");
    command->footer("The digests are those of the network files that the library was built from (sha256sum models/*).\n"
                    "\n"
                    "Examples:\n"
                    "  veldan networks\n"
                    "  veldan networks --json\n");
    command->callback([json, &action] { action = [json] { return printNetworks(*json); }; });
}

} // namespace veldan::cli
