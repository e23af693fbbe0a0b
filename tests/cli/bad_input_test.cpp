#include "run_veldan.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
namespace fs = std::filesystem;

const std::string astronaut = std::string(VELDAN_PHOTOS) + "/astronaut.jpg";

struct BadPhoto {
    const char* name;
    std::function<void(const fs::path&)> make;
    int exitCode;
    const char* errorName;
    const char* message;
};

void PrintTo(const BadPhoto& photo, std::ostream* out) {
    *out << photo.name;
}

std::function<void(const fs::path&)> text(const std::string& content) {
    return [content](const fs::path& path) { writeBytes(path, {content.begin(), content.end()}); };
}

std::function<void(const fs::path&)> grey(int width, int height) {
    return [width, height](const fs::path& path) { cv::imwrite(path.string(), cv::Mat(height, width, CV_8UC1, 90)); };
}

class BadPhotoAmongGoodOnes : public testing::TestWithParam<BadPhoto> {};

// A bad photo has its own exit code and message, and the photos around it are processed all the same.
TEST_P(BadPhotoAmongGoodOnes, IsNamedAndLosesNoOther) {
    const ScratchFolder folder;
    const fs::path bad = folder / "bad.png";
    GetParam().make(bad);
    const CommandResult result = runVeldan({"detect", "--json", astronaut, bad.string(), astronaut});

    EXPECT_EQ(result.exitCode, GetParam().exitCode);
    EXPECT_THAT(result.errors, HasSubstr("veldan: " + bad.string() + ": "));
    EXPECT_THAT(result.errors, HasSubstr(GetParam().message));
    const auto photos = nlohmann::json::parse(result.output).at("photos");
    ASSERT_EQ(photos.size(), 3u);
    EXPECT_EQ(photos[1].at("error").at("name"), GetParam().errorName);
    EXPECT_EQ(photos[1].at("error").at("code"), GetParam().exitCode);
    EXPECT_FALSE(photos[1].contains("faces"));
    for (const std::size_t good : {0u, 2u}) {
        EXPECT_FALSE(photos[good].contains("error"));
        EXPECT_EQ(photos[good].at("faces"), photos[0].at("faces"));
        EXPECT_EQ(photos[good].at("width"), 512);
    }
    for (const char* command : {"detect", "inspect"}) {
        const CommandResult alone = runVeldan({command, bad.string()});
        EXPECT_EQ(alone.exitCode, GetParam().exitCode);
        EXPECT_EQ(alone.errors, result.errors);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, BadPhotoAmongGoodOnes,
    testing::Values(
        BadPhoto{"missing", [](const fs::path&) {}, 3, "missing", "no such file"},
        BadPhoto{"folder", [](const fs::path& path) { fs::create_directory(path); }, 4, "unreadable",
                 "a folder; -r reads the photos in it"},
        BadPhoto{"empty", text(""), 4, "unreadable", "not a picture"},
        BadPhoto{"text", text("no picture at all\n"), 4, "unreadable", "not a picture"},
        BadPhoto{"header", text("\x89PNG\r\n\x1a\n"), 4, "unreadable", "truncated: the file ends before the PNG"},
        BadPhoto{"webp_chunks", text("RIFF\xff\xff\xff\xffWEBPEXIF\xff\xff\xff\xff"), 4, "unreadable", "truncated: "},
        BadPhoto{"gif", text("GIF89a and so on"), 4, "unreadable", "a GIF picture"},
        BadPhoto{"heic", text(std::string("\0\0\0\x18", 4) + "ftypheic and so on"), 4, "unreadable", "HEIC"},
        BadPhoto{"wide", grey(40000, 200), 4, "unreadable", "40000 x 200 pixels, at most 32767"},
        BadPhoto{"narrow", grey(99, 500), 5, "too_small", "99 x 500"},
        BadPhoto{"line", grey(30000, 1), 5, "too_small", "30000 x 1"}),
    [](const auto& info) { return std::string(info.param.name); });

// The upper half is there: it is worked on, with a warning and none of the decoder's own.
TEST(BadPhotos, ATruncatedOneIsToldAsSuch) {
    const ScratchFolder folder;
    const std::string photo = (folder / "half.jpg").string();
    std::vector<unsigned char> bytes = readBytes(astronaut);
    bytes.resize(bytes.size() / 2);
    writeBytes(photo, bytes);
    const CommandResult result = runVeldan({"detect", "--json", photo});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "veldan: " + photo + ": truncated; what could be decoded of it is used\n");
    const auto entry = nlohmann::json::parse(result.output).at("photos").at(0);
    EXPECT_EQ(entry.at("truncated"), true);
    EXPECT_EQ(entry.at("faces").size(), 1u);
}

