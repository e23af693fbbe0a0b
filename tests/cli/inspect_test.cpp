#include "photo_results.hpp"

#include <veldan/face_mask.hpp>
#include <veldan/face_quality.hpp>
#include <veldan/face_record.h>
#include <veldan/quality_evaluation.hpp>
#include <veldan/spoof_detection.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <complex>
#include <filesystem>
#include <string>
#include <vector>

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;
namespace fs = std::filesystem;

Json inspect(const std::vector<std::string>& arguments) {
    return photosOf("inspect", arguments);
}

/** Engines of the test's own, asked one by one about the faces that the command found. */
class Engines {
public:
    Engines() {
        EXPECT_EQ(mask_.maskInitAlg(nullptr), 0);
        EXPECT_EQ(quality_.mqInitAlg(nullptr), 0);
        EXPECT_EQ(liveness_.vdSpoofInitAlg(nullptr), 0);
    }

    void expectSame(const Json& photo, bool nearInfrared) {
        cv::Mat image = cv::imread(photo.at("photo").get<std::string>());
        for (const Json& face : photo.at("faces")) {
            VDFACEINFOEX record{};
            const cv::Rect box = boxOf(face);
            record.x = box.x;
            record.y = box.y;
            record.width = box.width;
            record.height = box.height;
            for (int k = 0; k < 7; ++k) {
                const Json& point = k < 5 ? face.at("points").at(static_cast<std::size_t>(k))
                                          : face.at("maskPoints").at(static_cast<std::size_t>(k) - 5);
                record.keyPointX[k] = point[0];
                record.keyPointY[k] = point[1];
            }
            mask_.maskEvaluation(image.data, image.cols, image.rows, 1, &record);
            quality_.mqQualityEvaluation(image.data, image.cols, image.rows, 1, &record);
            if (nearInfrared)
                liveness_.vdSpoofNIREvaluation(image.data, image.cols, image.rows, 1, &record);
            else
                liveness_.vdSpoofRGBEvaluation(image.data, image.cols, image.rows, 1, &record);
            EXPECT_EQ(face.at("maskScore"), record.maskScore);
            EXPECT_EQ(face.at("masked"), record.maskScore > 40);
            EXPECT_EQ(face.at("quality"), record.quality);
            EXPECT_EQ(face.at("liveness"), record.liveness);
            EXPECT_EQ(face.at("live"), record.liveness >= 50);
            EXPECT_EQ(face.at("light"), nearInfrared ? "near-infrared" : "visible");
            EXPECT_EQ(face.at("sharp"), FaceQuality().Face_blurRGB(image.data, image.cols, image.rows, record) == 1);
            EXPECT_EQ(face.at("frontal"), FaceQuality().Face_Front(nullptr, 0, 0, record) == 1);
        }
    }

private:
    vdFaceMask mask_;
    QUALITYEVALUATION quality_;
    vdSpoofDetection liveness_;
};

TEST(Inspect, SaysWhatDetectionAndEachEngineSay) {
    const std::vector<std::string> files = {bundled("astronaut.jpg"), bundled("rows.webp"),
                                            bundled("second-mask.webp")};
    Json found = photosOf("detect", files);
    const Json photos = inspect(files);
    Engines engines;
    for (std::size_t i = 0; i < files.size(); ++i) {
        engines.expectSame(photos[i], false);
        ASSERT_EQ(photos[i].at("faces").size(), found[i].at("faces").size());
        for (std::size_t k = 0; k < found[i].at("faces").size(); ++k) {
            for (const auto& [key, value] : found[i]["faces"][k].items())
                EXPECT_EQ(photos[i]["faces"][k].at(key), value) << key;
        }
    }
}

TEST(Inspect, TextTellsTheSameAsJson) {
    const std::string photo = bundled("rows.webp");
    const Json faces = inspect({photo})[0].at("faces");
    const std::string text = runVeldan({"inspect", photo}).output;
    EXPECT_THAT(text, HasSubstr(photo + ": " + std::to_string(faces.size()) + " faces"));
    std::size_t at = 0;
    for (const Json& face : faces) {
        const std::string mask = std::string(face.at("masked").get<bool>() ? "masked (" : "no mask (");
        for (const std::string& words :
             {"box (" + face["box"]["x"].dump() + ", " + face["box"]["y"].dump() + ")",
              "quality " + face.at("quality").dump() + "  ",
              std::string(face.at("sharp").get<bool>() ? "  sharp  " : "  not sharp  "),
              std::string(face.at("frontal").get<bool>() ? "  frontal  " : "  not frontal  "),
              mask + face.at("maskScore").dump() + ")",
              std::string(face.at("live").get<bool>() ? "  live (" : "  not live (") + face.at("liveness").dump() +
                  ", visible light)"}) {
            const std::size_t next = text.find(words, at);
            ASSERT_NE(next, std::string::npos) << words << " after\n" << text.substr(0, at);
            at = next + words.size() - 2; // neighbours share the blanks between them
        }
    }
}

