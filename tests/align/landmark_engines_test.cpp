#include "support/engines.hpp"
#include "support/frames.hpp"

#include <veldan/face_landmark.hpp>
#include <veldan/face_mask.hpp>
#include <veldan/onet_landmark.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using veldan::EngineAccess;
using veldan_tests::addLayer;
using veldan_tests::changedWords;
using veldan_tests::faceWithBox;
using veldan_tests::LinearLayer;
using veldan_tests::loadInto;
using veldan_tests::noiseFrame;
using veldan_tests::plainRegion;
using veldan_tests::plainResize;

constexpr std::size_t samples = 48 * 48 * 3;

// Boxes in a frame of 640 x 480, the square about each, and that square as it is reported.
struct SquareCase {
    cv::Rect box;
    cv::Rect square;
    cv::Rect reported;
};
const SquareCase squares[] = {
    {{10, 50, 100, 60}, {10, 30, 100, 100}, {10, 30, 100, 100}},
    {{20, 30, 80, 100}, {10, 30, 100, 100}, {10, 30, 100, 100}},
    {{10, 10, 61, 40}, {10, 0, 61, 61}, {10, 0, 61, 61}}, // half of -21 is -10
    {{300, 200, 40, 61}, {290, 200, 61, 61}, {290, 200, 61, 61}},
    {{0, 0, 480, 480}, {0, 0, 480, 480}, {0, 0, 480, 480}},
    {{540, 380, 100, 100}, {540, 380, 100, 100}, {540, 380, 100, 100}}, // touches two borders
    {{0, 30, 80, 100}, {-10, 30, 100, 100}, {0, 40, 100, 100}},         // left by 10
    {{541, 380, 100, 100}, {541, 380, 100, 100}, {542, 381, 100, 100}}, // right by 1
    {{100, -7, 50, 50}, {100, -7, 50, 50}, {107, 0, 50, 50}},           // top by 7
    {{300, 470, 30, 40}, {295, 470, 40, 40}, {325, 500, 40, 40}},       // bottom by 30
    {{-10, -20, 700, 520}, {-10, -110, 700, 700}, {100, 0, 700, 700}},  // larger than the frame
    {{-500, 100, 60, 60}, {-500, 100, 60, 60}, {0, 600, 60, 60}},       // outside
    {{100, 100, 10, 1}, {100, 96, 10, 10}, {100, 96, 10, 10}},          // half of -9 is -4
    {{200, 100, 90, -10}, {200, 50, 90, 90}, {200, 50, 90, 90}},        // one side counts
    {{-60000, 90, 80, 80}, {-60000, 90, 80, 80}, {0, 60090, 80, 80}},   // too far for a bordered copy
    {{60000, -60000, 80, 80}, {60000, -60000, 80, 80}, {120000, 0, 80, 80}},
    {{-1500, -1500, 3000, 3000}, {-1500, -1500, 3000, 3000}, {0, 0, 3000, 3000}},
    {{-9500, 200, 9600, 9600}, {-9500, 200, 9600, 9600}, {0, 9700, 9600, 9600}},
};

TEST(SquareCrop, IsTheSquareAboutTheBoxBlackOutside) {
    const cv::Mat frame = noiseFrame(640, 480);
    for (const SquareCase& c : squares) {
        SCOPED_TRACE(testing::Message() << c.box);
        for (const int size : {48, 61}) {
            const cv::Mat expected = plainResize(plainRegion(frame, c.square), size);
            cv::Mat crop;
            EXPECT_EQ(get_crop(frame, c.box.x, c.box.y, c.box.width, c.box.height, size, crop), 0);
            EXPECT_EQ(crop.size(), cv::Size(size, size));
            EXPECT_EQ(cv::norm(crop, expected, cv::NORM_INF), 0);
            cv::Rect rect;
            EXPECT_EQ(get_crop_landmark(frame, c.box.x, c.box.y, c.box.width, c.box.height, size, crop, rect), 0);
            EXPECT_EQ(cv::norm(crop, expected, cv::NORM_INF), 0);
            EXPECT_EQ(rect, c.reported);
        }
    }
}

