// The arithmetic behind the figures of corners, masks, quality and liveness.

#include "cli/run_command.hpp"
#include "face_figures.hpp"
#include "labels.hpp"
#include "liveness_figures.hpp"
#include "quality_figures.hpp"
#include "statistics.hpp"

#include <veldan/align.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

using namespace veldan::eval;
using testing::DoubleEq;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Optional;

TEST(Statistics, RankCorrelationSharesEqualRanks) {
    EXPECT_THAT(ranks({10, 20, 20, 5, 20}), ElementsAre(2, 4, 4, 1, 4));
    EXPECT_THAT(rankCorrelation({1, 2, 3, 4}, {10, 300, 20, 4000}), Optional(testing::DoubleNear(0.8, 1e-12)));
    // Ranks 1, 2.5, 2.5, 4, 5 and 4.5, 4.5, 3, 1.5, 1.5: -8.25 / root of 9.5 x 9.
    EXPECT_THAT(rankCorrelation({1, 2, 2, 3, 4}, {5, 5, 3, 1, 1}),
                Optional(testing::DoubleNear(-8.25 / std::sqrt(85.5), 1e-12)));
    EXPECT_EQ(rankCorrelation({1, 2, 3}, {7, 7, 7}), std::nullopt);
    EXPECT_EQ(rankCorrelation({1}, {2}), std::nullopt);
}

TEST(Statistics, QuantilesLieBetweenNeighbours) {
    EXPECT_DOUBLE_EQ(quantile({8, 1, 4, 2}, 0.9), 6.8);
    EXPECT_DOUBLE_EQ(quantile({8, 1, 4, 2}, 1), 8);
    EXPECT_DOUBLE_EQ(median({8, 1, 4, 2}), 3);
    EXPECT_DOUBLE_EQ(median({}), 0);
}

TEST(Statistics, AreaCountsPairs) {
    EXPECT_THAT(areaUnderCurve({90, 70, 50}, {50, 20}), Optional(DoubleEq(5.5 / 6)));
    EXPECT_THAT(areaUnderCurve({3, 3}, {3}), Optional(DoubleEq(0.5)));
    EXPECT_EQ(areaUnderCurve({1}, {}), std::nullopt);
}

class AlignedSquares : public testing::TestWithParam<FivePoints> {};

// In a picture whose blue is its column and whose green is its row, a crop shows where it was taken.
TEST_P(AlignedSquares, LieWhereTheLibraryCuts) {
    std::vector<unsigned char> picture(256 * 256 * 3);
    for (std::size_t i = 0; i < picture.size(); i += 3) {
        picture[i] = static_cast<unsigned char>(i / 3 % 256);
        picture[i + 1] = static_cast<unsigned char>(i / 3 / 256);
    }
    std::vector<float> points;
    for (const Point& point : GetParam())
        points.insert(points.end(), {static_cast<float>(point.x), static_cast<float>(point.y)});
    std::vector<unsigned char> crop(112 * 112 * 3);
    alignface_pinv(picture.data(), 256, 256, crop.data(), 112, 112, points.data());

    const auto square = alignedSquare(GetParam());
    ASSERT_TRUE(square);
    EXPECT_NEAR(square->first.x, crop[0], 1);
    EXPECT_NEAR(square->first.y, crop[1], 1);
    // The last pixel of the crop is (111, 111); the second corner is a pixel further along the diagonal.
    const std::size_t last = crop.size() - 3;
    EXPECT_NEAR(square->second.x - (square->second.x - square->first.x) / 112, crop[last], 1);
    EXPECT_NEAR(square->second.y - (square->second.y - square->first.y) / 112, crop[last + 1], 1);
    EXPECT_NEAR(square->side * std::sqrt(2), distance(square->first, square->second), 1e-9);
}

INSTANTIATE_TEST_SUITE_P(Faces, AlignedSquares,
                         testing::Values(FivePoints{{{100, 110}, {150, 108}, {126, 140}, {105, 170}, {148, 168}}},
                                         FivePoints{{{110, 90}, {150, 120}, {115, 130}, {85, 135}, {120, 160}}},
                                         FivePoints{{{140, 90}, {120, 150}, {100, 115}, {80, 95}, {75, 140}}},
                                         FivePoints{{{120, 120}, {130, 120}, {125, 127}, {121, 131}, {129, 131}}}));

