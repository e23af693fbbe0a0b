#include "photo_results.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

Json match(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"match", "--json"});
    const CommandResult result = runVeldan(arguments);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return Json::parse(result.output);
}

// The feature of a template file, which begins behind kind and checksum.
std::vector<float> featureOf(const std::string& photo, bool masked) {
    const ScratchFolder folder;
    const std::string file = (folder / "template").string();
    std::vector<std::string> arguments = {"template", photo, "-o", file};
    if (masked)
        arguments.emplace_back("--mask");
    EXPECT_EQ(runVeldan(arguments).exitCode, 0);
    const std::vector<unsigned char> bytes = readBytes(file);
    std::vector<float> feature(128);
    std::memcpy(feature.data(), bytes.data() + 8, bytes.size() - 8);
    return feature;
}

double cosine(const std::vector<float>& a, const std::vector<float>& b) {
    return cv::Mat(a).dot(cv::Mat(b)) / (cv::norm(a) * cv::norm(b));
}

struct Pair {
    const char* first;
    const char* second;
    bool forced;
    const char* kind;
};

void PrintTo(const Pair& pair, std::ostream* out) {
    *out << pair.first << ' ' << pair.second << (pair.forced ? " --mask" : "");
}

class Match : public testing::TestWithParam<Pair> {};

// The command compares what `veldan template` makes, in the kind that the masks of the two ask for.
TEST_P(Match, TellsTheSimilarityOfTheTemplates) {
    const std::string first = bundled(GetParam().first);
    const std::string second = bundled(GetParam().second);
    std::vector<std::string> arguments = {first, second};
    if (GetParam().forced)
        arguments.emplace_back("--mask");
    const Json result = match(arguments);
    EXPECT_EQ(result.at("kind"), GetParam().kind);
    const bool masked = result.at("kind") == "masked";
    const double similarity = result.at("similarity");
    EXPECT_NEAR(similarity, (cosine(featureOf(first, masked), featureOf(second, masked)) + 1) / 2, 1e-5);

    double lastSimilarity = 0;
    double lastRate = 1;
    for (const Json& step : result.at("steps")) {
        EXPECT_EQ(step.at("reached"), similarity >= step.at("similarity").get<double>());
        EXPECT_GT(step.at("similarity"), lastSimilarity);
        EXPECT_LT(step.at("falseMatchRate"), lastRate);
        lastSimilarity = step.at("similarity");
        lastRate = step.at("falseMatchRate");
    }

    arguments.insert(arguments.begin(), "match");
    const CommandResult text = runVeldan(arguments);
    EXPECT_EQ(text.exitCode, 0);
    EXPECT_THAT(text.output, HasSubstr(": " + result.at("verdict").get<std::string>() + "\n"));
    EXPECT_EQ(text.output.find("compared as masked faces") != std::string::npos, masked);
    EXPECT_EQ(text.output.find("since a mask is worn") != std::string::npos, masked && !GetParam().forced);
}

INSTANTIATE_TEST_SUITE_P(Kinds, Match,
                         testing::Values(Pair{"first-bare.webp", "second-bare.webp", false, "bare"},
                                         Pair{"first-bare.webp", "second-bare.webp", true, "masked"},
                                         Pair{"second-bare.webp", "second-mask.webp", false, "masked"},
                                         Pair{"second-mask.webp", "first-bare.webp", false, "masked"}));

TEST(Match, KnowsTheSamePictureAndTellsPeopleApart) {
    const Json same = match({bundled("astronaut.jpg"), bundled("astronaut.jpg")});
    EXPECT_NEAR(same.at("similarity").get<double>(), 1, 1e-6);
    EXPECT_EQ(same.at("verdict"), "almost certainly the same person");
    EXPECT_EQ(match({bundled("astronaut.jpg"), bundled("first-bare.webp")}).at("verdict"), "probably different people");
}

TEST(Match, TakesTheLargestOfSeveralFacesAndSaysSo) {
    const ScratchFolder folder;
    const std::string crowd = (folder / "crowd.png").string();
    cv::Mat astronaut = cv::imread(bundled("astronaut.jpg"));
    cv::Mat other;
    cv::resize(cv::imread(bundled("first-bare.webp")), other, cv::Size(), 0.6, 0.6);
    cv::copyMakeBorder(other, other, 0, astronaut.rows - other.rows, 0, 0, cv::BORDER_CONSTANT);
    cv::hconcat(other, astronaut, astronaut);
    cv::imwrite(crowd, astronaut);
    const CommandResult result = runVeldan({"match", "--json", bundled("astronaut.jpg"), crowd});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.errors, "veldan: " + crowd + ": 2 faces; the largest one is compared\n");
    EXPECT_GT(Json::parse(result.output).at("similarity"), 0.9);
}

