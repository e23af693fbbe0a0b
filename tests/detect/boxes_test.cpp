#include "detect/pyramid.hpp"
#include "detect/workspace.hpp"

#include <veldan/mtcnn.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <limits>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;

constexpr veldan::AnchorSet anchors = {4, 0.7937F, 24};

FaceInfo makeBox(float x1, float y1, float x2, float y2) {
    FaceInfo box{};
    box.x1 = x1;
    box.y1 = y1;
    box.x2 = x2;
    box.y2 = y2;
    return box;
}

std::vector<float> edges(const FaceInfo& box) {
    return {box.x1, box.y1, box.x2, box.y2};
}

TEST(Pyramid, VisitsEveryThirdLevelAndTheLast) {
    const std::vector<std::vector<int>> expected = {{},        {0},       {0, 1},    {0, 2},      {0, 3},
                                                    {0, 3, 4}, {0, 3, 5}, {0, 3, 6}, {0, 3, 6, 7}};
    for (std::size_t count = 0; count < expected.size(); ++count)
        EXPECT_EQ(veldan::visitedLevels(static_cast<int>(count)), expected[count]);
}

struct PyramidCase {
    cv::Size image;
    int minSize;
    float firstScale;
    std::size_t levels;
    std::vector<cv::Size> visitedSizes;
};

class PyramidSizes : public testing::TestWithParam<PyramidCase> {};

TEST_P(PyramidSizes, OfCommonImages) {
    const PyramidCase& expected = GetParam();
    const std::vector<float> scales = veldan::pyramidScales(anchors, expected.image, expected.minSize, 0.7937F);
    ASSERT_EQ(scales.size(), expected.levels);
    EXPECT_NEAR(scales.empty() ? 0 : scales[0], expected.firstScale, 5e-8);
    std::vector<cv::Size> sizes;
    for (const int level : veldan::visitedLevels(static_cast<int>(scales.size())))
        sizes.push_back(veldan::levelSize(expected.image, scales[static_cast<std::size_t>(level)]));
    EXPECT_EQ(sizes, expected.visitedSizes);
}

INSTANTIATE_TEST_SUITE_P(
    Pyramid, PyramidSizes,
    testing::Values(PyramidCase{{640, 480}, 45, 0.2666661F, 8, {{171, 128}, {86, 64}, {43, 32}, {34, 26}}},
                    PyramidCase{{1280, 720}, 70, 0.1714282F, 8, {{220, 124}, {110, 62}, {55, 31}, {44, 25}}},
                    PyramidCase{{91, 91}, 45, 0.2666661F, 1, {{25, 25}}}, // the least that has a level
                    PyramidCase{{90, 3000}, 45, 0, 0, {}}));

TEST(Pyramid, StaysFiniteForImagesOfAnySize) {
    const std::vector<float> scales = veldan::pyramidScales(anchors, {2147483647, 3}, 1, 0.7937F);
    ASSERT_FALSE(scales.empty());
    EXPECT_EQ(veldan::levelSize({2147483647, 3}, scales[0]).width, 2147483647);
    EXPECT_EQ(veldan::levelSize({2147483647, 3}, scales[0]).height, 36);
}

// Fills a map of 1 x channels x rows x columns.
template <class Value>
cv::Mat makeMap(int channels, int rows, int columns, Value value) {
    const int shape[] = {1, channels, rows, columns};
    cv::Mat map(4, shape, CV_32F);
    for (int c = 0; c < channels; ++c)
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < columns; ++x)
                map.ptr<float>(0, c)[y * columns + x] = value(c, y, x);
    return map;
}

TEST(Softmax, OfEachAnchorInPlace) {
    MTCNN detector;
    const auto logit = [](int c, int y, int x) { return static_cast<float>((c * 7 + y * 5 + x * 3) % 23 - 11) * 0.9F; };
    cv::Mat score = makeMap(8, 3, 5, logit);
    score.ptr<float>(0, 0)[0] = 200; // the exponential of these would overflow
    score.ptr<float>(0, 1)[0] = 190;
    detector.softmax_in_anchor(score);
    for (int anchor = 0; anchor < 4; ++anchor) {
        for (int y = 0; y < 3; ++y) {
            for (int x = 0; x < 5; ++x) {
                const bool big = anchor == 0 && y == 0 && x == 0;
                const double background = big ? 200 : logit(2 * anchor, y, x);
                const double face = big ? 190 : logit(2 * anchor + 1, y, x);
                const double p = 1 / (1 + std::exp(background - face));
                EXPECT_NEAR(score.ptr<float>(0, 2 * anchor + 1)[y * 5 + x], p, 1e-6);
                EXPECT_NEAR(score.ptr<float>(0, 2 * anchor)[y * 5 + x], 1 - p, 1e-6);
            }
        }
    }
}