TEST(AlignedSquares, TellTurnAndSide) {
    // The template at twice its size, turned by 30 degrees clockwise.
    FivePoints points = {
        {{38.2946, 51.6953}, {73.5318, 51.5014}, {56.0252, 71.7366}, {41.5493, 92.3655}, {70.7299, 92.2041}}};
    const double c = std::sqrt(3.0);
    for (Point& point : points)
        point = {c * point.x - point.y + 300, point.x + c * point.y + 40};
    const auto square = alignedSquare(points);
    ASSERT_TRUE(square);
    EXPECT_NEAR(square->first.x, 300, 1e-9);
    EXPECT_NEAR(square->first.y, 40, 1e-9);
    EXPECT_NEAR(square->second.x, 300 + 112 * (c - 1), 1e-9);
    EXPECT_NEAR(square->second.y, 40 + 112 * (c + 1), 1e-9);
    EXPECT_NEAR(square->side, 224, 1e-9);
    EXPECT_NEAR(square->angle, 30, 1e-9);
    EXPECT_FALSE(alignedSquare({{{5, 5}, {5, 5}, {5, 5}, {5, 5}, {5, 5}}}));
}

TEST(CornerErrors, AreSharesOfTheSide) {
    EXPECT_DOUBLE_EQ(cornerError({13, 14}, {110, 121}, {{10, 10}, {110, 110}, 100, 0}), 0.08);
    CornerFigures figures;
    for (const double error : {0.05, 0.01, 0.03})
        figures.faces.push_back(CornerErrors{error, 2 * error, 3 * error, error > 0.02});
    figures.faces.push_back(std::nullopt);
    const Json json = figures.toJson();
    EXPECT_EQ(json["faces"], 4);
    EXPECT_EQ(json["missed"], 1);
    EXPECT_EQ(json["shifted"], 2);
    EXPECT_EQ(json["twoPoints"]["median"], 0.03);
    EXPECT_DOUBLE_EQ(json["twoPointsAgainstFoundFive"]["mean"].get<double>(), 0.06);
    EXPECT_DOUBLE_EQ(json["foundFive"]["percentile90"].get<double>(), 0.138);
}

TEST(CornerErrors, TakeTheShiftOfPointsFromTheLargestOvershoot) {
    EXPECT_EQ(shiftOfPoints(20, 30, 80, 100, 640, 480), 0);
    EXPECT_EQ(shiftOfPoints(0, 30, 80, 100, 640, 480), 10);
    EXPECT_EQ(shiftOfPoints(600, 430, 40, 50, 640, 480), 5);
    EXPECT_EQ(shiftOfPoints(5, 460, 60, 20, 640, 480), 20);
    EXPECT_EQ(shiftOfPoints(50, 0, 101, 60, 640, 480), 20); // -41 / 2 is cut off to -20
}

LabelledPhoto photoOf(const std::string& file) {
    LabelledPhoto photo;
    photo.file = file;
    return photo;
}

FivePoints spread(double x, double y) {
    return {{{x, y}, {x, y}, {x, y}, {x, y}, {x, y}}};
}

TEST(KnownFaces, TakePointsOfPeopleWhereTheyAgree) {
    LabelledPhoto photo = photoOf("a.webp");
    photo.faces = {{{0, 0, 100, 100}, spread(50, 50), 0.9},
                   {{200, 0, 100, 100}, spread(250, 50), 0.6},
                   {{0, 200, 90, 90}, spread(45, 245), 0.59},
                   {{300, 300, 39, 40}, spread(320, 320), 0.9}};
    photo.personPoints = spread(50, 69);
    std::vector<PointedFace> faces = facesWithPoints(photo, {});
    ASSERT_EQ(faces.size(), 2U);
    ASSERT_TRUE(faces[0].replacedPoints);
    EXPECT_EQ((*faces[0].replacedPoints)[3].y, 50);
    EXPECT_EQ(faces[0].points[3].y, 69);
    EXPECT_FALSE(faces[1].replacedPoints);
    EXPECT_EQ(faces[1].points[0].x, 250);

    photo.personPoints = spread(50, 71); // more than a fifth of the height away: the teacher is believed
    faces = facesWithPoints(photo, {});
    EXPECT_FALSE(faces[0].replacedPoints);
    EXPECT_EQ(faces[0].points[3].y, 50);
}