TEST(BadPhotos, TheFirstProblemDecides) {
    const ScratchFolder folder;
    grey(50, 50)(folder / "small.png");
    const std::string small = (folder / "small.png").string();
    EXPECT_EQ(runVeldan({"detect", small, "/no/such/file"}).exitCode, 5);
    EXPECT_EQ(runVeldan({"detect", "/no/such/file", small}).exitCode, 3);
}

// 110 portraits side by side: all are listed, and the code says that they are too many.
TEST(BadPhotos, MoreFacesThanTheLibraryFollows) {
    const ScratchFolder folder;
    const std::string photo = (folder / "crowd.png").string();
    cv::imwrite(photo, cv::repeat(cv::imread(astronaut)(cv::Rect(140, 10, 170, 190)), 11, 10));
    for (const char* command : {"detect", "inspect"}) {
        const CommandResult result = runVeldan({command, "--json", photo});
        EXPECT_EQ(result.exitCode, 6);
        EXPECT_THAT(result.errors, HasSubstr("more than the 100"));
        const auto entry = nlohmann::json::parse(result.output).at("photos").at(0);
        EXPECT_EQ(entry.at("error").at("name"), "too_many_faces");
        EXPECT_GT(entry.at("faces").size(), 100u);
    }
}

TEST(DamagedLibrary, HasItsOwnExitCode) {
    const std::vector<std::vector<std::string>> commands = {
        {"detect", astronaut}, {"inspect", astronaut}, {"networks"}};
    for (const std::vector<std::string>& arguments : commands) {
        const CommandResult result = runProgram(VELDAN_DAMAGED_COMMAND, arguments);
        EXPECT_EQ(result.exitCode, 8) << arguments.front();
        EXPECT_THAT(result.errors, HasSubstr("network"));
    }
}

struct Mistake {
    std::vector<std::string> arguments;
    int exitCode;
    const char* message;
};

void PrintTo(const Mistake& mistake, std::ostream* out) {
    *out << testing::PrintToString(mistake.arguments);
}

class WrongUsage : public testing::TestWithParam<Mistake> {};

// In JSON the error is the whole document.
TEST_P(WrongUsage, IsRefusedWithAMessage) {
    CommandResult result = runVeldan(GetParam().arguments);
    EXPECT_EQ(result.exitCode, GetParam().exitCode);
    EXPECT_EQ(result.errors.rfind("veldan: ", 0), 0u);
    EXPECT_THAT(result.errors, HasSubstr(GetParam().message));
    EXPECT_EQ(result.output, "");

    std::vector<std::string> arguments = GetParam().arguments;
    arguments.insert(arguments.begin() + (arguments.empty() ? 0 : 1), "--json");
    result = runVeldan(arguments);
    EXPECT_EQ(result.exitCode, GetParam().exitCode);
    const auto error = nlohmann::json::parse(result.output).at("error");
    EXPECT_EQ(error.at("code"), GetParam().exitCode);
    EXPECT_EQ(result.errors.rfind("veldan: " + error.at("message").get<std::string>() + "\n", 0), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, WrongUsage,
    testing::Values(Mistake{{}, 2, "a command is required"},
                    Mistake{{"detekt"}, 2, "no command \"detekt\"; did you mean detect?"},
                    Mistake{{"detect"}, 2, "PHOTO is required"},
                    Mistake{{"detect", "--colour", astronaut}, 2, "unknown option --colour\n"},
                    Mistake{{"watch", "--galery", "g.db", "0"}, 2, "unknown option --galery; did you mean --gallery?"},
                    Mistake{{"match", "a", "b", "c"}, 2, "unexpected argument \"c\""},
                    Mistake{{"detect", astronaut, "--draw", ""}, 2, "--draw: is empty"},
                    Mistake{{"detect", "--draw=", astronaut}, 2, "--draw: is empty"},
                    Mistake{{"detect", astronaut, "--draw", "out.xyz"}, 2, "known extension"},
                    Mistake{{"detect", astronaut, astronaut, "--draw", astronaut}, 7, "not a folder"},
                    Mistake{{"inspect"}, 2, "PHOTO is required"},
                    Mistake{{"inspect", astronaut, "--aligned"}, 2, "--aligned"},
                    Mistake{{"inspect", astronaut, "--draw", "out.xyz"}, 2, "known extension"},
                    Mistake{{"inspect", astronaut, "--aligned", astronaut}, 7, "not a folder"}));

} // namespace
