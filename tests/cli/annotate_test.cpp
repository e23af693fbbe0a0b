#include "annotate.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

namespace {

using veldan::cli::annotate;
using veldan::cli::Photo;

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

TEST(Annotate, TakesBoxesAndPointsAtAndBeyondTheEdges) {
    Photo photo = texture(120, 110);
    VDFACEINFOEX whole = faceAt(0, 0, 110);
    whole.width = 120;
    VDFACEINFOEX corner = faceAt(110, 100, 10);
    VDFACEINFOEX empty = faceAt(120, 110, 0);
    VDFACEINFOEX outside = faceAt(-500, 4000, 30);
    annotate(photo, {whole, corner, empty, outside});
    EXPECT_TRUE(isGreen(pixel(photo, 60, 0)));
    EXPECT_EQ(photo.pixels.size(), 120u * 110u * 3u);
}

} // namespace
