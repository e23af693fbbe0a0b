#include "commands.hpp"
#include "gallery/digest.hpp"

#include <veldan/model_store.hpp>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <iomanip>
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
    nlohmann::ordered_json document = {{"networks", nlohmann::ordered_json::array()}};
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
            std::cout << std::left << std::setw(36) << network.name << std::right << std::setw(9) << bytes.size()
                      << "  " << digest << "  " << kindOf(network.extension) << '\n';
        }
    }
    if (json)
        std::cout << document.dump(2) << '\n';
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
