#include <veldan/mtcnn.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

FaceInfo makeBox(float x1, float y1, float x2, float y2, float score) {
    FaceInfo box{};
    box.x1 = x1;
    box.y1 = y1;
    box.x2 = x2;
    box.y2 = y2;
    box.score = score;
    return box;
}

// The definition, word for word: every box against every later one. Boxes with an edge that is not a number stand
// aside.
std::vector<FaceInfo> plainSuppression(std::vector<FaceInfo> boxes, float threshold, char mode) {
    std::stable_sort(boxes.begin(), boxes.end(), CompareBBox);
    const auto aside = [](const FaceInfo& b) {
        return std::isnan(b.x1) || std::isnan(b.y1) || std::isnan(b.x2) || std::isnan(b.y2);
    };
    std::vector<bool> flags(boxes.size());
    std::vector<FaceInfo> result;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (flags[i])
            continue;
        const FaceInfo& a = boxes[i];
        result.push_back(a);
        if (aside(a))
            continue;
        const float area = (a.x2 - a.x1 + 1) * (a.y2 - a.y1 + 1);
        for (std::size_t j = i + 1; j < boxes.size(); ++j) {
            const FaceInfo& b = boxes[j];
            if (flags[j] || aside(b))
                continue;
            const float w = std::min(a.x2, b.x2) - std::max(a.x1, b.x1) + 1;
            const float h = std::min(a.y2, b.y2) - std::max(a.y1, b.y1) + 1;
            if (!(w > 0 && h > 0))
                continue;
            const float common = w * h;
            const float otherArea = (b.x2 - b.x1 + 1) * (b.y2 - b.y1 + 1);
            float overlap = 0;
            if (mode == 'm')
                overlap = common / std::min(area, otherArea);
            else if (mode == 'u')
                overlap = common / (area + otherArea - common);
            else
                continue;
            if (overlap > threshold)
                flags[j] = true;
        }
    }
    return result;
}

void expectSame(const std::vector<FaceInfo>& actual, const std::vector<FaceInfo>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    if (expected.empty())
        return;
    EXPECT_EQ(std::memcmp(actual.data(), expected.data(), expected.size() * sizeof(FaceInfo)), 0);
}

// Sets of boxes of very different make; every one must come out as from the definition, bit for bit.
using Generator = std::vector<FaceInfo> (*)(std::mt19937& random, int count);

float uniform(std::mt19937& random, float low, float high) {
    return std::uniform_real_distribution<float>(low, high)(random);
}

std::vector<FaceInfo> clusters(std::mt19937& random, int count) {
    std::vector<FaceInfo> boxes;
    for (int i = 0; i < count; ++i) {
        const float cx = 200 * std::floor(uniform(random, 0, 6)) + uniform(random, -15, 15);
        const float cy = 200 * std::floor(uniform(random, 0, 4)) + uniform(random, -15, 15);
        const float side = uniform(random, 40, 120);
        boxes.push_back(makeBox(cx - side / 2, cy - side / 2, cx + side / 2, cy + side / 2, uniform(random, 0, 1)));
    }
    return boxes;
}

// Anchors as the proposal stage makes them: overlaps repeat exactly, and so do scores.
std::vector<FaceInfo> anchors(std::mt19937& random, int count) {
    std::vector<FaceInfo> boxes;
    const float scales[] = {0.2666661F, 0.13333F, 0.0666F};
    for (int i = 0; i < count; ++i) {
        const float scale = scales[random() % 3];
        const float size = std::pow(0.7937F, static_cast<float>(random() % 4));
        const float x = 4 * static_cast<float>(random() % 40);
        const float y = 4 * static_cast<float>(random() % 30);
        boxes.push_back(makeBox((24 * ((1 - size) / 2) + x) / scale, (24 * ((1 - size) / 2) + y) / scale,
                                (24 * ((1 + size) / 2) + x) / scale, (24 * ((1 + size) / 2) + y) / scale,
                                static_cast<float>(random() % 16) / 16));
    }
    return boxes;
}

// Small whole coordinates: touching edges, equal and contained boxes, empty and inverted ones.
std::vector<FaceInfo> whole(std::mt19937& random, int count) {
    std::vector<FaceInfo> boxes;
    const auto number = [&] { return static_cast<float>(random() % 12) - 3; };
    for (int i = 0; i < count; ++i)
        boxes.push_back(makeBox(number(), number(), number() + 2, number() + 2, static_cast<float>(random() % 5)));
    return boxes;
}

// Small boxes with gaps of less than a pixel, which the + 1 of the definition bridges.
std::vector<FaceInfo> gaps(std::mt19937& random, int count) {
    std::vector<FaceInfo> boxes;
    for (int i = 0; i < count; ++i) {
        const float x = static_cast<float>(random() % 160) / 4;
        const float y = static_cast<float>(random() % 160) / 4;
        boxes.push_back(makeBox(x, y, x + static_cast<float>(random() % 12) / 4,
                                y + static_cast<float>(random() % 12) / 4, uniform(random, 0, 1)));
    }
    return boxes;
}

std::vector<FaceInfo> disjoint(std::mt19937& random, int count) {
    std::vector<FaceInfo> boxes;
    const int columns = static_cast<int>(std::ceil(std::sqrt(count)));
    for (int i = 0; i < count; ++i) {
        const int column = i % columns;
        const int row = i / columns;
        const auto x = static_cast<float>(column * 20);
        const auto y = static_cast<float>(row * 20);
        boxes.push_back(makeBox(x, y, x + 18, y + 18, uniform(random, 0, 1)));
    }
    return boxes;
}

