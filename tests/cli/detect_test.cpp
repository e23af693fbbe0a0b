#include "photo_results.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;
namespace fs = std::filesystem;

Json detect(const std::vector<std::string>& arguments) {
    return photosOf("detect", arguments);
}

double iou(const cv::Rect& a, const cv::Rect& b) {
    const double common = (a & b).area();
    return common / (a.area() + b.area() - common);
}

// Where the eyes, nose and mouth of the portrait are, as read from the picture by eye.
const cv::Rect astronautBox(180, 72, 90, 106);
const int astronautPoints[5][2] = {{204, 101}, {247, 103}, {226, 126}, {205, 141}, {243, 142}};

void expectAstronaut(const Json& photo) {
    ASSERT_EQ(photo.at("faces").size(), 1u);
    const Json& face = photo.at("faces")[0];
    EXPECT_GT(iou(boxOf(face), astronautBox), 0.5);
    ASSERT_EQ(face.at("points").size(), 5u);
    for (std::size_t k = 0; k < 5; ++k) {
        EXPECT_NEAR(face["points"][k][0].get<int>(), astronautPoints[k][0], 6) << k;
        EXPECT_NEAR(face["points"][k][1].get<int>(), astronautPoints[k][1], 6) << k;
    }
    EXPECT_NEAR(face.at("eyeDistance").get<int>(), 43, 5);
}

TEST(Detect, FindsTheFaceAndItsPoints) {
    expectAstronaut(detect({bundled("astronaut.jpg")})[0]);
}

TEST(Detect, ReadsAPipeAndEveryFormat) {
    const CommandResult piped = runVeldan({"detect", "--json", "/dev/stdin"}, bundled("astronaut.jpg"));
    ASSERT_EQ(piped.exitCode, 0) << piped.errors;
    expectAstronaut(Json::parse(piped.output).at("photos")[0]);

    const ScratchFolder folder;
    const cv::Mat picture = cv::imread(bundled("astronaut.jpg"));
    std::vector<std::string> files;
    for (const char* name : {"a.png", "a.bmp", "a.webp", "a.tiff", "without extension"}) {
        files.push_back((folder / name).string());
        std::vector<unsigned char> bytes;
        cv::imencode(fs::path(name).has_extension() ? fs::path(name).extension().string() : ".png", picture, bytes);
        writeBytes(files.back(), bytes);
    }
    cv::Mat withAlpha;
    cv::cvtColor(picture, withAlpha, cv::COLOR_BGR2BGRA);
    files.push_back((folder / "alpha.png").string());
    cv::imwrite(files.back(), withAlpha);
    const Json photos = detect(files);
    for (const Json& photo : photos)
        EXPECT_EQ(photo.at("faces"), photos[0].at("faces")) << photo.at("photo");
    expectAstronaut(photos[0]);
}

// Where the command was built with libheif, and ImageMagick writes the formats.
TEST(Detect, ReadsPicturesOfPhones) {
    const ScratchFolder folder;
    for (const char* name : {"a.heic", "a.avif"}) {
        const std::string photo = (folder / name).string();
        if (runProgram("/usr/bin/convert", {bundled("astronaut.jpg"), photo}).exitCode != 0 || !fs::exists(photo))
            GTEST_SKIP() << "no program writes " << name;
        const CommandResult result = runVeldan({"detect", "--json", photo});
        if (result.errors.find("without libheif") != std::string::npos)
            GTEST_SKIP() << result.errors;
        expectAstronaut(Json::parse(result.output).at("photos")[0]);
    }
}

// The number of faces of 45 pixels and more that people count in the photos, and how many may be missed.
TEST(Detect, CountsTheFacesOfTheBundledPhotos) {
    const Json photos = detect({bundled("first-bare.webp"), bundled("first-mask.webp"), bundled("second-bare.webp"),
                                bundled("second-mask.webp"), bundled("rows.webp")});
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(photos[i].at("faces").size(), 1u) << photos[i].at("photo");
    EXPECT_GE(photos[4].at("faces").size(), 7u);
    EXPECT_LE(photos[4].at("faces").size(), 9u);

    for (const Json& photo : photos) {
        const cv::Rect picture(0, 0, photo.at("width"), photo.at("height"));
        int lastArea = picture.area();
        for (const Json& face : photo.at("faces")) {
            const cv::Rect box = boxOf(face);
            EXPECT_EQ(box & picture, box);
            EXPECT_LE(box.area(), lastArea);
            lastArea = box.area();
            const Json& points = face.at("points");
            EXPECT_NEAR(face.at("eyeDistance").get<double>(),
                        std::hypot(points[0][0].get<double>() - points[1][0].get<double>(),
                                   points[0][1].get<double>() - points[1][1].get<double>()),
                        2.0); // measured before the points are cut off to integers
            for (const Json& point : points) {
                EXPECT_GE(point[0].get<int>(), 0);
                EXPECT_LE(point[0].get<int>(), picture.width);
                EXPECT_GE(point[1].get<int>(), 0);
                EXPECT_LE(point[1].get<int>(), picture.height);
            }
        }
    }
}

