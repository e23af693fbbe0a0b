#include "tool/guarded_buffer.hpp"
#include "tool/test_image.hpp"

#include <veldan/image_tool.h>
#include <veldan/image_tool.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <chrono>
#include <climits>
#include <cmath>
#include <cstring>
#include <functional>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using veldan_tests::GuardedBuffer;
using veldan_tests::TestImage;
using Bytes = std::vector<unsigned char>;

// Cutting

struct CutCase {
    std::array<int, 4> rect;
    std::array<int, 4> clipped;
};

void PrintTo(const CutCase& cut, std::ostream* out) {
    *out << testing::PrintToString(cut.rect);
}

class ImageCut : public testing::TestWithParam<CutCase> {};

TEST_P(ImageCut, CutsAndReportsTheClippedRectangle) {
    TestImage image = TestImage::noise(100, 80);
    std::array<int, 4> rect = GetParam().rect;
    const auto [x, y, w, h] = GetParam().clipped;
    GuardedBuffer out(static_cast<std::size_t>(w * h * 3));
    int outWidth = -1, outHeight = -1;
    EXPECT_EQ(ImageCutRect(image.data(), 100, 80, rect.data(), out.data(), &outWidth, &outHeight), 1);
    EXPECT_EQ(rect, GetParam().clipped);
    EXPECT_EQ(outWidth, w);
    EXPECT_EQ(outHeight, h);
    for (int row = 0; row < h; ++row)
        for (int i = 0; i < w * 3; ++i)
            ASSERT_EQ(out[static_cast<std::size_t>(row * w * 3 + i)], image.at(x + i / 3, y + row, i % 3));
}

INSTANTIATE_TEST_SUITE_P(
    Rectangles, ImageCut,
    testing::Values(CutCase{{10, 20, 30, 40}, {10, 20, 30, 40}}, CutCase{{-5, 10, 0, 0}, {0, 10, 100, 70}},
                    CutCase{{90, 0, 30, 0}, {90, 0, 10, 80}}, CutCase{{0, 0, 0, 0}, {0, 0, 100, 80}},
                    CutCase{{101, 81, 5, 6}, {0, 0, 5, 6}}, CutCase{{99, 79, 1, 1}, {99, 79, 1, 1}},
                    CutCase{{99, 79, 2, 2}, {99, 79, 1, 1}}, CutCase{{1, 1, INT_MAX, INT_MAX}, {1, 1, 99, 79}},
                    CutCase{{INT_MIN, INT_MAX, INT_MAX, 7}, {0, 0, 100, 7}},
                    // On the far edge itself, position and size are left alone but for the clipping: an empty piece.
                    CutCase{{100, 0, 10, 10}, {100, 0, 0, 10}}, CutCase{{0, 80, 0, 0}, {0, 80, 100, 0}}));

TEST(ImageCut, NegativeSizesAreRefused) {
    TestImage image = TestImage::noise(100, 80);
    for (std::array<int, 4> rect :
         {std::array{10, 10, -1, 5}, {10, 10, 5, -1}, {0, 0, INT_MIN, 1}, {100, 80, INT_MIN, INT_MIN}}) {
        GuardedBuffer out(100);
        int outWidth = -7, outHeight = -7;
        EXPECT_THROW(ImageCutRect(image.data(), 100, 80, rect.data(), out.data(), &outWidth, &outHeight),
                     cv::Exception);
        EXPECT_TRUE(out.untouched());
        EXPECT_EQ(outWidth, -7);
        EXPECT_EQ(outHeight, -7);
    }
}

// Turning and mirroring

// (x, y) of the result comes from which pixel of a w x h source.
using Origin = std::function<std::pair<int, int>(int x, int y, int w, int h)>;

std::pair<int, int> sameOrigin(int x, int y, int, int) {
    return {x, y};
}
std::pair<int, int> halfTurnOrigin(int x, int y, int w, int h) {
    return {w - 1 - x, h - 1 - y};
}

void expectFrom(TestImage& source, const unsigned char* result, int width, int height, const Origin& origin) {
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            const auto [sx, sy] = origin(x, y, source.width, source.height);
            for (int c = 0; c < 3; ++c)
                ASSERT_EQ(result[(y * width + x) * 3 + c], source.at(sx, sy, c)) << x << ", " << y;
        }
}

struct TurnCase {
    int angle;
    bool swaps;
    Origin origin;
};