TEST(KnownFaces, TakeClassesFromBoxesAndNames) {
    LabelledPhoto crowd = photoOf("with_mask_like_name.webp");
    crowd.faces = {{{0, 0, 100, 100}, {}, 0.9}, {{200, 0, 100, 100}, {}, 0.9}};
    crowd.personBoxes = {{{0, 0, 100, 60}, withoutMask}, {{400, 0, 100, 100}, withMask}, {{0, 300, 30, 30}, withMask}};
    EXPECT_EQ(facesWithPoints(crowd, {})[0].category, withoutMask);
    std::vector<ClassedFace> classed = facesWithClass(crowd, {});
    ASSERT_EQ(classed.size(), 2U); // without the small one
    EXPECT_EQ(classed[1].category, withMask);
    EXPECT_EQ(classed[1].box->x, 400);

    LabelledPhoto close = photoOf("without_mask_7.webp");
    close.faces = {{{0, 0, 50, 50}, {}, 0.9}, {{200, 0, 100, 100}, {}, 0.9}, {{200, 0, 300, 300}, {}, 0.5}};
    EXPECT_EQ(facesWithPoints(close, {})[0].category, "");
    EXPECT_EQ(facesWithPoints(close, {})[1].category, withoutMask);
    classed = facesWithClass(close, {});
    ASSERT_EQ(classed.size(), 1U);
    EXPECT_EQ(classed[0].category, withoutMask);
    EXPECT_EQ(classed[0].box->width, 100);
    FaceRules large;
    large.leastSize = 101;
    EXPECT_TRUE(facesWithClass(close, large).empty());
    close.faces.clear();
    ASSERT_EQ(facesWithClass(close, {}).size(), 1U);
    EXPECT_FALSE(facesWithClass(close, {})[0].box);
    EXPECT_TRUE(facesWithClass(photoOf("portrait.webp"), {}).empty());
}

TEST(MaskFigures, CountFoundFacesOfTheTwoClasses) {
    MaskFigures figures;
    EXPECT_TRUE(figures.toJson()["accuracy"].is_null());
    for (const int score : {41, 99, 40})
        figures.add(withMask, score, 41);
    figures.add(withMask, std::nullopt, 41);
    EXPECT_DOUBLE_EQ(figures.toJson()["accuracy"].get<double>(), 2.0 / 3);
    figures.add(withoutMask, 0, 41);
    figures.add(maskWornWrong, 80, 41);
    figures.add(maskWornWrong, 3, 41);
    const Json json = figures.toJson();
    EXPECT_EQ(json["accuracy"], 0.75);
    EXPECT_EQ(json["faces"], 7);
    EXPECT_EQ(json["classes"][withMask], (Json{{"judgedMasked", 2}, {"judgedBare", 1}, {"missed", 1}}));
    EXPECT_EQ(json["classes"][maskWornWrong], (Json{{"judgedMasked", 1}, {"judgedBare", 1}, {"missed", 0}}));
}