TEST(Detect, TextTellsTheSameAsJson) {
    const std::string photo = bundled("rows.webp");
    const Json faces = detect({photo})[0].at("faces");
    const std::string text = runVeldan({"detect", photo}).output;
    EXPECT_THAT(text, HasSubstr(photo + ": " + std::to_string(faces.size()) + " faces"));
    for (const Json& face : faces) {
        const cv::Rect box = boxOf(face);
        EXPECT_THAT(text, HasSubstr("box (" + std::to_string(box.x) + ", " + std::to_string(box.y) + ") " +
                                    std::to_string(box.width) + " x " + std::to_string(box.height)));
        EXPECT_THAT(text, HasSubstr("eye distance " + face.at("eyeDistance").dump()));
        EXPECT_THAT(text, HasSubstr("nose (" + face["points"][2][0].dump() + ", " + face["points"][2][1].dump() + ")"));
    }
}

TEST(Detect, ReportsNoFaceAsAResult) {
    const ScratchFolder folder;
    const std::string photo = (folder / "grey.png").string();
    cv::imwrite(photo, cv::Mat(200, 200, CV_8UC3, cv::Scalar(128, 128, 128)));
    EXPECT_EQ(detect({photo})[0].at("faces"), Json::array());
    EXPECT_THAT(runVeldan({"detect", photo}).output, HasSubstr(photo + ": no face"));
}

TEST(Detect, KeepsJsonValidForNamesThatAreNotUtf8) {
    const ScratchFolder folder;
    const std::string photo = (folder / "caf\xe9.jpg").string();
    fs::copy_file(bundled("astronaut.jpg"), photo);
    expectAstronaut(detect({photo})[0]);
}

TEST(Draw, ChangesTheFaceOnly) {
    const ScratchFolder folder;
    const cv::Mat before = cv::imread(bundled("astronaut.jpg"));
    const std::string photo = (folder / "photo.png").string();
    const std::string drawn = (folder / "drawn.png").string();
    cv::imwrite(photo, before);
    const Json entry = detect({photo, "--draw", drawn})[0];
    EXPECT_EQ(entry.at("drawn"), drawn);
    const cv::Mat after = cv::imread(drawn);
    ASSERT_EQ(after.size(), before.size());

    const cv::Rect box = boxOf(entry.at("faces").at(0));
    EXPECT_GT(after.at<cv::Vec3b>(box.y, box.x + box.width / 2)[1], 200);
    cv::Mat difference;
    cv::absdiff(before, after, difference);
    const cv::Rect around(box.x - 6, box.y - 6, box.width + 13, box.height + 13);
    EXPECT_GT(cv::countNonZero(difference(around).reshape(1)), 1000);
    difference(around) = cv::Scalar();
    EXPECT_EQ(cv::countNonZero(difference.reshape(1)), 0);
}

TEST(Draw, PutsSeveralPhotosIntoAFolder) {
    const ScratchFolder folder;
    const fs::path out = folder / "new" / "drawn";
    fs::create_directories(folder / "other");
    const std::string twin = (folder / "other/astronaut.jpg").string();
    fs::copy_file(bundled("astronaut.jpg"), twin);
    const Json photos = detect({bundled("astronaut.jpg"), twin, bundled("first-bare.webp"), "--draw", out.string()});
    std::vector<std::string> names;
    for (const Json& photo : photos) {
        const fs::path drawn = photo.at("drawn").get<std::string>();
        EXPECT_EQ(drawn.parent_path(), out);
        names.push_back(drawn.filename());
        EXPECT_EQ(cv::imread(drawn.string()).cols, photo.at("width").get<int>());
    }
    EXPECT_THAT(names, testing::ElementsAre("astronaut.jpg", "astronaut-2.jpg", "first-bare.webp"));
    EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), 3); // and nothing half-written
}

struct Overwriting {
    std::vector<std::string> arguments; // names in the folder begin with a slash
    std::string victim;
};

class Photos : public testing::TestWithParam<Overwriting> {};

TEST_P(Photos, AreNeverOverwritten) {
    const ScratchFolder folder;
    const std::string portrait = bundled("astronaut.jpg");
    fs::create_directories(folder / "other");
    for (const char* name : {"photo.jpg", "photo-face1.png", "other/photo.jpg"})
        fs::copy_file(portrait, folder / name);
    std::vector<std::string> arguments = GetParam().arguments;
    for (std::string& argument : arguments) {
        if (argument.front() == '/')
            argument = (folder / argument.substr(1)).string();
    }
    const CommandResult result = runVeldan(arguments);
    EXPECT_EQ(result.exitCode, 7);
    EXPECT_THAT(result.errors, HasSubstr("overwrite"));
    EXPECT_EQ(readBytes(folder / GetParam().victim), readBytes(portrait));
}