void PrintTo(const TurnCase& turn, std::ostream* out) {
    *out << turn.angle << " degrees";
}

class ImageTurn : public testing::TestWithParam<TurnCase> {};

TEST_P(ImageTurn, MovesEveryPixel) {
    const TurnCase& turn = GetParam();
    for (const auto& [width, height] : {std::pair{7, 4}, {4, 7}, {1, 5}, {33, 1}, {64, 64}}) {
        TestImage image = TestImage::noise(width, height);
        GuardedBuffer out(image.size());
        int outWidth = 0, outHeight = 0;
        EXPECT_EQ(ImageRotate(image.data(), width, height, turn.angle, out.data(), &outWidth, &outHeight), 1);
        EXPECT_EQ(outWidth, turn.swaps ? height : width);
        EXPECT_EQ(outHeight, turn.swaps ? width : height);
        expectFrom(image, out.data(), outWidth, outHeight, turn.origin);
        // In place: the input may be the output.
        Bytes inPlace = image.pixels;
        EXPECT_EQ(ImageRotate(inPlace.data(), width, height, turn.angle, inPlace.data(), nullptr, nullptr), 1);
        EXPECT_EQ(inPlace, out.bytes());
    }
}

INSTANTIATE_TEST_SUITE_P(Angles, ImageTurn,
                         testing::Values(TurnCase{90, true,
                                                  [](int x, int y, int, int h) {
                                                      return std::pair{y, h - 1 - x};
                                                  }},
                                         TurnCase{180, false, halfTurnOrigin},
                                         TurnCase{270, true,
                                                  [](int x, int y, int w, int) {
                                                      return std::pair{w - 1 - y, x};
                                                  }},
                                         TurnCase{0, false, sameOrigin}, TurnCase{45, false, sameOrigin},
                                         TurnCase{360, false, sameOrigin}, TurnCase{-90, false, sameOrigin},
                                         TurnCase{450, false, sameOrigin}));

TEST(ImageFlip, MirrorsByCode) {
    TestImage image = TestImage::noise(9, 5);
    const std::vector<std::pair<int, Origin>> cases = {{0,
                                                        [](int x, int y, int, int h) {
                                                            return std::pair{x, h - 1 - y};
                                                        }},
                                                       {1,
                                                        [](int x, int y, int w, int) {
                                                            return std::pair{w - 1 - x, y};
                                                        }},
                                                       {77,
                                                        [](int x, int y, int w, int) {
                                                            return std::pair{w - 1 - x, y};
                                                        }},
                                                       {-1, halfTurnOrigin},
                                                       {-77, halfTurnOrigin}};
    for (const auto& [code, origin] : cases) {
        GuardedBuffer out(image.size());
        EXPECT_EQ(ImageFlip(image.data(), 9, 5, code, out.data()), 1);
        expectFrom(image, out.data(), 9, 5, origin);
        Bytes inPlace = image.pixels;
        ImageFlip(inPlace.data(), 9, 5, code, inPlace.data());
        EXPECT_EQ(inPlace, out.bytes());
    }
}

// Colours and sizes

TEST(ImageRGB2GRAY, WeighsBlueGreenRed) {
    TestImage image = TestImage::noise(31, 17);
    GuardedBuffer grey(31 * 17);
    ImageRGB2GRAY(image.data(), 31, 17, grey.data());
    for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 31; ++x) {
            const double luma = 0.114 * image.at(x, y, 0) + 0.587 * image.at(x, y, 1) + 0.299 * image.at(x, y, 2);
            ASSERT_NEAR(grey[static_cast<std::size_t>(y * 31 + x)], luma, 1.0);
        }
}