TEST(QualityFigures, CorrelateByKindAndSource) {
    // Two sources; the first falls without exception, the second rises once. One face is not found.
    const Json figures = qualityFigures(
        {
            {"", "a", "none", 0, 90},
            {"", "b", "none", 0, 80},
            {"", "c", "masked", 0, 30},
            {"", "a", "blur", 0.5, 60},
            {"", "a", "blur", 1, 10},
            {"", "b", "blur", 0.5, 85},
            {"", "b", "blur", 1, std::nullopt},
            {"", "d", "pose", 0.12, 50},
            {"", "e", "pose", 0.33, 40},
        },
        60);
    ASSERT_EQ(figures["damage"].size(), 3U);
    const Json& blur = figures["damage"][0];
    EXPECT_EQ(blur["kind"], "blur");
    EXPECT_EQ(blur["photos"], 6);
    EXPECT_EQ(blur["missed"], 1);
    // Levels rank 1.5, 1.5, 3.5, 3.5, 5, scores 5, 3, 2, 4, 1: -7 / root of 9 x 10; then with a sixth photo.
    EXPECT_NEAR(blur["pooled"].get<double>(), 7 / std::sqrt(90), 1e-12);
    EXPECT_NEAR(blur["pooledWithMissed"].get<double>(), 0.8366600265340757, 1e-12);
    EXPECT_EQ(blur["sources"], 1); // b has two levels with a score
    EXPECT_EQ(blur["bySource"], 1.0);
    EXPECT_EQ(blur["levels"][1], (Json{{"level", 0.5}, {"photos", 2}, {"missed", 0}, {"meanScore", 72.5}}));
    EXPECT_EQ(blur["levels"][2]["missed"], 1);

    // The largest tenth of poses has one photo, so one undamaged one is the start: 90, 50, 40.
    const Json& pose = figures["damage"][1];
    EXPECT_EQ(pose["photos"], 3);
    EXPECT_DOUBLE_EQ(pose["pooled"].get<double>(), 1);
    EXPECT_EQ(pose["sources"], 0);
    EXPECT_TRUE(pose["bySource"].is_null());
    EXPECT_EQ(pose["levels"][0]["photos"], 2);
    EXPECT_EQ(pose["levels"][1]["photos"], 1);

    EXPECT_EQ(figures["damage"][2]["kind"], "all");
    EXPECT_EQ(figures["damage"][2]["photos"], 9);
    const Json& undamaged = figures["undamaged"];
    ASSERT_EQ(undamaged.size(), 3U); // none, masked, all
    EXPECT_EQ(undamaged[0]["good"], 2);
    EXPECT_EQ(undamaged[1]["good"], 0);
    EXPECT_EQ(undamaged[2]["photos"], 3);
    EXPECT_NEAR(undamaged[2]["meanScore"].get<double>(), 200.0 / 3, 1e-12);
}

TEST(QualityFigures, HoldAConstantScoreToFollowNothing) {
    const Json noise = qualityFigures(
        {{"", "a", "noise", 0, 50}, {"", "a", "noise", 0.01, 50}, {"", "a", "noise", 1, 50}}, 60)["damage"][0];
    EXPECT_EQ(noise["pooled"], 0.0);
    EXPECT_EQ(noise["bySource"], 0.0);
    EXPECT_EQ(noise["sources"], 1);
    EXPECT_EQ(noise["levels"][1]["level"], 0.1); // however slight, not with the undamaged ones
}

LivenessPhoto shown(bool attack, const std::string& kind, std::optional<int> score) {
    return {"", false, attack, kind, false, score};
}

TEST(LivenessFigures, AreErrorRatesAtTheThreshold) {
    const Json figures = livenessFigures(
        {shown(true, "print", 49), shown(true, "print", 50), shown(true, "print", 10), shown(true, "print", 0),
         shown(true, "screen", 90), shown(true, "screen", std::nullopt), shown(false, "plain", 50),
         shown(false, "plain", 49), shown(false, "plain", std::nullopt), shown(false, "camera", 95)},
        50);
    EXPECT_EQ(figures["apcer"], 0.4);
    EXPECT_EQ(figures["bpcer"], 1.0 / 3);
    EXPECT_DOUBLE_EQ(figures["acer"].get<double>(), 11.0 / 30);
    EXPECT_EQ(figures["worstKind"], "screen");
    EXPECT_EQ(figures["apcerOfWorst"], 1.0);
    ASSERT_EQ(figures["kinds"].size(), 4U);
    EXPECT_EQ(figures["kinds"][1]["missed"], 1);
    EXPECT_EQ(figures["kinds"][1]["photos"], 1);
    EXPECT_EQ(figures["kinds"][0]["rate"], 0.25);
    // Of 15 pairs 95 wins five, 50 three and a half, 49 two and a half.
    EXPECT_DOUBLE_EQ(figures["auc"].get<double>(), 11.0 / 15);
    EXPECT_EQ(figures["thresholds"][1], (Json{{"threshold", 10}, {"apcer", 0.8}, {"bpcer", 0.0}, {"acer", 0.4}}));
    const Json onlyLive = livenessFigures({shown(false, "plain", 80)}, 50);
    EXPECT_TRUE(onlyLive["apcer"].is_null());
    EXPECT_TRUE(onlyLive["acer"].is_null());
}