TEST(Inspect, NearInfraredIsForGreyPhotosOnRequest) {
    const ScratchFolder folder;
    const std::string grey = (folder / "grey.png").string();
    const std::string lossy = (folder / "lossy.jpg").string();
    const cv::Mat levels = cv::imread(bundled("first-bare.webp"), cv::IMREAD_GRAYSCALE);
    cv::imwrite(grey, levels);
    cv::Mat tinted;
    cv::cvtColor(levels, tinted, cv::COLOR_GRAY2BGR);
    cv::imwrite(lossy, tinted + cv::Scalar(1, 0, 1)); // as what lossy compression leaves
    const std::string colour = bundled("first-bare.webp");
    Engines engines;
    for (const bool asked : {false, true}) {
        std::vector<std::string> arguments = {grey, lossy, colour};
        if (asked)
            arguments.emplace_back("--nir");
        const Json photos = inspect(arguments);
        for (std::size_t i = 0; i < 3; ++i) {
            ASSERT_EQ(photos[i].at("faces").size(), 1u) << i;
            engines.expectSame(photos[i], asked && i < 2);
        }
    }
}

// What anybody sees in the bundled photos.
TEST(Inspect, AgreesWithPeople) {
    const ScratchFolder folder;
    std::vector<std::string> files = {bundled("astronaut.jpg"),    bundled("first-bare.webp"),
                                      bundled("second-bare.webp"), bundled("first-mask.webp"),
                                      bundled("second-mask.webp"), bundled("rows.webp")};
    // The portrait's face is 91 pixels wide: a little out of focus, and so much that the eyes run together.
    for (const double sigma : {2.5, 5.0}) {
        files.push_back((folder / ("blurred-" + std::to_string(files.size()) + ".png")).string());
        cv::Mat picture;
        cv::GaussianBlur(cv::imread(files.front()), picture, cv::Size(), sigma);
        cv::imwrite(files.back(), picture);
    }
    const Json photos = inspect(files);
    for (std::size_t i = 0; i < 6; ++i) {
        ASSERT_FALSE(photos[i].at("faces").empty());
        for (const Json& face : photos[i].at("faces"))
            EXPECT_EQ(face.at("masked"), i >= 3) << photos[i].at("photo");
    }
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(photos[i]["faces"][0].at("sharp"), true) << photos[i].at("photo");
        EXPECT_EQ(photos[i]["faces"][0].at("live"), true) << photos[i].at("photo");
        EXPECT_GE(photos[i]["faces"][0].at("quality").get<int>(), 60) << photos[i].at("photo");
    }
    EXPECT_EQ(photos[1]["faces"][0].at("frontal"), true);
    EXPECT_EQ(photos[4]["faces"][0].at("frontal"), false);
    const auto quality = [&](std::size_t i) { return photos[i].at("faces").at(0).at("quality").get<int>(); };
    EXPECT_EQ(photos[6]["faces"][0].at("sharp"), false);
    EXPECT_LT(quality(6), quality(0));
    EXPECT_LT(quality(7), quality(0) / 2);
}

using Complex = std::complex<double>;

/** The turn, scale and shift that bring points nearest to their targets, as complex numbers: p goes to a p + b. */
cv::Mat similarity(const std::vector<Complex>& points, const std::vector<Complex>& targets) {
    const auto count = static_cast<double>(points.size());
    Complex pointMean;
    Complex targetMean;
    for (std::size_t i = 0; i < points.size(); ++i) {
        pointMean += points[i] / count;
        targetMean += targets[i] / count;
    }
    Complex product;
    double square = 0;
    for (std::size_t i = 0; i < points.size(); ++i) {
        product += std::conj(points[i] - pointMean) * (targets[i] - targetMean);
        square += std::norm(points[i] - pointMean);
    }
    const Complex a = product / square;
    const Complex b = targetMean - a * pointMean;
    return (cv::Mat_<double>(2, 3) << a.real(), -a.imag(), b.real(), a.imag(), a.real(), b.imag());
}