TEST(ImageYUV2RGB, ConvertsAndMirrors) {
    constexpr int width = 20, height = 12;
    TestImage yuv = TestImage::noise(width, height + height / 2, 1);
    GuardedBuffer out(width * height * 3);
    ImageYUV2RGB(yuv.data(), width, height, out.data());
    const auto clip = [](double value) { return std::clamp(value, 0.0, 255.0); };
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x) {
            // Video range of BT.601; V comes first in each pair.
            const double luma = 1.164 * std::max(0, yuv.at(x, y) - 16);
            const double v = yuv.at(x / 2 * 2, height + y / 2) - 128;
            const double u = yuv.at(x / 2 * 2 + 1, height + y / 2) - 128;
            const std::size_t i = (static_cast<std::size_t>(y) * width + static_cast<std::size_t>(width - 1 - x)) * 3;
            ASSERT_NEAR(out[i], clip(luma + 2.018 * u), 2.0);
            ASSERT_NEAR(out[i + 1], clip(luma - 0.813 * v - 0.391 * u), 2.0);
            ASSERT_NEAR(out[i + 2], clip(luma + 1.596 * v), 2.0);
        }
    for (const auto& [w, h] : {std::pair{20, 11}, {19, 12}, {20, INT_MAX}, {INT_MAX, 2}, {-2, 2}, {2, -2}, {0, 0}})
        EXPECT_THROW(ImageYUV2RGB(yuv.data(), w, h, out.data()), cv::Exception) << w << " x " << h;
}

void expectBilinear(int newWidth, int newHeight, int channels) {
    TestImage image = TestImage::noise(13, 9, channels);
    GuardedBuffer out(static_cast<std::size_t>(newWidth * newHeight * channels));
    EXPECT_EQ(ImageZoom(image.data(), 13, 9, channels, newWidth, newHeight, out.data()), 1);
    std::size_t i = 0;
    for (int y = 0; y < newHeight; ++y)
        for (int x = 0; x < newWidth; ++x)
            for (int c = 0; c < channels; ++c, ++i) {
                const double sx = std::clamp((x + 0.5) * 13 / newWidth - 0.5, 0.0, 12.0);
                const double sy = std::clamp((y + 0.5) * 9 / newHeight - 0.5, 0.0, 8.0);
                const int x0 = static_cast<int>(sx), y0 = static_cast<int>(sy);
                const int x1 = std::min(x0 + 1, 12), y1 = std::min(y0 + 1, 8);
                const double fx = sx - x0, fy = sy - y0;
                const double value = (1 - fy) * ((1 - fx) * image.at(x0, y0, c) + fx * image.at(x1, y0, c)) +
                                     fy * ((1 - fx) * image.at(x0, y1, c) + fx * image.at(x1, y1, c));
                ASSERT_NEAR(out[i], value, 1.5) << x << ", " << y;
            }
}

TEST(ImageZoom, InterpolatesBilinearly) {
    for (const int channels : {1, 3, 4})
        for (const int height : {1, 4, 9, 31})
            for (const int width : {1, 6, 13, 40}) {
                SCOPED_TRACE(testing::Message() << "to " << width << " x " << height << " x " << channels);
                expectBilinear(width, height, channels);
            }
}

TEST(ImageZoom, MayWriteOverItsInput) {
    TestImage image = TestImage::noise(20, 20);
    Bytes expected(10 * 10 * 3);
    ImageZoom(image.data(), 20, 20, 3, 10, 10, expected.data());
    ImageZoom(image.data(), 20, 20, 3, 10, 10, image.data());
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), image.pixels.begin()));
}

// Drawing

const std::vector<std::pair<int, cv::Scalar>> colours = {
    {0, {0, 0, 255}}, {1, {0, 255, 0}},       {2, {255, 0, 0}},  {3, {0, 0, 255}},
    {7, {0, 0, 255}}, {INT_MAX, {0, 0, 255}}, {-1, {0, 0, 255}}, {INT_MIN, {0, 0, 255}}};

// What drawing on an endless canvas shows of it: drawn on a picture with a border that holds the whole mark.
class Canvas {
public:
    static constexpr int border = 400;

    explicit Canvas(TestImage& image) : width_(image.width), height_(image.height) {
        const cv::Mat view(image.height, image.width, CV_8UC3, image.data());
        cv::copyMakeBorder(view, canvas, border, border, border, border, cv::BORDER_CONSTANT);
    }
    Bytes visible() const {
        const cv::Mat part = canvas(cv::Rect(border, border, width_, height_)).clone();
        return {part.data, part.data + part.total() * 3};
    }

    cv::Mat canvas;

private:
    int width_;
    int height_;
};

