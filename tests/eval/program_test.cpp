#include "cli/run_command.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <filesystem>
#include <string>
#include <vector>
#include <zip.h>

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::json;

void write(const fs::path& path, const std::string& text) {
    writeBytes(path, {text.begin(), text.end()});
}

void addToArchive(zip_t* archive, const fs::path& file) {
    zip_source_t* source = zip_source_file(archive, file.c_str(), 0, -1);
    const zip_int64_t index = zip_file_add(archive, file.filename().c_str(), source, ZIP_FL_ENC_UTF_8);
    ASSERT_GE(index, 0);
    ASSERT_EQ(zip_set_file_compression(archive, static_cast<zip_uint64_t>(index), ZIP_CM_STORE, 0), 0);
}

// A pack of one portrait, whose face was labelled by hand, an empty photo and one of the other split.
class EvaluateDetection : public testing::Test {
protected:
    EvaluateDetection() {
        fs::create_directory(folder_ / "made");
        fs::copy_file(std::string(VELDAN_PHOTOS) + "/astronaut.jpg", folder_ / "made/portrait.jpg");
        cv::imwrite((folder_ / "made/empty.png").string(), cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 120, 90)));
        cv::imwrite((folder_ / "made/other.png").string(), cv::Mat(240, 320, CV_8UC3));
        write(folder_ / "made.images.csv",
              "portrait.jpg,512,512,val\nempty.png,320,240,val\nother.png,320,240,train\n");
        write(folder_ / "made.labels.csv", "portrait.jpg,180,72,90,106,204,101,247,103,226,126,205,141,243,142,0.95\n"
                                           "portrait.jpg,300,300,90,90,310,310,350,310,330,330,320,350,340,350,0.7\n");
        write(folder_ / "made.landmarks.csv", "portrait.jpg,204,101,247,103,226,126,205,141,243,142\n");
    }

    Json evaluate(std::vector<std::string> options) {
        options.insert(options.begin(), {"detect", (folder_ / "").string(), "--json"});
        const CommandResult result = runProgram(VELDAN_EVAL, options);
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        return Json::parse(result.output);
    }

    ScratchFolder folder_;
};

TEST_F(EvaluateDetection, PrintsTheFiguresOfALabelledFolder) {
    const fs::path errors = folder_ / "errors";
    const Json document = evaluate({"--dump-false", errors.string()});
    const Json& total = document.at("total");
    EXPECT_EQ(total.at("photos"), 2);
    EXPECT_EQ(total.at("faces"), 2);
    EXPECT_EQ(total.at("facesFound"), 1); // the second label lies where there is no face
    EXPECT_EQ(total.at("falsePositives"), 0);
    EXPECT_EQ(total.at("emptyPhotos"), 1);
    EXPECT_EQ(total.at("pointFaces"), 1);
    EXPECT_EQ(total.at("pointFacesMissed"), 0);
    EXPECT_LT(total.at("pointErrorMean").get<double>(), 0.1);
    EXPECT_GT(total.at("millisecondsMean").get<double>(), 0);
    EXPECT_EQ(document.at("packs").at(0).at("name"), "made");

    const cv::Mat picture = cv::imread((errors / "made-portrait.jpg").string());
    EXPECT_EQ(picture.size(), cv::Size(640, 640));
    EXPECT_EQ(std::distance(fs::directory_iterator(errors), fs::directory_iterator()), 1);

    // In pixels of the photo as it is, both labels are smaller than 120.
    EXPECT_EQ(evaluate({"--fit", "0", "--min-face", "120"}).at("total").at("faces"), 0);
    EXPECT_EQ(evaluate({"--split", "all"}).at("total").at("photos"), 3);
}

TEST_F(EvaluateDetection, ReadsPhotosFromAnArchive) {
    zip_t* archive = zip_open((folder_ / "made.zip").c_str(), ZIP_CREATE, nullptr);
    ASSERT_NE(archive, nullptr);
    for (const char* name : {"made/portrait.jpg", "made/empty.png", "made/other.png"})
        addToArchive(archive, folder_ / name);
    ASSERT_EQ(zip_close(archive), 0);
    const Json fromFolder = evaluate({});
    fs::remove_all(folder_ / "made");
    const Json fromArchive = evaluate({});
    for (const char* figure : {"photos", "facesFound", "falsePositives", "pointErrorMean"})
        EXPECT_EQ(fromArchive.at("total").at(figure), fromFolder.at("total").at(figure)) << figure;
}

TEST_F(EvaluateDetection, SaysWhatDoesNotFit) {
    fs::remove(folder_ / "made/empty.png");
    const CommandResult missing = runProgram(VELDAN_EVAL, {"detect", (folder_ / "").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_THAT(missing.errors, testing::HasSubstr("empty.png"));
    cv::imwrite((folder_ / "made/empty.png").string(), cv::Mat(10, 10, CV_8UC3));
    const CommandResult resized = runProgram(VELDAN_EVAL, {"detect", (folder_ / "").string()});
    EXPECT_EQ(resized.exitCode, 1);
    EXPECT_THAT(resized.errors, testing::HasSubstr("not a picture of 320 x 240"));
    EXPECT_EQ(runProgram(VELDAN_EVAL, {"detect", "/no/such/folder"}).exitCode, 2);
}

} // namespace
