#include "run_veldan.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>

#include <filesystem>

namespace {

using Json = nlohmann::json;
namespace fs = std::filesystem;

class Calibrate : public testing::Test {
protected:
    Calibrate() {
        fs::create_directories(folder_ / "live/deeper");
        fs::create_directories(folder_ / "attack");
        fs::copy_file(fs::path(VELDAN_PHOTOS) / "astronaut.jpg", folder_ / "live/deeper/a.jpg");
        fs::copy_file(fs::path(VELDAN_PHOTOS) / "astronaut.jpg", folder_ / "attack/a.jpg");
        cv::imwrite((folder_ / "attack/none.png").string(), cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 120, 90)));
    }

    CommandResult calibrate(std::vector<std::string> more) const {
        std::vector<std::string> arguments = {
            "calibrate", "liveness", "--live", (folder_ / "live").string(), "--attack", (folder_ / "attack").string()};
        arguments.insert(arguments.end(), more.begin(), more.end());
        return runVeldan(arguments);
    }

    ScratchFolder folder_;
};

TEST_F(Calibrate, JudgesBothFoldersAndDraws) {
    const fs::path drawn = folder_ / "scores.png";
    const CommandResult result = calibrate({"--json", "--draw", drawn.string()});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const Json document = Json::parse(result.output);
    EXPECT_EQ(document.at("light"), "visible");
    EXPECT_EQ(document.at("live"), (Json{{"judged", 1}, {"withoutFace", 0}}));
    EXPECT_EQ(document.at("attack"), (Json{{"judged", 1}, {"withoutFace", 1}}));
    EXPECT_EQ(document.at("separation"), 0.5); // the same photo
    EXPECT_EQ(document.at("standard").at("threshold"), 50);
    EXPECT_EQ(document.at("chosen").at("mean"), 0.5);
    EXPECT_EQ(document.at("photos").at(0).at("liveness"), document.at("photos").at(1).at("liveness"));
    EXPECT_TRUE(document.at("photos").at(2).at("liveness").is_null());
    // The bar of the live face is green and above the axis, that of the attack red and below it, at the same place.
    const cv::Mat picture = cv::imread(drawn.string());
    ASSERT_EQ(picture.size(), cv::Size(1000, 640));
    const int x = 50 + document.at("photos").at(0).at("liveness").get<int>() / 4 * 36 + 18;
    EXPECT_EQ(picture.at<cv::Vec3b>(320, x), cv::Vec3b(60, 160, 60));
    EXPECT_EQ(picture.at<cv::Vec3b>(340, x), cv::Vec3b(60, 60, 210));
}

TEST_F(Calibrate, TellsInWords) {
    const CommandResult result = calibrate({"--nir"});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_THAT(result.output, testing::HasSubstr("1 photos judged, 1 without a face"));
    EXPECT_THAT(result.output, testing::HasSubstr("threshold to use: "));
    EXPECT_THAT(result.output, testing::HasSubstr("few photos"));
}

TEST_F(Calibrate, SaysWhatIsMissing) {
    EXPECT_EQ(calibrate({"--draw", "scores.txt"}).exitCode, 2);
    fs::remove(folder_ / "attack/a.jpg");
    const CommandResult faceless = calibrate({});
    EXPECT_EQ(faceless.exitCode, 9);
    EXPECT_THAT(faceless.errors, testing::HasSubstr("a face was found in no photo of"));
    fs::remove(folder_ / "attack/none.png");
    EXPECT_EQ(calibrate({}).exitCode, 3);
    EXPECT_EQ(runVeldan({"calibrate", "liveness", "--live", (folder_ / "live").string()}).exitCode, 2);
}

} // namespace