TEST(Decoding, TurnsCellsIntoAnchorsInAnchorMajorOrder) {
    MTCNN detector;
    cv::Mat score = makeMap(8, 3, 5, [](int, int, int) { return 0.1F; });
    cv::Mat location = makeMap(16, 3, 5, [](int c, int y, int x) { return static_cast<float>(c * 100 + y * 10 + x); });
    score.ptr<float>(0, 1)[2 * 5 + 4] = 0.6F;                       // anchor 0, row 2, column 4: at the threshold
    score.ptr<float>(0, 1)[0 * 5 + 3] = 0.7F;                       // anchor 0, row 0, column 3
    score.ptr<float>(0, 7)[1 * 5 + 0] = 0.8F;                       // anchor 3, row 1, column 0
    score.ptr<float>(0, 5)[1 * 5 + 1] = std::nextafter(0.6F, 0.0F); // anchor 2: just below
    score.ptr<float>(0, 2)[1 * 5 + 1] = 0.99F;                      // anchor 1: background
    score.ptr<float>(0, 3)[1 * 5 + 1] = std::nanf("");              // and not a number
    const float scale = 0.25F;
    detector.GenerateBBox(&score, &location, scale, 0.6F);

    const std::vector<FaceInfo>& found = veldan::DetectorAccess::candidates(detector);
    ASSERT_EQ(found.size(), 3U);
    const struct {
        int anchor, row, column;
        float score;
    } expected[] = {{0, 0, 3, 0.7F}, {0, 2, 4, 0.6F}, {3, 1, 0, 0.8F}};
    for (std::size_t i = 0; i < 3; ++i) {
        const auto& e = expected[i];
        // A square about (12 + 4 column, 12 + 4 row) in the level's pixels.
        const double half = 12 * std::pow(0.7937, e.anchor);
        EXPECT_NEAR(found[i].x1, (12 + 4 * e.column - half) * 4, 1e-3);
        EXPECT_NEAR(found[i].y1, (12 + 4 * e.row - half) * 4, 1e-3);
        EXPECT_NEAR(found[i].x2, (12 + 4 * e.column + half) * 4, 1e-3);
        EXPECT_NEAR(found[i].y2, (12 + 4 * e.row + half) * 4, 1e-3);
        EXPECT_EQ(found[i].score, e.score);
        for (int k = 0; k < 4; ++k)
            EXPECT_EQ(found[i].regression[k], static_cast<float>((4 * e.anchor + k) * 100 + e.row * 10 + e.column));
    }
    // The next level replaces them.
    detector.GenerateBBox(&score, &location, scale, 0.9F);
    EXPECT_TRUE(found.empty());
    detector.GenerateBBox(nullptr, &location, scale, 0.1F);
    EXPECT_TRUE(found.empty());
}

TEST(Decoding, RefusesMapsOfTheWrongShape) {
    MTCNN detector;
    cv::Mat score = makeMap(8, 3, 5, [](int, int, int) { return 0.9F; });
    cv::Mat location = makeMap(16, 5, 3, [](int, int, int) { return 0.0F; });
    cv::Mat narrow = makeMap(2, 3, 5, [](int, int, int) { return 0.9F; });
    EXPECT_THROW(detector.GenerateBBox(&score, &location, 1, 0.5F), cv::Exception);
    EXPECT_THROW(detector.GenerateBBox(&narrow, &location, 1, 0.5F), cv::Exception);
    EXPECT_THROW(detector.softmax_in_anchor(narrow), cv::Exception);
}

TEST(BoxArithmetic, ProposalRegressionMovesTheCentreAndScalesTheSize) {
    MTCNN detector;
    std::vector<FaceInfo> boxes = {makeBox(100, 50, 199, 89), makeBox(-20.5F, 3.25F, 30, 77)};
    const float regressions[2][4] = {{1, -2, 1.5F, -3}, {-0.7F, 0.3F, -0.1F, 2.2F}};
    const std::vector<FaceInfo> before = boxes;
    for (std::size_t i = 0; i < 2; ++i)
        std::copy_n(regressions[i], 4, boxes[i].regression);
    detector.BBoxRegression_rpn(boxes);
    for (std::size_t i = 0; i < 2; ++i) {
        const double w = before[i].x2 - before[i].x1 + 1;
        const double h = before[i].y2 - before[i].y1 + 1;
        const double dx = 0.1 * regressions[i][0] * w;
        const double dy = 0.1 * regressions[i][1] * h;
        const double growX = w * (std::exp(0.2 * regressions[i][2]) - 1);
        const double growY = h * (std::exp(0.2 * regressions[i][3]) - 1);
        EXPECT_NEAR(boxes[i].x1, before[i].x1 + dx - growX / 2, 1e-4);
        EXPECT_NEAR(boxes[i].y1, before[i].y1 + dy - growY / 2, 1e-4);
        EXPECT_NEAR(boxes[i].x2, before[i].x2 + dx + growX / 2, 1e-4);
        EXPECT_NEAR(boxes[i].y2, before[i].y2 + dy + growY / 2, 1e-4);
    }
}