TEST(LivenessSources, AreReadInTheOrderOfTheRecording) {
    const ScratchFolder folder;
    const auto write = [&](const char* name, const std::string& text) {
        writeBytes(folder / name, {text.begin(), text.end()});
    };
    write("attack_x.csv", "file,source,class,split\n3.png,real/10.png,live,fold\n4.png,real/9 (1).png,live,fold\n"
                          "5.png,fake/1.png,attack,fold\n6.png,real/11.png,live,fold\n");
    write("review.csv", "file,source,turn,reason\n3.png,attack_x,270,sideways\n6.png,attack_x,,no face\n"
                        "5.png,attack_y,,another source\n");
    EXPECT_EQ(sourcesIn(folder / ""), std::vector<std::string>{"attack_x"});
    const std::vector<SourcePhoto> photos = readSource(folder / "", "attack_x", folder / "review.csv");
    ASSERT_EQ(photos.size(), 3U);
    EXPECT_EQ(photos[0].photo.file, "4.png");
    EXPECT_EQ(photos[1].photo.file, "3.png");
    EXPECT_EQ(photos[1].turns, 3);
    EXPECT_TRUE(photos[2].photo.attack);
}

TEST(LivenessSources, AreJudgedByTheMedianOfATrack) {
    const auto frame = [](bool attack, std::optional<int> score, bool continues = true) {
        return SourcePhoto{shown(attack, "x", score), 0, continues};
    };
    const std::vector<LivenessPhoto> tracks = medianOverTracks(
        {frame(false, 90), frame(false, 10), frame(false, std::nullopt), frame(false, 80), // three of a track
         frame(false, 30), frame(false, 50, false), frame(true, 20), frame(true, 40)},
        3);
    std::vector<int> scores;
    for (const LivenessPhoto& track : tracks)
        scores.push_back(*track.score);
    EXPECT_EQ(scores, (std::vector<int>{80, 30, 50, 20}));
    EXPECT_TRUE(tracks[3].attack);
}

struct Table {
    enum Kind { Quality, Attacks, Spoof } kind;
    std::string text;
    const char* message;
};

class FaultyTables : public testing::TestWithParam<Table> {};

TEST_P(FaultyTables, AreRefusedWithFileAndLine) {
    const ScratchFolder folder;
    const Table& table = GetParam();
    writeBytes(folder / "photos.csv", {table.text.begin(), table.text.end()});
    try {
        if (table.kind == Table::Quality)
            readDamagedPhotos(folder / "photos.csv");
        else if (table.kind == Table::Attacks)
            readAttackPhotos(folder / "photos.csv");
        else
            readSpoofPhotos(folder / "photos.csv", "set2");
        FAIL() << "accepted";
    } catch (const std::runtime_error& error) {
        EXPECT_THAT(error.what(), HasSubstr(table.message));
    }
}

INSTANTIATE_TEST_SUITE_P(
    Tables, FaultyTables,
    testing::Values(Table{Table::Quality, "file,source,kind,level\na.png,a,blur,1.01\n",
                          "photos.csv:2: a level of 1.01"},
                    Table{Table::Quality, "a.png,a,blur,nan\n", "a level of nan"},
                    Table{Table::Quality, "a.png,a,blur,\n", "\"\" is not a number"},
                    Table{Table::Attacks, "a.png,dark,live,plain,0\n", "\"dark\" is none of visible, nir"},
                    Table{Table::Attacks, "a.png,nir,dead,plain,0\n", "\"dead\" is none of live, attack"},
                    Table{Table::Attacks, "a.png,nir,live,plain,yes\n", "\"yes\" is none of 0, 1"},
                    Table{Table::Spoof, "a.png,set1,livid\n", "\"livid\" is none of"}));

} // namespace