std::vector<Complex> complexPoints(const Json& points) {
    std::vector<Complex> result;
    for (const Json& point : points)
        result.emplace_back(point[0].get<double>(), point[1].get<double>());
    return result;
}

void expectCrop(const Json& path, const cv::Mat& image, const cv::Mat& map) {
    cv::Mat expected;
    cv::warpAffine(image, expected, map, cv::Size(112, 112));
    const cv::Mat crop = cv::imread(path.get<std::string>());
    ASSERT_EQ(crop.size(), expected.size());
    EXPECT_LT(cv::norm(crop, expected, cv::NORM_L1) / static_cast<double>(crop.total() * 3), 1.0);
}

TEST(Aligned, CropsShowEachFace) {
    const ScratchFolder folder;
    fs::create_directories(folder / "other");
    const std::string twin = (folder / "other/rows.webp").string();
    fs::copy_file(bundled("rows.webp"), twin);
    const fs::path out = folder / "new" / "crops";
    const Json photos = inspect({bundled("rows.webp"), twin, bundled("first-bare.webp"), "--aligned", out.string()});
    const std::vector<std::string> stems = {"rows", "rows-2", "first-bare"};
    const std::vector<Complex> places = {{38.3, 51.7}, {73.5, 51.5}, {56.0, 71.7}, {41.5, 92.4}, {70.7, 92.2}};
    std::ptrdiff_t files = 0;
    for (std::size_t i = 0; i < photos.size(); ++i) {
        const cv::Mat image = cv::imread(photos[i].at("photo").get<std::string>());
        int number = 0;
        for (const Json& face : photos[i].at("faces")) {
            const std::string name = (out / (stems[i] + "-face" + std::to_string(++number))).string();
            const Json& crops = face.at("aligned");
            EXPECT_EQ(crops.at("five"), name + ".png");
            expectCrop(crops.at("five"), image, similarity(complexPoints(face.at("points")), places));
            EXPECT_EQ(crops.contains("two"), face.at("masked"));
            if (crops.contains("two")) {
                EXPECT_EQ(crops.at("two"), name + "-mask.png");
                expectCrop(crops.at("two"), image,
                           similarity(complexPoints(face.at("maskPoints")), {{0, 0}, {112, 112}}));
            }
            files += static_cast<std::ptrdiff_t>(crops.size());
        }
    }
    EXPECT_EQ(std::distance(fs::directory_iterator(out), fs::directory_iterator()), files);
}

TEST(InspectDraw, MarksTheFaceOnAnEnlargedPicture) {
    const ScratchFolder folder;
    const std::string drawn = (folder / "drawn.png").string();
    const Json entry = inspect({bundled("first-bare.webp"), "--draw", drawn})[0];
    EXPECT_EQ(entry.at("drawn"), drawn);
    const cv::Mat picture = cv::imread(drawn);
    const int factor = picture.cols / entry.at("width").get<int>();
    EXPECT_GE(picture.rows, 1000);
    ASSERT_EQ(picture.size(), cv::Size(entry.at("width").get<int>() * factor, entry.at("height").get<int>() * factor));
    const cv::Rect box = boxOf(entry.at("faces").at(0));
    const cv::Vec3b frame = picture.at<cv::Vec3b>(box.y * factor, (box.x + box.width / 2) * factor);
    EXPECT_TRUE(frame[1] > 200 && frame[2] < 60);
    // Between box and points the face is as it was, but larger.
    cv::Mat plain;
    cv::resize(cv::imread(bundled("first-bare.webp")), plain, picture.size());
    const Json nose = entry["faces"][0]["points"][2];
    const cv::Rect forehead((nose[0].get<int>() - 5) * factor, (box.y + 20) * factor, 10 * factor, 10 * factor);
    EXPECT_EQ(cv::norm(picture(forehead), plain(forehead), cv::NORM_INF), 0);
}

TEST(Inspect, ReportsNoFaceAsAResult) {
    const ScratchFolder folder;
    const std::string photo = (folder / "grey.png").string();
    cv::imwrite(photo, cv::Mat(200, 200, CV_8UC3, cv::Scalar(128, 128, 128)));
    const Json entry = inspect({photo, "--nir", "--aligned", (folder / "crops").string()})[0];
    EXPECT_EQ(entry.at("faces"), Json::array());
    EXPECT_TRUE(fs::is_empty(folder / "crops"));
}

} // namespace