// Sizes over nine powers of ten, far from the origin, some infinite or not a number.
std::vector<FaceInfo> extreme(std::mt19937& random, int count) {
    std::vector<FaceInfo> boxes;
    for (int i = 0; i < count; ++i) {
        const float side = std::pow(10.0F, uniform(random, -2, 7));
        const float x = uniform(random, -2, 2) * std::pow(10.0F, uniform(random, 0, 7));
        const float y = uniform(random, -2, 2) * std::pow(10.0F, uniform(random, 0, 7));
        FaceInfo box = makeBox(x, y, x + side, y + side, uniform(random, 0, 1));
        const float inf = std::numeric_limits<float>::infinity();
        const float odd[] = {inf, -inf, std::numeric_limits<float>::quiet_NaN(), 3e38F, -3e38F};
        if (random() % 8 == 0) {
            float* const edges[] = {&box.x1, &box.y1, &box.x2, &box.y2};
            *edges[random() % 4] = odd[random() % 5];
        }
        boxes.push_back(box);
    }
    return boxes;
}

struct SuppressionCase {
    const char* name;
    Generator generate;
};

class Suppression : public testing::TestWithParam<SuppressionCase> {};

TEST_P(Suppression, EqualsTheDefinition) {
    MTCNN detector;
    std::mt19937 random(7);
    for (int round = 0; round < 24; ++round) {
        const int count = round < 22 ? round * round / 2 : 1200;
        const std::vector<FaceInfo> boxes = GetParam().generate(random, count);
        for (const char mode : {'u', 'm', 'x'}) {
            for (const float threshold : {0.7F, 0.3F, 0.0F, -1.0F, 1.0F}) {
                SCOPED_TRACE(testing::Message() << count << " boxes, mode " << mode << ", threshold " << threshold);
                std::vector<FaceInfo> given = boxes;
                expectSame(detector.NMS(given, threshold, mode), plainSuppression(boxes, threshold, mode));
                EXPECT_TRUE(std::is_sorted(given.begin(), given.end(), CompareBBox));
                EXPECT_EQ(given.size(), boxes.size());
                if (HasFatalFailure())
                    return;
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Boxes, Suppression,
                         testing::Values(SuppressionCase{"Clusters", clusters}, SuppressionCase{"Anchors", anchors},
                                         SuppressionCase{"Whole", whole}, SuppressionCase{"Disjoint", disjoint},
                                         SuppressionCase{"Gaps", gaps}, SuppressionCase{"Extreme", extreme}),
                         [](const auto& info) { return info.param.name; });

TEST(SuppressionEdge, TouchingBoxesStay) {
    MTCNN detector;
    // Pixels 0..9 and 10..19: the common width is 9 - 10 + 1 = 0. One pixel further left they share a column.
    for (const float left : {10.0F, 9.0F}) {
        std::vector<FaceInfo> boxes = {makeBox(0, 0, 9, 9, 0.9F), makeBox(left, 0, 19, 9, 0.8F)};
        EXPECT_EQ(detector.NMS(boxes, 0, 'u').size(), left == 10 ? 2U : 1U);
    }
}

TEST(SuppressionEdge, ContainedBoxFallsByMinimumOnly) {
    MTCNN detector;
    const std::vector<FaceInfo> boxes = {makeBox(0, 0, 99, 99, 0.9F), makeBox(10, 10, 39, 39, 0.8F)};
    std::vector<FaceInfo> given = boxes;
    EXPECT_EQ(detector.NMS(given, 0.7F, 'u').size(), 2U); // 900 / 10000
    given = boxes;
    EXPECT_EQ(detector.NMS(given, 0.7F, 'm').size(), 1U); // 900 / 900
}

TEST(SuppressionEdge, OverlapEqualToTheThresholdStays) {
    MTCNN detector;
    // 10 x 10 and 10 x 5 of it: exactly one half by union.
    std::vector<FaceInfo> boxes = {makeBox(0, 0, 9, 9, 0.9F), makeBox(0, 0, 9, 4, 0.8F)};
    EXPECT_EQ(detector.NMS(boxes, 0.5F, 'u').size(), 2U);
    EXPECT_EQ(detector.NMS(boxes, std::nextafter(0.5F, 0.0F), 'u').size(), 1U);
}

TEST(SuppressionEdge, ScoresThatAreNotNumbersComeLast) {
    MTCNN detector;
    std::vector<FaceInfo> boxes;
    for (int i = 0; i < 200; ++i) {
        const auto at = static_cast<float>(i * 30);
        boxes.push_back(makeBox(at, 0, at + 20, 20, i % 3 == 0 ? NAN : static_cast<float>(i)));
    }
    const std::vector<FaceInfo> kept = detector.NMS(boxes, 0.7F, 'u');
    ASSERT_EQ(kept.size(), 200U);
    EXPECT_EQ(kept.front().score, 199);
    EXPECT_TRUE(std::all_of(kept.begin(), kept.begin() + 133, [](const FaceInfo& b) { return !std::isnan(b.score); }));
    EXPECT_TRUE(std::all_of(kept.begin() + 133, kept.end(), [](const FaceInfo& b) { return std::isnan(b.score); }));
}

TEST(Overlap, OfTwoBoxes) {
    MTCNN detector;
    EXPECT_FLOAT_EQ(detector.IoU(0, 0, 9, 9, 5, 5, 14, 14, false), 25.0F / 175);
    EXPECT_FLOAT_EQ(detector.IoU(0, 0, 9, 9, 5, 5, 14, 14, true), 0.25F);
    EXPECT_FLOAT_EQ(detector.IoU(0, 0, 99, 99, 10, 10, 39, 39, true), 1);
    EXPECT_EQ(detector.IoU(0, 0, 9, 9, 10, 0, 19, 9, false), 0);
    EXPECT_EQ(detector.IoU(0, 0, 9, 9, 0, 11, 9, 19, true), 0);
}

} // namespace