TEST(ImageDrawRect, DrawsAHeavyFrameInThreeColours) {
    for (const auto& [index, colour] : colours) {
        TestImage image(60, 50);
        int rect[] = {20, 15, 24, 20};
        EXPECT_EQ(ImageDrawRect(image.data(), 60, 50, rect, index), 1);
        for (int y = 0; y < 50; ++y)
            for (int x = 0; x < 60; ++x) {
                // How far the pixel is from the outline: less than 4 is surely frame, more than 5 surely not.
                const int inside = std::min({x - 20, 44 - x, y - 15, 35 - y});
                const double outside = std::hypot(std::max({20 - x, x - 44, 0}), std::max({15 - y, y - 35, 0}));
                const double distance = inside >= 0 ? inside : outside;
                for (int c = 0; c < 3 && (distance < 4 || distance > 5); ++c)
                    ASSERT_EQ(image.at(x, y, c), distance < 4 ? colour[c] : 0)
                        << x << ", " << y << ", colour " << index;
            }
    }
}

TEST(ImageDrawRect, ShowsWhatLiesInsideOfTheImage) {
    std::mt19937 random(3);
    const auto coordinate = [&] { return static_cast<int>(random() % 700) - 320; };
    for (int i = 0; i < 300; ++i) {
        TestImage image = TestImage::noise(60, 50, 3, static_cast<unsigned>(i));
        int rect[] = {coordinate(), coordinate(), 0, 0};
        rect[2] = coordinate() - rect[0];
        rect[3] = coordinate() - rect[1];
        Canvas expected(image);
        const cv::Point from(Canvas::border + rect[0], Canvas::border + rect[1]);
        cv::rectangle(expected.canvas, from, from + cv::Point(rect[2], rect[3]), {255, 0, 0}, 8);
        ImageDrawRect(image.data(), 60, 50, rect, VD_COLOUR_BLUE);
        ASSERT_TRUE(image.pixels == expected.visible())
            << rect[0] << " " << rect[1] << " " << rect[2] << " " << rect[3];
    }
}

TEST(ImageDrawPoint, DrawsEachPointThatTouchesTheImage) {
    std::vector<int> points;
    for (int y = -3; y < 13; ++y)
        for (int x = -3; x < 18; ++x)
            points.insert(points.end(), {x, y});
    for (std::size_t i = 0; i < points.size(); i += 2) {
        TestImage image = TestImage::noise(15, 10);
        Canvas expected(image);
        cv::circle(expected.canvas, {Canvas::border + points[i], Canvas::border + points[i + 1]}, 1, {0, 255, 0}, -1);
        EXPECT_EQ(ImageDrawPoint(image.data(), 15, 10, &points[i], 1, VD_COLOUR_GREEN), 1);
        ASSERT_TRUE(image.pixels == expected.visible()) << points[i] << ", " << points[i + 1];
    }
    // Together, in every colour, far points among them.
    for (const auto& [index, colour] : colours) {
        TestImage image(15, 10);
        int several[] = {4, 4, INT_MAX, INT_MIN, 10, 6, -1000, 5};
        EXPECT_EQ(ImageDrawPoint(image.data(), 15, 10, several, 4, index), 1);
        for (int c = 0; c < 3; ++c) {
            EXPECT_EQ(image.at(4, 4, c), colour[c]);
            EXPECT_EQ(image.at(10, 6, c), colour[c]);
            EXPECT_EQ(image.at(14, 9, c), 0);
        }
    }
    TestImage image(15, 10);
    int point[] = {4, 4};
    for (const int count : {0, -1, INT_MIN})
        EXPECT_EQ(ImageDrawPoint(image.data(), 15, 10, point, count, 0), 1);
    EXPECT_EQ(image.pixels, TestImage(15, 10).pixels);
}

TEST(ImageDrawText, WritesInTheSimplexFace) {
    for (const auto& [x, y] : {std::pair{10, 40}, {-30, 40}, {150, 10}, {10, 130}, {-200, 300}})
        for (const int scale : {1, 2, 3, 0, -1}) {
            TestImage image = TestImage::noise(160, 120);
            TestImage expected = image;
            cv::Mat canvas(120, 160, CV_8UC3, expected.data());
            cv::putText(canvas, "Az 09\xC3\xA4", {x, y}, 16, scale, {0, 255, 0}, 1, 8, false);
            EXPECT_EQ(ImageDrawText(image.data(), 160, 120, x, y, "Az 09\xC3\xA4", scale, VD_COLOUR_GREEN), 1);
            EXPECT_TRUE(image.pixels == expected.pixels) << x << ", " << y << " scale " << scale;
        }
    for (const auto& [index, colour] : colours) {
        TestImage image(160, 60);
        ImageDrawText(image.data(), 160, 60, 5, 50, "M", 1, index);
        std::array<int, 3> brightest{};
        for (std::size_t i = 0; i < image.size(); ++i)
            brightest[i % 3] = std::max(brightest[i % 3], int{image.pixels[i]});
        for (std::size_t c = 0; c < 3; ++c)
            EXPECT_EQ(brightest[c], colour[static_cast<int>(c)]) << index;
    }
}