INSTANTIATE_TEST_SUITE_P(
    Ways, Photos,
    testing::Values(Overwriting{{"detect", "/photo.jpg", "--draw", "/photo.jpg"}, "photo.jpg"},
                    Overwriting{{"detect", "/photo.jpg", "--draw", "/"}, "photo.jpg"},
                    Overwriting{{"detect", "/other/photo.jpg", "/photo.jpg", "--draw", "/"}, "photo.jpg"},
                    Overwriting{{"inspect", "/photo.jpg", "--draw", "/other/../photo.jpg"}, "photo.jpg"},
                    Overwriting{{"inspect", "/photo.jpg", "/photo-face1.png", "--aligned", "/"}, "photo-face1.png"}));

TEST(Draw, SaysWhenItCannotWrite) {
    const ScratchFolder folder;
    fs::create_symlink("/dev/full", folder / "full.png");
    for (const auto& [name, reason] : {std::pair("missing/drawn.png", "o such file"), {"full.png", "no space left"}}) {
        const std::string out = (folder / name).string();
        const CommandResult result = runVeldan({"detect", "--json", bundled("astronaut.jpg"), "--draw", out});
        EXPECT_EQ(result.exitCode, 7);
        EXPECT_THAT(result.errors, testing::AllOf(HasSubstr(out), HasSubstr(reason)));
        const Json entry = Json::parse(result.output).at("photos")[0];
        EXPECT_EQ(entry.at("error").at("name"), "not_written");
        EXPECT_FALSE(entry.contains("drawn"));
        expectAstronaut(entry); // what was found is not lost
    }
}

TEST(Draw, GoesToStandardOutputOnRequest) {
    const ScratchFolder folder;
    const std::string out = (folder / "out").string();
    const CommandResult result = runVeldan({"detect", "-", "--draw", "-"}, bundled("astronaut.jpg"), out);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.errors, HasSubstr("-: 1 face"));
    EXPECT_EQ(cv::imread(out).size(), cv::imread(bundled("astronaut.jpg")).size());
    EXPECT_EQ(runVeldan({"detect", "-", "--draw", "-", "--json"}, bundled("astronaut.jpg")).exitCode, 2);
}

// Photos come from arguments, folders and lists; however many are worked on at a time, what is told is the same.
TEST(Inputs, AreReadInOrderOnAnyNumberOfThreads) {
    const ScratchFolder folder;
    fs::create_directories(folder / "a/b");
    for (const char* name : {"a/z.jpg", "a/c.JPG", "a/b/x.jpg", "a/.hidden.jpg", "new\nline.jpg"})
        fs::copy_file(bundled("astronaut.jpg"), folder / name);
    writeBytes(folder / "a/notes.txt", {'x'});
    writeBytes(folder / "a/d.png", {'x'});
    const std::string listed = (folder / "new\nline.jpg").string() + '\0' + bundled("first-bare.webp");
    writeBytes(folder / "list", {listed.begin(), listed.end()});
    std::vector<Json> documents;
    for (const char* jobs : {"1", "3", "auto"}) {
        const CommandResult result =
            runVeldan({"inspect", "-r", (folder / "a").string(), bundled("rows.webp"), "--files-from", "-", "-0",
                       "--json", "--jobs", jobs, "--draw", (folder / "drawn").string()},
                      (folder / "list").string());
        EXPECT_EQ(result.exitCode, 4);
        EXPECT_EQ(std::count(result.errors.begin(), result.errors.end(), '\n'), 1) << result.errors;
        documents.push_back(Json::parse(result.output));
        for (Json& photo : documents.back().at("photos"))
            photo.erase("milliseconds");
        EXPECT_EQ(documents.back(), documents.front());
    }
    std::vector<std::string> names;
    std::vector<std::string> drawn;
    for (const Json& photo : documents[0].at("photos")) {
        names.push_back(fs::path(photo.at("photo").get<std::string>()).filename());
        drawn.push_back(fs::path(photo.value("drawn", "")).filename());
    }
    EXPECT_THAT(names, testing::ElementsAre("c.JPG", "d.png", "z.jpg", "x.jpg", "rows.webp", "new\nline.jpg",
                                            "first-bare.webp"));
    EXPECT_THAT(drawn,
                testing::ElementsAre("c.JPG", "", "z.jpg", "x.jpg", "rows.webp", "new\nline.jpg", "first-bare.webp"));
}

} // namespace