TEST(SquareCrop, HostileBoxesGiveACropOrAnException) {
    const cv::Mat frame = noiseFrame(640, 480);
    cv::Mat crop;
    cv::Rect rect;
    const cv::Rect none[] = {{10, 10, 0, 0},
                             {10, 10, -5, -3},
                             {-10, 10, 0, 0},
                             {700, 0, -1, 0},
                             {0, 0, INT_MIN, INT_MIN},
                             {0, 0, INT_MAX, INT_MAX},
                             {INT_MIN, INT_MIN, INT_MAX, 1}};
    for (const cv::Rect& box : none) {
        EXPECT_THROW(get_crop(frame, box.x, box.y, box.width, box.height, 48, crop), cv::Exception) << box;
        EXPECT_THROW(get_crop_landmark(frame, box.x, box.y, box.width, box.height, 48, crop, rect), cv::Exception);
    }
    EXPECT_THROW(get_crop(cv::Mat(), 0, 0, 10, 10, 48, crop), cv::Exception);
    EXPECT_THROW(get_crop(frame, 0, 0, 10, 10, 0, crop), cv::Exception);
    EXPECT_THROW(get_crop(frame, 0, 0, 10, 10, -1, crop), cv::Exception);
    for (const int x : {INT_MIN, INT_MAX})
        for (const int w : {100, INT_MIN})
            for (const int h : {100, 99}) {
                get_crop_landmark(frame, x, x, w, h, 48, crop, rect);
                EXPECT_EQ(cv::norm(crop), 0);
            }
    EXPECT_EQ(rect.x, INT_MAX) << "what an int cannot hold becomes the nearest int";
}

class TwoPoints : public testing::Test {
protected:
    void load(const LinearLayer& layer) {
        GraphWriter graph;
        addLayer(graph, "landmark_fc", layer);
        loadInto(EngineAccess::net(engine), graph.bytes());
    }
    int evaluate(VDFACEINFOEX* faces, int count) {
        return engine.landmarkEvaluation(frame.data, frame.cols, frame.rows, count, faces);
    }

    vdFaceLandmark engine;
    cv::Mat frame = noiseFrame(640, 480);
};

TEST_F(TwoPoints, AreRelativeToTheReportedSquare) {
    // More outputs than are read.
    load(LinearLayer(samples, {0.5F, 0.5F, -0.25F, 1.75F, 9, 9, 9, 9, 9, 9}));
    const VDFACEINFOEX before[] = {faceWithBox(20, 30, 80, 100), faceWithBox(0, 30, 80, 100),
                                   faceWithBox(100, 10, 3, 3)};
    VDFACEINFOEX faces[] = {before[0], before[1], before[2]};
    ASSERT_EQ(evaluate(faces, 3), 0);
    // 10 + 0.5 x 101 and so on; the second square left the frame by 10.
    EXPECT_EQ(faces[0].keyPointX[5], 60);
    EXPECT_EQ(faces[0].keyPointY[5], 80);
    EXPECT_EQ(faces[0].keyPointX[6], -15); // -15.25, toward zero
    EXPECT_EQ(faces[0].keyPointY[6], 206);
    EXPECT_EQ(faces[1].keyPointX[5], 50);
    EXPECT_EQ(faces[1].keyPointY[5], 90);
    EXPECT_EQ(faces[1].keyPointX[6], -25);
    EXPECT_EQ(faces[1].keyPointY[6], 216);
    EXPECT_EQ(faces[2].keyPointX[5], 102);
    EXPECT_EQ(faces[2].keyPointY[6], 17);
    for (int i = 0; i < 3; ++i)
        EXPECT_THAT(changedWords(before[i], faces[i]), ElementsAre(10, 11, 130, 131));
}