TEST(Drawing, StaysInsideTheBufferWithAnyCoordinates) {
    const int values[] = {INT_MIN, INT_MIN + 1, -1000000, -9, -1, 0, 5, 11, 20, 1000000, INT_MAX - 1, INT_MAX};
    GuardedBuffer image(12 * 10 * 3);
    std::mt19937 random(5);
    const auto any = [&] { return values[random() % std::size(values)]; };
    for (int i = 0; i < 4000; ++i) {
        int rect[] = {any(), any(), any(), any()};
        EXPECT_EQ(ImageDrawRect(image.data(), 12, 10, rect, any()), 1);
        EXPECT_EQ(ImageDrawPoint(image.data(), 12, 10, rect, 2, any()), 1);
        EXPECT_EQ(ImageDrawText(image.data(), 12, 10, any(), any(), "Wg|", any(), any()), 1);
    }
}

// Encoding and decoding in memory

Bytes encode2(TestImage& image, const char* format, int quality) {
    int size = -1;
    EXPECT_EQ(ImageEncode2(image.data(), image.width, image.height, image.channels, format, quality, nullptr, &size),
              1);
    GuardedBuffer out(static_cast<std::size_t>(std::max(size, 0)));
    EXPECT_EQ(ImageEncode2(image.data(), image.width, image.height, image.channels, format, quality, out.data(), &size),
              1);
    EXPECT_EQ(static_cast<std::size_t>(size), out.size());
    return out.bytes();
}

Bytes encode(TestImage& image, const char* format) {
    int size = -1;
    EXPECT_EQ(ImageEncode(image.data(), image.width, image.height, format, nullptr, &size), 1);
    GuardedBuffer out(static_cast<std::size_t>(std::max(size, 0)));
    EXPECT_EQ(ImageEncode(image.data(), image.width, image.height, format, out.data(), &size), 1);
    EXPECT_EQ(static_cast<std::size_t>(size), out.size());
    return out.bytes();
}

TEST(ImageEncode, QualityGoesWithTheSpellingsJpgAndWebp) {
    TestImage image = TestImage::noise(64, 48);
    for (const char* format : {".jpg", ".JPG", ".Jpg", "photo.jpg", "a.b.JPG", ".webp", ".WebP"})
        EXPECT_LT(encode2(image, format, 10).size() * 2, encode2(image, format, 95).size()) << format;
    for (const char* format : {".jpeg", ".JPEG", ".png", "a.jpg.jpeg", ".bmp"}) {
        EXPECT_EQ(encode2(image, format, 10), encode2(image, format, 95)) << format;
        EXPECT_EQ(encode2(image, format, 10), encode(image, format)) << format;
    }
}

TEST(ImageEncode, LosslessFormatsComeBack) {
    for (const int channels : {1, 3})
        for (const char* format : {".png", ".bmp", "bmp", "BMP", "x.Bmp", ".webp"}) {
            TestImage image = TestImage::noise(21, 14, channels);
            // Above 100 WebP is lossless.
            Bytes file = encode2(image, format, 101);
            const bool greyBmp = channels == 1 && file[0] == 'B';
            int width = 0, height = 0;
            EXPECT_EQ(ImageDecode(file.data(), static_cast<int>(file.size()), nullptr, &width, &height), 0);
            ASSERT_EQ(width, 21);
            ASSERT_EQ(height, 14);
            GuardedBuffer out(static_cast<std::size_t>(21 * 14 * (greyBmp ? 1 : 3)));
            EXPECT_EQ(ImageDecode(file.data(), static_cast<int>(file.size()), out.data(), nullptr, nullptr), 1);
            const std::size_t repeat = out.size() / image.size();
            for (std::size_t i = 0; i < out.size(); ++i)
                ASSERT_EQ(out[i], image.pixels[i / repeat]) << format << " " << channels;
        }
}