TEST(BoxArithmetic, RegressionMovesEachEdgeByItsOwnPart) {
    MTCNN detector;
    std::vector<FaceInfo> boxes = {makeBox(10, 20, 109, 69)};
    const float regression[] = {0.5F, -0.5F, 0.25F, 1};
    std::copy_n(regression, 4, boxes[0].regression);
    boxes[0].landmark[0] = 33;
    detector.BBoxRegression(boxes);
    // 100 x 50, both taken before any edge moves.
    EXPECT_THAT(edges(boxes[0]), ElementsAre(60, -5, 134, 119));
    EXPECT_EQ(boxes[0].landmark[0], 33);
}

TEST(BoxArithmetic, SquaresTakeTheLongerSideAndRoundHalvesAway) {
    MTCNN detector;
    std::vector<FaceInfo> boxes = {
        makeBox(10, 20, 19, 23),             // 10 x 4: three pixels more above and below
        makeBox(10, 20, 13, 29),             // 4 x 10: three pixels more on the left and on the right
        makeBox(10, 20, 12, 23),             // 3 x 4: half a pixel to the left, 9.5 becomes 10
        makeBox(-10, -20, -7, -18),          // 4 x 3: -20.5 becomes -21
        makeBox(5.25F, 8.75F, 9.75F, 11.5F), // 5.5 x 3.75
    };
    detector.BBoxPadSquare(boxes, 0, 0);
    EXPECT_THAT(edges(boxes[0]), ElementsAre(10, 17, 19, 26));
    EXPECT_THAT(edges(boxes[1]), ElementsAre(7, 20, 16, 29));
    EXPECT_THAT(edges(boxes[2]), ElementsAre(10, 20, 13, 23));
    EXPECT_THAT(edges(boxes[3]), ElementsAre(-10, -21, -7, -18));
    // y1 = -0.875 + 8.75 = 7.875; side - 1 = 4.5, added as 5
    EXPECT_THAT(edges(boxes[4]), ElementsAre(5, 8, 10, 13));
}

TEST(BoxArithmetic, PaddingClampsToTheLastPixelAndRounds) {
    MTCNN detector;
    std::vector<FaceInfo> boxes = {makeBox(-5, -0.4F, 700, 480), makeBox(10.5F, 11.4F, 638.5F, 478.4F)};
    boxes[0].landmark[1] = -7;
    detector.BBoxPad(boxes, 640, 480);
    EXPECT_THAT(edges(boxes[0]), ElementsAre(0, 0, 639, 479));
    EXPECT_THAT(edges(boxes[1]), ElementsAre(11, 11, 639, 478));
    EXPECT_EQ(boxes[0].landmark[1], -7);
}

TEST(Ordering, ByScoreAndByAreaWithoutThePlusOne) {
    FaceInfo a = makeBox(0, 0, 10, 1);
    FaceInfo b = makeBox(0, 0, 3, 3);
    a.score = 0.5F;
    b.score = 0.6F;
    EXPECT_TRUE(CompareBBox(b, a));
    EXPECT_FALSE(CompareBBox(a, b));
    EXPECT_FALSE(CompareBBox(a, a));
    EXPECT_TRUE(CompareFacearea(a, b)); // 10 and 9; with the + 1 it would be 22 and 16
    const FaceInfo c = makeBox(0, 0, 30, 0);
    EXPECT_TRUE(CompareFacearea(b, c)); // 9 and 0; with the + 1 it would be 16 and 31
}

TEST(PointDistance, IsSquaredAndComputedInSinglePrecision) {
    EXPECT_EQ(Pointdistance({3, 4}, {0, 0}), 25);
    EXPECT_EQ(Pointdistance({-7, 100}, {-7, 100}), 0);
    // 5001^2 = 25010001 is odd and above 2^24: as a float it becomes 25010000.
    EXPECT_EQ(Pointdistance({5001, 0}, {0, 0}), 25010000);
    EXPECT_NEAR(Pointdistance({2147483647, 0}, {-2147483647, 0}), 1.8446744e19, 1e13);
}

TEST(DataSize, IsTheLengthOfARegularFile) {
    MTCNN detector;
    std::string path = testing::TempDir() + "veldan_data_size";
    std::ofstream(path) << "eleven char";
    EXPECT_EQ(detector.vdGetDataSize(path.data()), 11);
    std::remove(path.c_str());
    EXPECT_EQ(detector.vdGetDataSize(path.data()), 0);
    EXPECT_EQ(detector.vdGetDataSize(nullptr), 0);
    std::string folder = testing::TempDir();
    EXPECT_EQ(detector.vdGetDataSize(folder.data()), 0);
}

} // namespace