TEST_F(TwoPoints, TheNetworkSeesTheCrop) {
    const LinearLayer layer = LinearLayer(samples, {0.1F, 0.2F, 0.7F, 0.8F}).randomize(7, 0.02F);
    load(layer);
    for (const SquareCase& c : squares) {
        SCOPED_TRACE(testing::Message() << c.box);
        const std::vector<double> outputs = layer.of(plainResize(plainRegion(frame, c.square), 48));
        VDFACEINFOEX face = faceWithBox(c.box.x, c.box.y, c.box.width, c.box.height);
        ASSERT_EQ(evaluate(&face, 1), 0);
        const double side = c.reported.width + 1;
        EXPECT_NEAR(face.keyPointX[5], std::trunc(c.reported.x + outputs[0] * side), 1);
        EXPECT_NEAR(face.keyPointY[5], std::trunc(c.reported.y + outputs[1] * side), 1);
        EXPECT_NEAR(face.keyPointX[6], std::trunc(c.reported.x + outputs[2] * side), 1);
        EXPECT_NEAR(face.keyPointY[6], std::trunc(c.reported.y + outputs[3] * side), 1);
    }
}

TEST_F(TwoPoints, AnswersWithoutAnIntegerAreStillDefined) {
    load(LinearLayer(samples, {NAN, INFINITY, -INFINITY, 3e9F}));
    VDFACEINFOEX face = faceWithBox(20, 30, 80, 100);
    ASSERT_EQ(evaluate(&face, 1), 0);
    EXPECT_EQ(face.keyPointX[5], 0);
    EXPECT_EQ(face.keyPointY[5], INT_MAX);
    EXPECT_EQ(face.keyPointX[6], INT_MIN);
    EXPECT_EQ(face.keyPointY[6], INT_MAX);
}

TEST_F(TwoPoints, ABoxWithoutACropEndsWithOpenCvsException) {
    load(LinearLayer(samples, {0.5F, 0.5F, 0.5F, 0.5F}));
    const VDFACEINFOEX before[] = {faceWithBox(20, 30, 80, 100), faceWithBox(20, 30, 0, 0), faceWithBox(20, 30, 5, 5)};
    VDFACEINFOEX faces[] = {before[0], before[1], before[2]};
    EXPECT_THROW(evaluate(faces, 3), cv::Exception);
    EXPECT_EQ(faces[0].keyPointX[5], 60);
    EXPECT_THAT(changedWords(before[1], faces[1]), IsEmpty());
    EXPECT_THAT(changedWords(before[2], faces[2]), IsEmpty());
}

class Refinement : public testing::Test {
protected:
    void load(const LinearLayer& box, const LinearLayer& points) {
        GraphWriter graph;
        addLayer(graph, "bbox_fc", box);
        addLayer(graph, "landmark_fc", points);
        loadInto(EngineAccess::net(engine), graph.bytes());
    }
    int refine(VDFACEINFOEX* faces, int count) {
        return engine.mOnetLandmark(frame.data, frame.cols, frame.rows, count, faces);
    }

    OnetLandmark engine;
    cv::Mat frame = noiseFrame(640, 480);
};

TEST_F(Refinement, MovesTheEdgesAndPlacesThePoints) {
    load(LinearLayer(samples, {0.125F, -0.5F, 0.25F, 0.0625F}),
         LinearLayer(samples, {0, 0, 0.5F, 0.25F, -1, -2, 1, 1, 4.0625F, 4.0625F}));
    const VDFACEINFOEX before = faceWithBox(50, 40, 99, 119);
    VDFACEINFOEX face = before;
    ASSERT_EQ(refine(&face, 1), 0);
    // The crop runs from (40, 40) to (169, 159): 130 x 120 with both ends.
    EXPECT_EQ(face.x, 56);       // 40 + 16.25
    EXPECT_EQ(face.y, -20);      // 40 - 60, not clamped
    EXPECT_EQ(face.width, 145);  // 169 + 32.5 - 56.25 = 145.25
    EXPECT_EQ(face.height, 186); // 159 + 7.5 + 20 = 186.5
    EXPECT_EQ(face.keyPointNum, 5);
    EXPECT_THAT(std::vector<int>(face.keyPointX, face.keyPointX + 5), ElementsAre(40, 105, -90, 170, 568));
    EXPECT_THAT(std::vector<int>(face.keyPointY, face.keyPointY + 5), ElementsAre(40, 70, -200, 160, 527));
    EXPECT_THAT(changedWords(before, face), ElementsAre(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 125, 126, 127, 128, 129));
}

