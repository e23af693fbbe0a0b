#include "photo/annotate.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

namespace {

using veldan::kit::annotate;
using veldan::kit::enlarged;
using veldan::kit::Mark;
using veldan::kit::Photo;

Photo texture(int width, int height) {
    Photo photo{width, height, {}};
    photo.pixels.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    unsigned int state = 1;
    for (unsigned char& sample : photo.pixels) {
        state = state * 1664525u + 1013904223u;
        sample = static_cast<unsigned char>(state >> 25); // at most 127: darker than any mark
    }
    return photo;
}

VDFACEINFOEX faceAt(int x, int y, int side) {
    VDFACEINFOEX face{};
    face.x = x;
    face.y = y;
    face.width = side;
    face.height = side;
    face.keyPointNum = 5;
    const int at[5][2] = {{3, 4}, {7, 4}, {5, 6}, {4, 8}, {6, 8}};
    for (int k = 0; k < 5; ++k) {
        face.keyPointX[k] = x + side * at[k][0] / 10;
        face.keyPointY[k] = y + side * at[k][1] / 10;
    }
    face.eyeDistance = side * 4 / 10;
    return face;
}

const unsigned char* pixel(const Photo& photo, int x, int y) {
    return photo.pixels.data() +
           (static_cast<std::size_t>(y) * static_cast<std::size_t>(photo.width) + static_cast<std::size_t>(x)) * 3;
}

bool isGreen(const unsigned char* p) {
    return p[1] > 170 && p[0] < 90 && p[2] < 90;
}

bool isRed(const unsigned char* p) {
    return p[2] > 170 && p[0] < 90 && p[1] < 90;
}

class Annotate : public testing::TestWithParam<int> {};

TEST_P(Annotate, MarksTheFaceAndNothingElse) {
    const int width = GetParam();
    const int height = width * 3 / 4;
    const VDFACEINFOEX face = faceAt(width / 3, height / 4, width / 4);
    const Photo before = texture(width, height);
    Photo after = before;
    annotate(after, {face});
    ASSERT_EQ(after.pixels.size(), before.pixels.size());

    const int middleX = face.x + face.width / 2;
    const int middleY = face.y + face.height / 2;
    EXPECT_TRUE(isGreen(pixel(after, middleX, face.y)));
    EXPECT_TRUE(isGreen(pixel(after, middleX, face.y + face.height)));
    EXPECT_TRUE(isGreen(pixel(after, face.x, middleY)));
    EXPECT_TRUE(isGreen(pixel(after, face.x + face.width, middleY)));
    for (int k = 0; k < 5; ++k)
        EXPECT_TRUE(isRed(pixel(after, face.keyPointX[k], face.keyPointY[k]))) << k;

    // A frame may take one part in 75 of the photo's width, a dot one in 25 of the face.
    const int frame = width / 150 + 3;
    const int dot = face.width / 25 + 4;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool nearBox = x >= face.x - frame && x <= face.x + face.width + frame && y >= face.y - frame &&
                                 y <= face.y + face.height + frame &&
                                 !(x >= face.x + frame && x <= face.x + face.width - frame && y >= face.y + frame &&
                                   y <= face.y + face.height - frame);
            bool nearPoint = false;
            for (int k = 0; k < 5; ++k)
                nearPoint |= std::abs(x - face.keyPointX[k]) <= dot && std::abs(y - face.keyPointY[k]) <= dot;
            if (nearBox || nearPoint)
                continue;
            ASSERT_TRUE(std::equal(pixel(before, x, y), pixel(before, x, y) + 3, pixel(after, x, y))) << x << ", " << y;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Sizes, Annotate, testing::Values(100, 301, 640, 1280, 3000));

TEST(Annotate, NumbersSeveralFaces) {
    const VDFACEINFOEX left = faceAt(40, 80, 100);
    const VDFACEINFOEX right = faceAt(260, 80, 100);
    const Photo before = texture(400, 300);
    Photo after = before;
    annotate(after, {left, right});
    for (const VDFACEINFOEX& face : {left, right}) {
        int green = 0;
        for (int y = face.y - 20; y < face.y - 4; ++y) {
            for (int x = face.x; x < face.x + 20; ++x)
                green += isGreen(pixel(after, x, y)) ? 1 : 0;
        }
        EXPECT_GT(green, 5) << face.x;
    }
}

// The words of a face stand on dark ground near its box; where there is room, no neighbour is covered.
struct Arrangement {
    const char* name;
    std::vector<VDFACEINFOEX> faces;
};

void PrintTo(const Arrangement& arrangement, std::ostream* out) {
    *out << arrangement.name;
}

class Words : public testing::TestWithParam<Arrangement> {};

TEST_P(Words, StandBesideTheirFaceAndCoverNoOther) {
    Photo before = texture(1200, 800);
    for (unsigned char& sample : before.pixels)
        sample = static_cast<unsigned char>(sample / 2 + 60); // lighter than the ground of words
    std::vector<Mark> marks;
    for (const VDFACEINFOEX& face : GetParam().faces)
        marks.emplace_back(face, false, std::vector<std::string>{"quality 71", "mask 99, live 97"});
    Photo without = before;
    for (const VDFACEINFOEX& face : GetParam().faces)
        annotate(without, {face}); // one by one: without numbers
    Photo with = before;
    annotate(with, marks);

    const auto inside = [](const VDFACEINFOEX& face, int x, int y, int margin) {
        return x >= face.x - margin && x <= face.x + face.width + margin && y >= face.y - margin &&
               y <= face.y + face.height + margin;
    };
    std::vector<int> dark(marks.size());
    std::vector<int> letters(marks.size());
    for (int y = 0; y < with.height; ++y) {
        for (int x = 0; x < with.width; ++x) {
            const unsigned char* p = pixel(with, x, y);
            const bool ground = std::max({p[0], p[1], p[2]}) < 30;
            for (std::size_t i = 0; i < marks.size(); ++i) {
                const VDFACEINFOEX& face = marks[i].face;
                if (inside(face, x, y, 0) && marks.size() > 1) {
                    ASSERT_TRUE(std::equal(p, p + 3, pixel(without, x, y))) << x << ", " << y;
                }
                dark[i] += inside(face, x, y, 60) && ground ? 1 : 0;
                letters[i] += inside(face, x, y, 60) && !inside(face, x, y, 8) && isGreen(p) ? 1 : 0;
            }
        }
    }
    for (std::size_t i = 0; i < marks.size(); ++i) {
        EXPECT_GT(dark[i], 1000) << i;
        EXPECT_GT(letters[i], 200) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(
    Arrangements, Words,
    testing::Values(Arrangement{"Large", {faceAt(0, 0, 799)}},
                    Arrangement{"Corners",
                                {faceAt(0, 0, 150), faceAt(1040, 0, 150), faceAt(0, 640, 150), faceAt(1040, 640, 150)}},
                    Arrangement{"Row", {faceAt(300, 300, 200), faceAt(510, 300, 200), faceAt(720, 300, 200)}},
                    Arrangement{"Column", {faceAt(500, 10, 250), faceAt(500, 270, 250), faceAt(500, 530, 250)}},
                    Arrangement{"SmallOneBelow", {faceAt(500, 300, 200), faceAt(520, 512, 60)}}),
    [](const auto& info) { return info.param.name; });

TEST(Annotate, PointsOfMaskedFacesAreBlueAndStayOnTheEnlargedPhoto) {
    VDFACEINFOEX face = faceAt(100, 60, 90);
    face.keyPointX[5] = 90;
    face.keyPointY[5] = 50;
    face.keyPointX[6] = 210;
    face.keyPointY[6] = 170;
    Photo photo = texture(400, 300);
    const Photo before = photo;
    Photo picture = enlarged(photo, 3);
    ASSERT_EQ(picture.width, 1200);
    ASSERT_EQ(picture.height, 900);
    annotate(picture, {Mark(enlarged(face, 3), true, {})});
    for (const int k : {5, 6}) {
        const unsigned char* p = pixel(picture, face.keyPointX[k] * 3 + 1, face.keyPointY[k] * 3 + 1);
        EXPECT_TRUE(p[0] > 170 && p[1] < 90 && p[2] < 90) << k;
    }
    EXPECT_TRUE(isRed(pixel(picture, face.keyPointX[2] * 3 + 1, face.keyPointY[2] * 3 + 1)));
    EXPECT_TRUE(isGreen(pixel(picture, face.x * 3 + 135, (face.y + face.height) * 3)));
    // The middle of three by three pixels is the photo's own.
    EXPECT_TRUE(std::equal(pixel(before, 300, 200), pixel(before, 300, 200) + 3, pixel(picture, 901, 601)));
}

TEST(Annotate, TakesBoxesAndPointsAtAndBeyondTheEdges) {
    Photo photo = texture(120, 110);
    VDFACEINFOEX whole = faceAt(0, 0, 110);
    whole.width = 120;
    VDFACEINFOEX corner = faceAt(110, 100, 10);
    VDFACEINFOEX empty = faceAt(120, 110, 0);
    VDFACEINFOEX outside = faceAt(-500, 4000, 30);
    annotate(photo, {whole, corner, empty, outside});
    annotate(photo, {Mark(outside, true, {"a line that is longer than the photo is wide"}), Mark(empty, true, {"b"})});
    EXPECT_TRUE(isGreen(pixel(photo, 60, 0)));
    EXPECT_EQ(photo.pixels.size(), 120u * 110u * 3u);
}

} // namespace
