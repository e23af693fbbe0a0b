#include "run_veldan.hpp"

#include <veldan/face_api.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <array>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

namespace {

using testing::HasSubstr;

/** The digest as coreutils compute it. */
std::string sha256sum(const std::filesystem::path& file) {
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(("sha256sum '" + file.string() + "'").c_str(), "r"), pclose);
    std::array<char, 65> digest{};
    return pipe && fread(digest.data(), 1, 64, pipe.get()) == 64 ? digest.data() : "sha256sum failed";
}

TEST(Version, NamesTheCommandAndTheLibrary) {
    std::array<char, VELDAN_VERSION_SIZE> algorithm{};
    zzGetAlgVersionThread(algorithm.data());
    const CommandResult text = runVeldan({"version"});
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_THAT(text.output, HasSubstr(VELDAN_VERSION));
    EXPECT_THAT(text.output, HasSubstr(algorithm.data()));

    const auto document = nlohmann::json::parse(runVeldan({"version", "--json"}).output);
    EXPECT_EQ(document["veldan"], VELDAN_VERSION);
    EXPECT_EQ(document["algorithm"], algorithm.data());
}

TEST(Networks, HaveTheSizeAndDigestOfTheFilesTheyWereBuiltFrom) {
    const CommandResult result = runVeldan({"networks", "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const CommandResult text = runVeldan({"networks"});
    const auto networks = nlohmann::json::parse(result.output).at("networks");
    EXPECT_GE(networks.size(), 3u);
    for (const auto& network : networks) {
        const auto file = std::filesystem::path(VELDAN_NETWORKS) / network.at("file").get<std::string>();
        EXPECT_EQ(network.at("bytes"), std::filesystem::file_size(file)) << file;
        EXPECT_EQ(network.at("sha256"), sha256sum(file)) << file;
        EXPECT_THAT(text.output, HasSubstr(network.at("name").get<std::string>()));
        EXPECT_THAT(text.output, HasSubstr(network.at("sha256").get<std::string>()));
    }
}

class Help : public testing::TestWithParam<const char*> {};

TEST_P(Help, ShowsExamples) {
    const CommandResult result = runVeldan({GetParam(), "--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("Examples:\n  veldan " + std::string(GetParam())));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(runVeldan({"help", GetParam()}).output, result.output);
}

INSTANTIATE_TEST_SUITE_P(Commands, Help, testing::Values("detect", "inspect", "networks", "version"));

TEST(Output, ThatCannotBeWrittenIsAnError) {
    const CommandResult result = runVeldan({"version"}, "/dev/null", "/dev/full");
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_THAT(result.errors, HasSubstr("could not be written: no space left on the device"));
}

} // namespace