TEST(Match, DrawsBothPhotosSideBySide) {
    const ScratchFolder folder;
    const std::string drawn = (folder / "drawn.png").string();
    const Json result = match({bundled("astronaut.jpg"), bundled("second-bare.webp"), "--draw", drawn});
    EXPECT_EQ(result.at("drawn"), drawn);
    const cv::Mat picture = cv::imread(drawn);
    // As high as the higher of the two, each in its own shape.
    EXPECT_EQ(picture.size(), cv::Size(512 + 385, 512));
    const Json& face = result.at("photos")[1].at("faces")[0];
    const double factor = 512.0 / 400;
    const cv::Rect box = boxOf(face);
    const cv::Vec3b edge =
        picture.at<cv::Vec3b>(cvRound(box.y * factor), cvRound(512 + (box.x + box.width / 2.0) * factor));
    EXPECT_GT(edge[1], 200);
    EXPECT_LT(edge[2], 100);
}

// As those of cmp.
TEST(Match, SaysByItsExitCodeWhetherTheThresholdIsReached) {
    const std::string photo = bundled("first-bare.webp");
    const auto code = [&](const std::string& other, const char* threshold) {
        return runVeldan({"match", photo, other, "--threshold", threshold}).exitCode;
    };
    const double similarity = match({photo, bundled("second-bare.webp")}).at("similarity");
    ASSERT_TRUE(similarity > 0.5 && similarity < 0.7);
    for (const char* threshold : {"0.7", "70", "70%", "70 %", "1"})
        EXPECT_EQ(code(bundled("second-bare.webp"), threshold), 1) << threshold;
    for (const char* threshold : {"0.5", "50", "0.9%", "0"})
        EXPECT_EQ(code(bundled("second-bare.webp"), threshold), 0) << threshold;
    for (const char* threshold : {"101", "-1", "nan", "0.5x", "", "%", "0,5"})
        EXPECT_EQ(code(bundled("second-bare.webp"), threshold), 2) << threshold;
    EXPECT_EQ(code("/no/such/photo", "0.5"), 3);
}

TEST(Match, TakesTemplatesInPlaceOfPhotos) {
    const ScratchFolder folder;
    const std::string bare = (folder / "bare.jpg").string();
    const std::string masked = (folder / "masked").string();
    ASSERT_EQ(runVeldan({"template", bundled("first-bare.webp"), "-o", bare}).exitCode, 0);
    ASSERT_EQ(runVeldan({"template", bundled("first-bare.webp"), "--mask", "-o", masked}).exitCode, 0);
    for (const auto& [file, kind] : {std::pair{bare, "bare"}, {masked, "masked"}}) {
        const Json result = match({bundled("second-bare.webp"), file});
        EXPECT_EQ(result.at("kind"), kind);
        std::vector<std::string> photos = {bundled("second-bare.webp"), bundled("first-bare.webp")};
        if (file == masked)
            photos.emplace_back("--mask");
        EXPECT_EQ(result.at("similarity"), match(photos).at("similarity"));
    }
    EXPECT_EQ(runVeldan({"match", bare, masked}).exitCode, 9);
    EXPECT_EQ(runVeldan({"match", bare, bundled("second-mask.webp")}).exitCode, 9);
    std::vector<unsigned char> bytes = readBytes(bare);
    bytes[100] ^= 1;
    writeBytes(bare, bytes);
    EXPECT_THAT(runVeldan({"match", bare, bare}).errors, HasSubstr("checksum does not hold"));
}

TEST(Match, NeverDrawsOverAPhoto) {
    const ScratchFolder folder;
    const std::string photo = (folder / "b.jpg").string();
    std::filesystem::copy_file(bundled("first-bare.webp"), photo);
    EXPECT_EQ(runVeldan({"match", bundled("astronaut.jpg"), photo, "--draw", photo}).exitCode, 7);
    EXPECT_EQ(readBytes(photo), readBytes(bundled("first-bare.webp")));
}

TEST(Match, NamesThePhotoThatCannotBeCompared) {
    const ScratchFolder folder;
    const std::string wall = (folder / "wall.png").string();
    cv::imwrite(wall, cv::Mat(200, 200, CV_8UC3, cv::Scalar(128, 128, 128)));
    const CommandResult result = runVeldan({"match", "--json", wall, "/no/such/photo"});
    EXPECT_EQ(result.exitCode, 9);
    EXPECT_EQ(result.errors, "veldan: " + wall + ": no face was found\nveldan: /no/such/photo: no such file\n");
    const Json document = Json::parse(result.output);
    EXPECT_EQ(document.at("photos")[0].at("error").at("name"), "unsuitable");
    EXPECT_EQ(document.at("photos")[1].at("error").at("code"), 3);
    EXPECT_FALSE(document.contains("similarity"));
    EXPECT_EQ(runVeldan({"match", wall}).exitCode, 2);
}

} // namespace
