#include "cli/run_command.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
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

    // A label that shows nobody counts neither as a face nor for what is found there.
    write(folder_ / "review.csv", "portrait.jpg,made,300,300,90,90,no_face\n");
    const Json reviewed = evaluate({"--review", (folder_ / "review.csv").string()});
    EXPECT_EQ(reviewed.at("total").at("faces"), 1);
    EXPECT_EQ(reviewed.at("total").at("facesFound"), 1);
    write(folder_ / "review.csv", "portrait.jpg,made,180,72,90,106,no_face\n");
    EXPECT_EQ(evaluate({"--review", (folder_ / "review.csv").string()}).at("total").at("falsePositives"), 1);

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

const std::string portrait = std::string(VELDAN_PHOTOS) + "/astronaut.jpg";

Json evaluateJson(std::vector<std::string> arguments) {
    arguments.emplace_back("--json");
    const CommandResult result = runProgram(VELDAN_EVAL, arguments);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return Json::parse(result.output);
}

// Two portraits whose names tell their class; what is in the second one the teacher did not see. In the third nobody
// is.
class EvaluateFaces : public testing::Test {
protected:
    EvaluateFaces() {
        fs::create_directory(folder_ / "close");
        fs::copy_file(portrait, folder_ / "close/without_mask_1.jpg");
        fs::copy_file(portrait, folder_ / "close/with_mask_2.jpg");
        cv::imwrite((folder_ / "close/with_mask_3.png").string(), cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 120, 90)));
        write(folder_ / "close.images.csv",
              "without_mask_1.jpg,512,512,val\nwith_mask_2.jpg,512,512,val\nwith_mask_3.png,320,240,val\n");
        write(folder_ / "close.labels.csv",
              "without_mask_1.jpg,180,72,90,106,204,101,247,103,226,126,205,141,243,142,0.95\n"
              "with_mask_3.png,90,30,90,106,114,59,157,61,136,84,115,99,153,100,0.95\n");
    }

    ScratchFolder folder_;
};

TEST_F(EvaluateFaces, PrintsTheErrorsOfCorners) {
    const Json groups = evaluateJson({"corners", (folder_ / "").string()}).at("groups");
    const auto group = [&](const std::string& name) {
        return *std::find_if(groups.begin(), groups.end(), [&](const Json& entry) { return entry.at("name") == name; });
    };
    EXPECT_EQ(group("total").at("faces"), 2);
    EXPECT_EQ(group("total").at("missed"), 1);
    EXPECT_EQ(group("masked").at("missed"), 1);
    EXPECT_EQ(group("known to be bare").at("missed"), 0);
    EXPECT_LT(group("total").at("foundFive").at("median").get<double>(), 0.1);
    EXPECT_GT(group("total").at("twoPoints").at("median").get<double>(), 0);
}

TEST_F(EvaluateFaces, PrintsTheErrorsOfMasks) {
    const auto classes = [&](const std::string& threshold) {
        const Json document = evaluateJson({"mask", (folder_ / "").string(), "--threshold", threshold});
        EXPECT_EQ(document.at("groups").back().at("name"), "total");
        return document.at("groups").back();
    };
    const Json all = classes("0"); // every face is masked
    EXPECT_EQ(all.at("faces"), 3);
    EXPECT_EQ(all.at("accuracy"), 0.5);
    EXPECT_EQ(all.at("classes").at("with_mask"), (Json{{"judgedMasked", 1}, {"judgedBare", 0}, {"missed", 1}}));
    const Json none = classes("101");
    EXPECT_EQ(none.at("classes").at("without_mask"), (Json{{"judgedMasked", 0}, {"judgedBare", 1}, {"missed", 0}}));
    EXPECT_EQ(none.at("classes").at("with_mask").at("judgedBare"), 1);
}