TEST(ImageEncode, BmpGoesToTheOwnConverter) {
    TestImage image = TestImage::noise(5, 4);
    Bytes expected(54 + 4 * 16);
    int size = 0;
    RawToBMP(image.data(), 5, 4, 3, expected.data(), &size);
    for (const char* format : {"bmp", ".bmp", ".BMP", "picture.bmp"})
        EXPECT_EQ(encode(image, format), expected) << format;
    TestImage grey = TestImage::noise(5, 4, 1);
    EXPECT_EQ(encode2(grey, ".bmp", 0).size(), 1078U + 4 * 8);
}

TEST(ImageEncode, UnknownFormatsAreRefused) {
    TestImage image = TestImage::noise(5, 4);
    for (const char* format : {"jpg", "png", "", ".", ".xyz", "bmp.xyz"}) {
        int size = -7;
        EXPECT_THROW(ImageEncode(image.data(), 5, 4, format, nullptr, &size), cv::Exception) << format;
        EXPECT_THROW(ImageEncode2(image.data(), 5, 4, 3, format, 50, nullptr, &size), cv::Exception) << format;
        EXPECT_EQ(size, -7);
    }
}

TEST(ImageDecode, AFailureIsZeroByZero) {
    Bytes garbage = TestImage::noise(10, 10).pixels;
    garbage[0] = 'X';
    struct Case {
        const unsigned char* data;
        int size;
    };
    Bytes bmp = {'B', 'M'};
    for (const Case& c : {Case{garbage.data(), 300}, Case{garbage.data(), 1}, Case{garbage.data(), 0},
                          Case{garbage.data(), -1}, Case{garbage.data(), INT_MIN}, Case{nullptr, 300}, Case{nullptr, 0},
                          Case{bmp.data(), 1}, Case{bmp.data(), 0}, Case{bmp.data(), -2}}) {
        GuardedBuffer out(300);
        int width = -7, height = -7;
        EXPECT_EQ(ImageDecode(c.data, c.size, out.data(), &width, &height), 1);
        EXPECT_EQ(width, 0);
        EXPECT_EQ(height, 0);
        EXPECT_TRUE(out.untouched());
        EXPECT_EQ(ImageDecode(c.data, c.size, nullptr, &width, &height), 0);
    }
}

TEST(ImageDecode, BmpNeverReachesOpenCV) {
    TestImage image = TestImage::noise(4, 2);
    Bytes file = encode(image, ".bmp");
    const auto size = static_cast<int>(file.size());
    GuardedBuffer out(4 * 2 * 3);
    int width = 0, height = 0;
    EXPECT_EQ(ImageDecode(file.data(), 2, out.data(), &width, &height), -1);
    EXPECT_EQ(ImageDecode(file.data(), size - 1, out.data(), &width, &height), -1);
    file[28] = 16;
    EXPECT_EQ(ImageDecode(file.data(), size, out.data(), &width, &height), -2);
    EXPECT_EQ(width, 4);
    // OpenCV would turn this one over; here it has no rows.
    file[28] = 24;
    std::fill(&file[22], &file[26], static_cast<unsigned char>(0xFF));
    EXPECT_EQ(ImageDecode(file.data(), size, out.data(), &width, &height), 1);
    EXPECT_EQ(height, -1);
    EXPECT_TRUE(out.untouched());
}

