#include "detection_figures.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cmath>

namespace {

using namespace veldan::eval;
using testing::ElementsAre;

FoundFace found(double x, double y, double width, double height) {
    return {{x, y, width, height}, {}};
}

TeacherFace face(double x, double y, double width, double height, double score = 0.9) {
    return {{x, y, width, height}, {}, score};
}

LabelledPhoto labels(std::vector<TeacherFace> faces, std::vector<PersonBox> people = {}) {
    LabelledPhoto photo;
    photo.faces = std::move(faces);
    photo.personBoxes = std::move(people);
    return photo;
}

PhotoVerdict judged(const std::vector<FoundFace>& faces, const LabelledPhoto& truth, const DetectionRules& rules = {}) {
    return judge(faces, truth, 640, 480, rules);
}

constexpr Verdict T = Verdict::True;
constexpr Verdict F = Verdict::False;
constexpr Verdict I = Verdict::Ignored;

TEST(Overlap, OfBoxesWorkedOutByHand) {
    EXPECT_DOUBLE_EQ(overlap({0, 0, 10, 10}, {5, 0, 10, 10}), 50.0 / 150.0);
    EXPECT_DOUBLE_EQ(overlap({0, 0, 10, 10}, {2, 2, 5, 5}), 0.25);
    EXPECT_DOUBLE_EQ(overlap({0, 0, 10, 10}, {10, 0, 10, 10}), 0);
    EXPECT_DOUBLE_EQ(overlap({3, 4, 0, 0}, {3, 4, 0, 0}), 0);
}

TEST(Judge, AdmitsTheLeastOverlapItself) {
    const LabelledPhoto truth = labels({face(100, 100, 100, 100)});
    EXPECT_THAT(judged({found(100, 100, 100, 50)}, truth).found, ElementsAre(T));
    const PhotoVerdict less = judged({found(100, 100, 100, 49)}, truth);
    EXPECT_THAT(less.found, ElementsAre(F));
    EXPECT_THAT(less.wantedFound, ElementsAre(false));
}

TEST(Judge, GivesEachFaceToTheBestBoxOnly) {
    EXPECT_THAT(judged({found(100, 100, 100, 80), found(100, 100, 100, 95)}, labels({face(100, 100, 100, 100)})).found,
                ElementsAre(F, T));
    // The first box overlaps both faces (2/3 and 1/2), the second only the left one, but better: both can be served.
    const PhotoVerdict both = judged({found(100, 100, 100, 150), found(100, 100, 100, 100)},
                                     labels({face(100, 100, 100, 100), face(100, 150, 100, 150)}));
    EXPECT_THAT(both.found, ElementsAre(T, T));
    EXPECT_THAT(both.wantedFound, ElementsAre(true, true));
}

TEST(Judge, NeitherWantsNorBlamesUncertainAndSmallFaces) {
    const LabelledPhoto truth = labels({face(0, 0, 100, 100, 0.59), face(300, 300, 40, 40), face(500, 0, 45, 45)});
    const PhotoVerdict verdict = judged({found(0, 0, 100, 100), found(300, 300, 40, 40)}, truth);
    EXPECT_THAT(verdict.found, ElementsAre(I, I));
    EXPECT_THAT(verdict.wantedFound, ElementsAre(false)); // the third label
    // For these an overlap of 0.3 is enough, and less is not.
    EXPECT_THAT(judged({found(0, 0, 100, 30), found(0, 71, 100, 29)}, truth).found, ElementsAre(I, F));
    // A score of exactly 0.6 makes a face.
    EXPECT_THAT(judged({}, labels({face(0, 0, 100, 100, 0.6)})).wantedFound, ElementsAre(false));
}

TEST(Judge, MeasuresSizesAsAsked) {
    const LabelledPhoto truth = labels({face(0, 0, 40, 50)});
    DetectionRules rules;
    EXPECT_TRUE(judged({}, truth, rules).wanted.empty()); // root of 2000 is 44.7
    rules.measure = SizeMeasure::Longer;
    EXPECT_EQ(judged({}, truth, rules).wanted.size(), 1u);
    rules.measure = SizeMeasure::Shorter;
    EXPECT_TRUE(judged({}, truth, rules).wanted.empty());
    rules.leastSize = 40;
    EXPECT_EQ(judged({}, truth, rules).wanted.size(), 1u);
}

TEST(Judge, IgnoresFacesThatPeopleBoxedButNotSecondBoxesOfAFace) {
    const PersonBox unseen{{0, 0, 100, 100}, "with_mask"};
    EXPECT_THAT(judged({found(0, 0, 100, 90)}, labels({}, {unseen})).found, ElementsAre(I));
    EXPECT_THAT(judged({found(0, 0, 100, 100), found(0, 0, 100, 90)}, labels({face(0, 0, 100, 100)}, {unseen})).found,
                ElementsAre(T, F));
    // Too far from the teacher's label to be that face, but it is the face that the person saw.
    const PhotoVerdict shifted = judged({found(0, 0, 100, 100)}, labels({face(0, 55, 100, 100)}, {unseen}));
    EXPECT_THAT(shifted.found, ElementsAre(I));
    EXPECT_THAT(shifted.wantedFound, ElementsAre(false));
}

TEST(Judge, TakesThePartOfALabelInsideThePicture) {
    EXPECT_THAT(judged({found(0, 0, 60, 100), found(600, 400, 40, 80)},
                       labels({face(-60, 0, 120, 100), face(600, 400, 200, 200)}))
                    .found,
                ElementsAre(T, T));
}

const FivePoints truthPoints = {{{0, 0}, {100, 0}, {50, 50}, {20, 100}, {80, 100}}};

TEST(PointErrors, AreSharesOfTheEyeDistance) {
    FoundFace good{{-50, -50, 200, 200}, truthPoints};
    good.points[0] = {3, 4};
    good.points[1] = {97, -4};
    good.points[3] = {30, 100};
    good.points[4] = {80, 90};
    const PointError error = pointError({good}, truthPoints);
    EXPECT_TRUE(error.matched);
    EXPECT_THAT(error.each, ElementsAre(testing::DoubleEq(0.05), testing::DoubleEq(0.05), 0.0, testing::DoubleEq(0.1),
                                        testing::DoubleEq(0.1)));
    EXPECT_DOUBLE_EQ(error.mean, 0.06);

    FoundFace worse = good;
    worse.points[2] = {50, 80};
    EXPECT_DOUBLE_EQ(pointError({worse, good}, truthPoints).mean, 0.06);
    FoundFace elsewhere = good;
    elsewhere.box = {200, 200, 50, 50};
    EXPECT_FALSE(pointError({elsewhere}, truthPoints).matched);
    EXPECT_FALSE(pointError({}, truthPoints).matched);
}

TEST(PointErrors, LeaveOutPointsThatContradictTheFaces) {
    LabelledPhoto portrait = labels({face(-50, -50, 200, 200)});
    portrait.faces[0].points = truthPoints;
    portrait.personPoints = truthPoints;
    const auto contradictedAt = [&](double dy, double score) {
        LabelledPhoto moved = portrait;
        moved.faces[0].score = score;
        for (Point& point : *moved.personPoints)
            point.y += dy;
        DetectionFigures figures;
        figures.add({{{-50, -50, 200, 200}, truthPoints}}, moved, 640, 480, {}, 1);
        const Json json = figures.toJson();
        EXPECT_EQ(json["pointFaces"].get<int>() + json["pointFacesContradicted"].get<int>(), 1);
        EXPECT_NEAR(json["pointErrorMeanOfAll"].get<double>(), std::abs(dy) / 100,
                    1e-12); // of the eye distance, judged or not
        return json["pointFacesContradicted"] == 1;
    };
    EXPECT_FALSE(contradictedAt(0, 0.9));
    EXPECT_FALSE(contradictedAt(-39, 0.9));
    EXPECT_TRUE(contradictedAt(-41, 0.9));  // more than a fifth of 200
    EXPECT_FALSE(contradictedAt(-41, 0.5)); // a doubtful face contradicts nothing
}

TEST(Labels, ScaleBoxesFromEdgesAndPointsFromPixelMiddles) {
    LabelledPhoto portrait = labels({face(10, 20, 30, 40)});
    portrait.personPoints = truthPoints;
    const LabelledPhoto larger = scaled(portrait, 8, 4);
    EXPECT_DOUBLE_EQ(larger.faces[0].box.x, 80);
    EXPECT_DOUBLE_EQ(larger.faces[0].box.height, 160);
    EXPECT_DOUBLE_EQ((*larger.personPoints)[0].x, 3.5);
    EXPECT_DOUBLE_EQ((*larger.personPoints)[2].y, 201.5);
}

TEST(Figures, AreSumsOverPhotos) {
    const DetectionRules rules;
    LabelledPhoto portrait = labels({face(-50, -50, 200, 200)});
    portrait.faces[0].points = truthPoints;
    portrait.personPoints = truthPoints;
    FoundFace portraitFace{{0, 0, 150, 150}, truthPoints};
    portraitFace.points[0] = {10, 0};

    DetectionFigures figures;
    figures.add({portraitFace, found(300, 300, 50, 50), found(400, 100, 20, 20)}, portrait, 640, 480, rules, 4);
    figures.add({}, portrait, 640, 480, rules, 1, true);
    figures.add({found(0, 0, 60, 60)}, labels({}), 640, 480, rules, 2);
    figures.add({found(0, 0, 60, 60)},
                labels({face(0, 0, 60, 60)},
                       {{{0, 0, 60, 60}, "with_mask"}, {{200, 0, 60, 60}, "with_mask"}, {{0, 200, 20, 20}, "bare"}}),
                640, 480, rules, 9);
    Json wanted = {{"photos", 4},
                   {"faces", 3},
                   {"recall", 2.0 / 3},
                   {"falsePositives", 3},
                   {"refused", 1},
                   {"smallFalsePositives", 1},
                   {"emptyPhotos", 1},
                   {"falsePositivesPerPhoto", 0.75},
                   {"pointFaces", 2},
                   {"emptyFalsePositives", 1},
                   {"ignored", 0},
                   {"pointFacesMissed", 1},
                   {"pointErrorMean", 0.02},
                   {"millisecondsMean", 4.0},
                   {"millisecondsMedian", 3.0}};
    wanted["personBoxes"]["with_mask"] = {{"boxes", 2}, {"found", 1}}; // the small box does not count
    const Json json = figures.toJson();
    for (const auto& [figure, value] : wanted.items())
        EXPECT_EQ(json.at(figure), value) << figure;
    EXPECT_EQ(DetectionFigures().toJson()["recall"], 1.0);
}

} // namespace
