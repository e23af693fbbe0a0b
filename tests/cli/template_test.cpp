#include "photo_results.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using Bytes = std::vector<unsigned char>;
using Json = nlohmann::json;

Bytes templateOf(const std::string& photo, const std::vector<std::string>& more = {}) {
    const ScratchFolder folder;
    const std::string file = (folder / "template").string();
    std::vector<std::string> arguments = {"template", photo, "-o", file};
    arguments.insert(arguments.end(), more.begin(), more.end());
    const CommandResult result = runVeldan(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.output, "");
    return readBytes(file);
}

// Byte 7 is the exclusive or of all others.
void putChecksum(Bytes& bytes) {
    bytes[7] = 0;
    unsigned char sum = 0;
    for (const unsigned char byte : bytes)
        sum ^= byte;
    bytes[7] = sum;
}

TEST(Template, IsOfTheKindAskedFor) {
    for (const bool masked : {false, true}) {
        const Bytes bytes = templateOf(bundled("first-bare.webp"),
                                       masked ? std::vector<std::string>{"--mask"} : std::vector<std::string>{});
        ASSERT_EQ(bytes.size(), 520u);
        EXPECT_EQ(std::string(bytes.begin(), bytes.begin() + 7), masked ? "VD_V5.4" : "VD_V5.0");
        Bytes summed = bytes;
        putChecksum(summed);
        EXPECT_EQ(summed, bytes);

        const ScratchFolder folder;
        const std::string file = (folder / "file").string();
        std::vector<std::string> words = {"template", bundled("first-bare.webp"), "-o", "-"};
        if (masked)
            words.emplace_back("--mask");
        EXPECT_EQ(runVeldan(words, "/dev/null", file).exitCode, 0);
        EXPECT_EQ(readBytes(file), bytes);
        std::vector<float> feature(128);
        std::memcpy(feature.data(), bytes.data() + 8, 512);
        const CommandResult result = runVeldan({"template", "info", "--json", file});
        EXPECT_EQ(result.exitCode, 0);
        const Json info = Json::parse(result.output);
        EXPECT_EQ(info.at("kind"), masked ? "masked" : "bare");
        EXPECT_EQ(info.at("checksum"), true);
        EXPECT_EQ(info.at("length"), 128);
        EXPECT_NEAR(info.at("norm").get<double>(), cv::norm(feature), 1e-4);
        EXPECT_THAT(runVeldan({"template", "info", file}).output,
                    HasSubstr(masked ? "template of a masked face" : "template of a bare face"));
    }
}

TEST(Template, SaysWhenAMaskOrAnotherFaceMatters) {
    const ScratchFolder folder;
    const CommandResult result = runVeldan({"template", bundled("street.webp"), "-o", (folder / "template").string()});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errors, HasSubstr("the largest one is taken"));
    EXPECT_THAT(result.errors, HasSubstr("--mask makes the template"));
}

struct Damage {
    const char* name;
    std::function<void(Bytes&)> inflict;
    const char* message;
};

void PrintTo(const Damage& damage, std::ostream* out) {
    *out << damage.name;
}

class DamagedTemplate : public testing::TestWithParam<Damage> {};

TEST_P(DamagedTemplate, IsRefusedWithTheReason) {
    const ScratchFolder folder;
    const std::string file = (folder / "file").string();
    Bytes bytes = templateOf(bundled("first-bare.webp"));
    GetParam().inflict(bytes);
    writeBytes(file, bytes);
    const CommandResult result = runVeldan({"template", "info", "--json", file});
    EXPECT_EQ(result.exitCode, 4);
    EXPECT_THAT(result.errors, HasSubstr("veldan: " + file + ": "));
    EXPECT_THAT(result.errors, HasSubstr(GetParam().message));
    const Json error = Json::parse(result.output).at("error");
    EXPECT_EQ(error.at("code"), 4);
    EXPECT_THAT(error.at("message").get<std::string>(), HasSubstr(GetParam().message));
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, DamagedTemplate,
    testing::Values(Damage{"flipped_bit", [](Bytes& bytes) { bytes[300] ^= 4; }, "checksum does not hold"},
                    Damage{"cut_off", [](Bytes& bytes) { bytes.pop_back(); }, "519 bytes long"},
                    Damage{"empty", [](Bytes& bytes) { bytes.clear(); }, "0 bytes long"},
                    Damage{"other_network", [](Bytes& bytes) { bytes[4] = '4'; }, "another network (VD_V4.0)"},
                    Damage{"other_file", [](Bytes& bytes) { bytes.assign(520, 'x'); }, "not a template"},
                    Damage{"zeros",
                           [](Bytes& bytes) {
                               std::fill(bytes.begin() + 8, bytes.end(), static_cast<unsigned char>(0));
                               putChecksum(bytes);
                           },
                           "length that no face has"},
                    Damage{"not_a_number",
                           [](Bytes& bytes) {
                               const float value = std::numeric_limits<float>::quiet_NaN();
                               std::memcpy(bytes.data() + 8, &value, sizeof(value));
                               putChecksum(bytes);
                           },
                           "not numbers"}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(Template, IsNotWrittenWhereItMustNotBe) {
    const ScratchFolder folder;
    const std::string photo = (folder / "photo.webp").string();
    const std::string wall = (folder / "wall.png").string();
    std::filesystem::copy_file(bundled("first-bare.webp"), photo);
    cv::imwrite(wall, cv::Mat(200, 200, CV_8UC3, cv::Scalar(128, 128, 128)));
    EXPECT_EQ(runVeldan({"template", photo, "-o", photo}).exitCode, 7);
    EXPECT_EQ(readBytes(photo), readBytes(bundled("first-bare.webp")));
    EXPECT_EQ(runVeldan({"template", photo, "-o", (folder / "missing/file").string()}).exitCode, 7);
    EXPECT_EQ(runVeldan({"template", wall, "-o", (folder / "file").string()}).exitCode, 9);
    EXPECT_FALSE(std::filesystem::exists(folder / "file"));
    EXPECT_EQ(runVeldan({"template", "info", (folder / "file").string()}).exitCode, 3);
    EXPECT_EQ(runVeldan({"template", photo}).exitCode, 2);
    EXPECT_EQ(runVeldan({"template", "info"}).exitCode, 2);
}

} // namespace