TEST_F(EvaluateFaces, SaysWhenThereIsNothingToJudge) {
    write(folder_ / "close.labels.csv", "");
    const CommandResult result = runProgram(VELDAN_EVAL, {"corners", (folder_ / "").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_THAT(result.errors, testing::HasSubstr("no face"));
}

TEST(EvaluateQuality, PrintsAndDrawsScoresByLevel) {
    const ScratchFolder folder;
    fs::copy_file(portrait, folder / "a.jpg");
    cv::imwrite((folder / "b.png").string(), cv::imread(portrait) / 2);
    cv::imwrite((folder / "c.png").string(), cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 120, 90)));
    write(folder / "photos.csv", "file,source,kind,level\na.jpg,a,none,0\nb.png,a,dark,0.5\nc.png,a,dark,1\n");
    const fs::path drawn = folder / "curves.png";
    const Json document = evaluateJson({"quality", (folder / "").string(), "--draw", drawn.string(), "--good", "0"});
    const Json& dark = document.at("damage").at(0);
    EXPECT_EQ(dark.at("photos"), 3);
    EXPECT_EQ(dark.at("missed"), 1);
    EXPECT_EQ(dark.at("levels").at(2).at("missed"), 1);
    EXPECT_EQ(document.at("undamaged").at(0).at("good"), 1);
    EXPECT_FALSE(cv::imread(drawn.string()).empty());

    fs::remove(folder / "c.png");
    const CommandResult missing = runProgram(VELDAN_EVAL, {"quality", (folder / "").string()});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_THAT(missing.errors, testing::HasSubstr("c.png"));
}

TEST(EvaluateLiveness, PrintsErrorRatesOfBothLights) {
    const ScratchFolder folder;
    fs::create_directory(folder / "made");
    fs::create_directory(folder / "real");
    fs::copy_file(portrait, folder / "made/a.jpg");
    fs::copy_file(portrait, folder / "real/a.jpg");
    cv::imwrite((folder / "made/none.png").string(), cv::Mat(240, 320, CV_8UC3, cv::Scalar(90, 120, 90)));
    write(folder / "made/photos.csv", "a.jpg,visible,live,plain,0\na.jpg,visible,attack,print,0\n"
                                      "none.png,visible,attack,screen,1\na.jpg,nir,live,plain,0\n");
    write(folder / "real/photos.csv", "a.jpg,set1,attack\na.jpg,set2,live\n");
    const Json sections = evaluateJson({"liveness", "--attacks", (folder / "made").string(), "--spoof",
                                        (folder / "real").string(), "--threshold", "0"})
                              .at("sections");
    ASSERT_EQ(sections.size(), 4U); // visible light, its attacks kept out of training, infrared, real photos
    EXPECT_EQ(sections[0].at("photos"), 3);
    EXPECT_EQ(sections[0].at("apcer"), 1); // everything is live
    EXPECT_EQ(sections[0].at("bpcer"), 0);
    EXPECT_EQ(sections[0].at("acer"), 0.5);
    EXPECT_EQ(sections[0].at("auc"), 0.5); // the same photo
    EXPECT_EQ(sections[1].at("photos"), 2);
    EXPECT_TRUE(sections[1].at("apcer").is_null());
    EXPECT_EQ(sections[1].at("kinds").at(1).at("missed"), 1);
    EXPECT_EQ(sections[2].at("bpcer"), 0);
    EXPECT_EQ(sections[3].at("photos"), 1);

    // A tight crop, upright and on its side.
    const cv::Mat face = cv::imread(portrait)(cv::Rect(172, 48, 108, 136));
    cv::Mat turned;
    cv::rotate(face, turned, cv::ROTATE_90_CLOCKWISE);
    fs::create_directories(folder / "packs/attack_x");
    cv::imwrite((folder / "packs/attack_x/a.png").string(), face);
    cv::imwrite((folder / "packs/attack_x/b.png").string(), turned);
    write(folder / "packs/attack_x.csv", "a.png,real/1.png,live,fold\nb.png,fake/1.png,attack,fold\n");
    write(folder / "review.csv", "b.png,attack_x,270,sideways\n");
    const Json packs = evaluateJson({"liveness", "--sources", (folder / "packs").string(), "--review",
                                     (folder / "review.csv").string(), "--threshold", "0"});
    EXPECT_EQ(packs.at("sources").at(0).at("acer"), 0.5); // both were found
    EXPECT_EQ(packs.at("tracks").at(0).at("auc"), packs.at("sources").at(0).at("auc"));
    EXPECT_EQ(runProgram(VELDAN_EVAL, {"liveness", "--sources", (folder / "packs").string(), "--fold-networks",
                                       (folder / "packs").string()})
                  .exitCode,
              1); // no network of that name

    EXPECT_EQ(runProgram(VELDAN_EVAL, {"liveness"}).exitCode, 2);
    EXPECT_EQ(runProgram(VELDAN_EVAL, {"liveness", "--spoof", (folder / "real").string(), "--set", "set3"}).exitCode,
              1);
}

} // namespace