TEST(ImageDecode, EveryPrefixEndsInASizeOrNone) {
    TestImage image = TestImage::noise(16, 12);
    for (const char* format : {".jpg", ".png", ".webp", ".bmp"}) {
        const Bytes file = encode(image, format);
        for (std::size_t length = 1; length <= file.size(); length += length < 80 ? 1 : 13) {
            const Bytes prefix(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
            GuardedBuffer out(16 * 12 * 3);
            int width = 0, height = 0;
            const int result = ImageDecode(prefix.data(), static_cast<int>(length), out.data(), &width, &height);
            EXPECT_TRUE(result == 1 || result == -1) << format << " " << length;
            EXPECT_TRUE((width == 0 && height == 0) || (width == 16 && height == 12)) << format << " " << length;
        }
    }
}

// Wrong arguments

TEST(ImageTools, NullPointersDoNothing) {
    TestImage image = TestImage::noise(100, 80);
    const Bytes before = image.pixels;
    unsigned char* p = image.data();
    GuardedBuffer out(100 * 80 * 3);
    int rect[] = {1, 1, 5, 5};
    int size = -7;
    EXPECT_EQ(ImageLoad(nullptr, 0, out.data(), &size, &size), -3);
    EXPECT_EQ(size, -7);
    EXPECT_EQ(ImageSave(nullptr, p, 100, 80, 3), 1);
    EXPECT_EQ(ImageSave("must-not-appear.png", nullptr, 100, 80, 3), 1);
    int width = 0, height = 0;
    EXPECT_EQ(ImageLoad("must-not-appear.png", 0, nullptr, &width, &height), -3);
    ImageYUV2RGB(nullptr, 100, 80, out.data());
    ImageYUV2RGB(p, 100, 40, nullptr);
    ImageRGB2GRAY(nullptr, 100, 80, out.data());
    ImageRGB2GRAY(p, 100, 80, nullptr);
    EXPECT_EQ(ImageZoom(nullptr, 100, 80, 3, 5, 5, out.data()), 0);
    EXPECT_EQ(ImageZoom(p, 100, 80, 3, 5, 5, nullptr), 0);
    EXPECT_EQ(ImageDrawRect(nullptr, 100, 80, rect, 0), 0);
    EXPECT_EQ(ImageDrawRect(p, 100, 80, nullptr, 0), 0);
    EXPECT_EQ(ImageCutRect(nullptr, 100, 80, rect, out.data(), &size, &size), 0);
    EXPECT_EQ(ImageCutRect(p, 100, 80, nullptr, out.data(), &size, &size), 0);
    EXPECT_EQ(ImageCutRect(p, 100, 80, rect, nullptr, &size, &size), 0);
    EXPECT_EQ(ImageDrawPoint(nullptr, 100, 80, rect, 1, 0), 0);
    EXPECT_EQ(ImageDrawPoint(p, 100, 80, nullptr, 1, 0), 0);
    EXPECT_EQ(ImageDrawText(nullptr, 100, 80, 1, 1, "x", 1, 0), 0);
    EXPECT_EQ(ImageDrawText(p, 100, 80, 1, 1, nullptr, 1, 0), 0);
    EXPECT_EQ(ImageRotate(nullptr, 100, 80, 90, out.data(), &size, &size), 0);
    EXPECT_EQ(ImageRotate(p, 100, 80, 90, nullptr, &size, &size), 0);
    EXPECT_EQ(ImageFlip(nullptr, 100, 80, 1, out.data()), 0);
    EXPECT_EQ(ImageFlip(p, 100, 80, 1, nullptr), 0);
    EXPECT_EQ(size, -7);
    // The encoders report 1 for everything; no bytes is what tells.
    for (const char* format : {".jpg", ".bmp"}) {
        size = -7;
        EXPECT_EQ(ImageEncode(nullptr, 100, 80, format, out.data(), &size), 1);
        EXPECT_EQ(size, 0);
        size = -7;
        EXPECT_EQ(ImageEncode2(nullptr, 100, 80, 3, format, 50, out.data(), &size), 1);
        EXPECT_EQ(size, 0);
    }
    EXPECT_EQ(ImageEncode(p, 100, 80, nullptr, out.data(), &size), 1);
    EXPECT_EQ(ImageEncode2(p, 100, 80, 3, nullptr, 50, out.data(), &size), 1);
    EXPECT_EQ(ImageEncode(p, 100, 80, ".png", nullptr, nullptr), 1);
    CVToolVersion(nullptr);
    EXPECT_EQ(ITStrcpy(nullptr, "x"), nullptr);
    char text[] = "kept";
    EXPECT_EQ(ITStrcpy(text, nullptr), text);
    EXPECT_STREQ(text, "kept");
    EXPECT_TRUE(out.untouched());
    EXPECT_EQ(image.pixels, before);
}

TEST(ImageTools, ImpossibleSizesAreRefused) {
    TestImage image = TestImage::noise(8, 8);
    unsigned char* p = image.data();
    GuardedBuffer out(8 * 8 * 3);
    int rect[] = {1, 1, 5, 5};
    int size = 0;
    const std::vector<std::function<void(int, int)>> calls = {
        [&](int w, int h) { ImageSave("must-not-appear.png", p, w, h, 3); },
        [&](int w, int h) { ImageYUV2RGB(p, w, h, out.data()); },
        [&](int w, int h) { ImageRGB2GRAY(p, w, h, out.data()); },
        [&](int w, int h) { ImageZoom(p, w, h, 3, 4, 4, out.data()); },
        [&](int w, int h) { ImageZoom(p, 8, 8, 3, w, h, out.data()); },
        [&](int w, int h) { ImageDrawRect(p, w, h, rect, 0); },
        [&](int w, int h) { ImageDrawPoint(p, w, h, rect, 1, 0); },
        [&](int w, int h) { ImageDrawText(p, w, h, 1, 1, "x", 1, 0); },
        [&](int w, int h) { ImageCutRect(p, w, h, rect, out.data(), &size, &size); },
        [&](int w, int h) { ImageRotate(p, w, h, 90, out.data(), &size, &size); },
        [&](int w, int h) { ImageRotate(p, w, h, 0, out.data(), &size, &size); },
        [&](int w, int h) { ImageFlip(p, w, h, 1, out.data()); },
        [&](int w, int h) { ImageEncode(p, w, h, ".png", out.data(), &size); },
        [&](int w, int h) { ImageEncode2(p, w, h, 1, ".jpg", 5, out.data(), &size); }};
    for (std::size_t i = 0; i < calls.size(); ++i)
        for (const auto& [w, h] : {std::pair{-1, 8}, {8, -1}, {-8, -8}, {INT_MIN, INT_MIN}})
            EXPECT_THROW(calls[i](w, h), cv::Exception) << "call " << i << ", " << w << " x " << h;
    for (const int channels : {0, -1, INT_MIN, 513, INT_MAX}) {
        EXPECT_THROW(ImageZoom(p, 8, 8, channels, 4, 4, out.data()), cv::Exception);
        EXPECT_THROW(ImageSave("must-not-appear.png", p, 8, 8, channels), cv::Exception);
    }
    EXPECT_TRUE(out.untouched());
}

// Stopwatch, version, text

TEST(Stopwatch, TellsMilliseconds) {
    using Clock = std::chrono::steady_clock;
    using Milliseconds = std::chrono::duration<double, std::milli>;
    const auto beforeStart = Clock::now();
    CVTimeStart();
    const auto afterStart = Clock::now();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const auto beforeRun = Clock::now();
    const double run = CVTimeRun();
    const auto afterRun = Clock::now();
    // The measured stretch lies between these two, however slow the machine is.
    EXPECT_GE(run, Milliseconds(beforeRun - afterStart).count() - 0.001);
    EXPECT_LE(run, Milliseconds(afterRun - beforeStart).count() + 0.001);
    CVTimeStart();
    EXPECT_LE(CVTimeRun(), Milliseconds(Clock::now() - afterRun).count() + 0.001);
}

TEST(ToolVersion, IsTheFixedText) {
    GuardedBuffer out(VELDAN_TOOL_VERSION_SIZE);
    CVToolVersion(reinterpret_cast<char*>(out.data()));
    EXPECT_STREQ(reinterpret_cast<char*>(out.data()), "VELDAN_CVTOOL_V2.4.3.20200406");
}

TEST(ITStrcpy, CopiesUpToTheZero) {
    char out[] = "xxxxxxxx";
    EXPECT_EQ(ITStrcpy(out, "abc"), out);
    EXPECT_EQ(std::string(out, 8), std::string("abc\0xxxx", 8));
    ITStrcpy(out, "");
    EXPECT_EQ(out[0], '\0');
    EXPECT_EQ(out[1], 'b');
}

TEST(ImageTools, RunInSeveralThreads) {
    const auto work = [](unsigned seed) {
        TestImage image = TestImage::noise(64, 48, 3, seed);
        Bytes expected = image.pixels;
        for (int i = 0; i < 20; ++i) {
            CVTimeStart();
            Bytes turned(image.size());
            int width = 0, height = 0;
            for (int quarter = 0; quarter < 4; ++quarter) {
                ImageRotate(image.data(), 64, 48, 180, turned.data(), &width, &height);
                ImageFlip(turned.data(), 64, 48, -1, image.data());
            }
            Bytes file = encode(image, ".png");
            ImageDecode(file.data(), static_cast<int>(file.size()), image.data(), &width, &height);
            EXPECT_GE(CVTimeRun(), 0.0);
        }
        EXPECT_EQ(image.pixels, expected);
    };
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i)
        threads.emplace_back(work, i);
    for (std::thread& thread : threads)
        thread.join();
}

} // namespace