TEST_F(Refinement, TheNetworkSeesTheClampedCrop) {
    const LinearLayer box = LinearLayer(samples, {0.1F, -0.2F, 0.3F, -0.4F}).randomize(8, 0.02F);
    const LinearLayer points = LinearLayer(samples, std::vector<float>(10, 0.5F)).randomize(9, 0.02F);
    load(box, points);
    const struct {
        cv::Rect box;
        int x1, y1, x2, y2;
    } cases[] = {
        {{50, 40, 99, 119}, 40, 40, 169, 159},
        {{50, 40, 98, 119}, 40, 40, 169, 159}, // 39.5 goes up
        {{200, 100, 119, 98}, 200, 90, 319, 219},
        {{560, 100, 99, 119}, 550, 100, 639, 219}, // over the right border, up to column 639
        {{100, 400, 99, 99}, 100, 400, 199, 479},  // the bottom
        {{-30, 50, 99, 119}, 0, 50, 89, 169},      // the left
        {{30, -50, 99, 119}, 20, 0, 149, 69},      // the top
        {{-100, -100, 900, 900}, 0, 0, 639, 479},  // larger than the frame
        {{100, 100, 1, 1}, 100, 100, 101, 101},    // a single pixel
        {{300, 200, -50, 60}, 245, 200, 360, 260}, // one side counts
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.box);
        VDFACEINFOEX face = faceWithBox(c.box.x, c.box.y, c.box.width, c.box.height);
        ASSERT_EQ(refine(&face, 1), 0);
        const cv::Mat crop = plainResize(plainRegion(frame, {{c.x1, c.y1}, cv::Point(c.x2, c.y2)}), 48);
        const std::vector<double> r = box.of(crop);
        const std::vector<double> l = points.of(crop);
        const double w = c.x2 - c.x1 + 1;
        const double h = c.y2 - c.y1 + 1;
        EXPECT_NEAR(face.x, std::trunc(c.x1 + r[0] * w), 1);
        EXPECT_NEAR(face.y, std::trunc(c.y1 + r[1] * h), 1);
        EXPECT_NEAR(face.width, std::trunc(c.x2 + r[2] * w - c.x1 - r[0] * w), 1);
        EXPECT_NEAR(face.height, std::trunc(c.y2 + r[3] * h - c.y1 - r[1] * h), 1);
        for (std::size_t k = 0; k < 5; ++k) {
            EXPECT_NEAR(face.keyPointX[k], std::trunc(c.x1 + l[2 * k] * w), 1);
            EXPECT_NEAR(face.keyPointY[k], std::trunc(c.y1 + l[2 * k + 1] * h), 1);
        }
    }
}

TEST_F(Refinement, ABoxOutsideOfTheFrameEndsWithOpenCvsException) {
    load(LinearLayer(samples, {0, 0, 0, 0}), LinearLayer(samples, std::vector<float>(10)));
    const cv::Rect outside[] = {{700, 100, 50, 50},
                                {-60, 100, 50, 50},
                                {100, 500, 50, 50},
                                {100, -60, 50, 50},
                                {100, 100, 0, 0},
                                {100, 100, -9, -9},
                                {INT_MAX, INT_MAX, 1, 1},
                                {INT_MIN, INT_MIN, 1, 1},
                                {INT_MAX, 0, INT_MAX, INT_MAX},
                                {INT_MIN + 5, 7, INT_MAX, 99},
                                {0, INT_MIN, INT_MIN, INT_MIN}};
    for (const cv::Rect& box : outside) {
        VDFACEINFOEX faces[] = {faceWithBox(50, 40, 99, 119), faceWithBox(box.x, box.y, box.width, box.height)};
        const VDFACEINFOEX before = faces[1];
        EXPECT_THROW(refine(faces, 2), cv::Exception) << box;
        EXPECT_EQ(faces[0].x, 40) << "the record before it is refined";
        EXPECT_THAT(changedWords(before, faces[1]), IsEmpty());
    }
}

} // namespace
