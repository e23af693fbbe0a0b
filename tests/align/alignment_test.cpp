#include "support/frames.hpp"
#include "tool/guarded_buffer.hpp"

#include <veldan/align.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <climits>
#include <cmath>
#include <complex>
#include <cstring>
#include <vector>

namespace {

using veldan_tests::FrameAtTheEnd;
using veldan_tests::GuardedBuffer;
using veldan_tests::noiseFrame;
using veldan_tests::plainRegion;

using Align = decltype(&alignface_pinv);
using Point = std::complex<double>;

// The five places in a crop of 96 x 112.
const std::vector<Point> base = {
    {30.2946, 51.6953}, {65.5318, 51.5014}, {48.0252, 71.7366}, {33.5493, 92.3655}, {62.7299, 92.2041}};
const std::vector<Point> corners = {{0, 0}, {112, 112}};

std::vector<Point> shifted(std::vector<Point> points, Point by) {
    for (Point& point : points)
        point += by;
    return points;
}

cv::Mat aligned(Align align, const cv::Mat& frame, const std::vector<Point>& points, int width = 112,
                int height = 112) {
    std::vector<float> values;
    for (const Point& point : points) {
        values.push_back(static_cast<float>(point.real()));
        values.push_back(static_cast<float>(point.imag()));
    }
    GuardedBuffer crop(static_cast<std::size_t>(width * height * 3));
    EXPECT_EQ(align(frame.data, frame.cols, frame.rows, crop.data(), width, height, values.data()), 0);
    return cv::Mat(height, width, CV_8UC3, crop.data()).clone();
}

// Each pixel of the crop through the map back = p x scale + shift, in double precision; black outside of the frame.
cv::Mat sampled(const cv::Mat& frame, Point scale, Point shift, int side = 112) {
    cv::Mat crop(side, side, CV_8UC3);
    for (int y = 0; y < side; ++y) {
        for (int x = 0; x < side; ++x) {
            const Point at = Point(x, y) * scale + shift;
            const double left = std::floor(at.real());
            const double top = std::floor(at.imag());
            for (int c = 0; c < 3; ++c) {
                double value = 0;
                for (int dy = 0; dy < 2; ++dy)
                    for (int dx = 0; dx < 2; ++dx) {
                        const double weight =
                            (1 - std::abs(left + dx - at.real())) * (1 - std::abs(top + dy - at.imag()));
                        const double u = left + dx;
                        const double v = top + dy;
                        if (u >= 0 && v >= 0 && u < frame.cols && v < frame.rows)
                            value += weight * frame.at<cv::Vec3b>(static_cast<int>(v), static_cast<int>(u))[c];
                    }
                crop.at<cv::Vec3b>(y, x)[c] = cv::saturate_cast<unsigned char>(value);
            }
        }
    }
    return crop;
}

// The warp works with 32nds of a pixel. Frames here change by a few levels from pixel to pixel, except at their edge.
void expectAlike(const cv::Mat& actual, const cv::Mat& expected) {
    EXPECT_LE(cv::norm(actual, expected, cv::NORM_INF), 8);
    EXPECT_LE(cv::norm(actual, expected, cv::NORM_L1) / static_cast<double>(actual.total() * 3), 0.5);
}

TEST(Alignment, PointsInTheirPlacesGiveTheFrameItself) {
    const cv::Mat frame = noiseFrame(300, 260);
    const struct {
        int width, height;
        Point offset;
    } cases[] = {
        {112, 112, {8, 0}}, {96, 112, {0, 0}}, {113, 112, {8.5, 0}}, {64, 201, {-16, 44.5}}, {1, 1, {-47.5, -55.5}}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.width << " x " << c.height);
        // The frame shifted by whole pixels: black where it does not reach.
        for (const cv::Point move : {cv::Point(0, 0), cv::Point(70, 30), cv::Point(-20, -45), cv::Point(250, 200)}) {
            const std::vector<Point> points = shifted(base, c.offset + Point(move.x, move.y));
            EXPECT_EQ(cv::norm(aligned(alignface_pinv, frame, points, c.width, c.height),
                               plainRegion(frame, {move.x, move.y, c.width, c.height}), cv::NORM_INF),
                      0);
            // The two-point places do not follow the size.
            EXPECT_EQ(
                cv::norm(aligned(alignface_mask, frame, shifted(corners, Point(move.x, move.y)), c.width, c.height),
                         plainRegion(frame, {move.x, move.y, c.width, c.height}), cv::NORM_INF),
                0);
        }
    }
}

TEST(Alignment, UndoesTurnScaleAndShift) {
    const cv::Mat frame = noiseFrame(420, 380, 4, 31);
    for (const double turn : {0.0, 0.3, -0.5, 1.7, 3.1}) {
        for (const double size : {0.5, 1.0, 2.3}) {
            SCOPED_TRACE(testing::Message() << "turned by " << turn << ", " << size << " times as large");
            const Point scale = std::polar(size, turn);
            const Point shift = Point(210, 190) - scale * Point(56, 56);
            std::vector<Point> five = shifted(base, {8, 0});
            std::vector<Point> two = corners;
            for (Point& point : five)
                point = point * scale + shift;
            for (Point& point : two)
                point = point * scale + shift;
            const cv::Mat expected = sampled(frame, scale, shift);
            expectAlike(aligned(alignface_pinv, frame, five), expected);
            expectAlike(aligned(alignface_mask, frame, two), expected);
        }
    }
}

TEST(Alignment, IsTheLeastSquaresFitToPointsOfARealFace) {
    const cv::Mat frame = noiseFrame(420, 380, 5, 31);
    const std::vector<Point> faces[] = {
        {{160, 150}, {220, 145}, {200, 190}, {165, 225}, {215, 215}}, // looks to the side
        {{150, 250}, {150, 180}, {190, 200}, {230, 240}, {225, 190}}, // lies
        {{100, 100}, {101, 100}, {300, 300}, {100, 300}, {300, 100}}, // no face
        {{200, 150}, {130, 150}, {165, 190}, {190, 230}, {140, 230}}, // mirrored, which is never undone
    };
    for (const auto& points : faces) {
        // Regression of complex numbers: places = a x points + b.
        Point meanFrom;
        Point meanTo;
        const std::vector<Point> to = shifted(base, {8, 0});
        for (std::size_t i = 0; i < 5; ++i) {
            meanFrom += points[i] / 5.0;
            meanTo += to[i] / 5.0;
        }
        Point covariance;
        double variance = 0;
        for (std::size_t i = 0; i < 5; ++i) {
            covariance += std::conj(points[i] - meanFrom) * (to[i] - meanTo);
            variance += std::norm(points[i] - meanFrom);
        }
        const Point a = covariance / variance;
        expectAlike(aligned(alignface_pinv, frame, points), sampled(frame, 1.0 / a, meanFrom - meanTo / a));
    }
}

TEST(Alignment, EqualPointsGiveTheSolutionOfLeastNorm) {
    const cv::Mat frame = noiseFrame(420, 380, 6, 31);
    for (const Point at : {Point(100, 150), Point(40, 3), Point(-1, -1), Point(0, 0)}) {
        SCOPED_TRACE(testing::Message() << at);
        const struct {
            Align align;
            std::vector<Point> points;
            Point to; // the mean of the places
        } cases[] = {{alignface_pinv, std::vector<Point>(5, at), {56.02618, 71.90054}},
                     {alignface_mask, std::vector<Point>(2, at), {56, 56}}};
        for (const auto& c : cases) {
            // The two equations that are left, at x (r0 - i r1) + (r2 + i r3) = to, have orthogonal rows of length n.
            const double n = std::norm(at) + 1;
            const Point a = c.to * std::conj(at) / n;
            const Point b = c.to / n;
            if (std::abs(a) > 0)
                expectAlike(aligned(c.align, frame, c.points), sampled(frame, 1.0 / a, -b / a));
            else
                aligned(c.align, frame, c.points); // no map back: anything but a fault
        }
    }
}

TEST(Alignment, HostilePointsStayInsideTheBuffers) {
    const cv::Mat frame = noiseFrame(130, 120);
    const double values[] = {INT_MAX, INT_MIN, FLT_MAX, -FLT_MAX, FLT_MIN, INFINITY, NAN, 1e9, -1, 0};
    for (const double value : values) {
        for (const double other : values) {
            aligned(alignface_pinv, frame, {{value, other}, {70, 50}, {55, 70}, {value, 90}, {70, other}});
            aligned(alignface_mask, frame, {{value, other}, {100, 90}});
            aligned(alignface_mask, frame, {{value, value}, {other, other}});
        }
    }
}

TEST(Alignment, NothingIsReadPastTheFrame) {
    const cv::Mat frame = noiseFrame(157, 131);
    FrameAtTheEnd end(frame);
    const cv::Mat view(frame.rows, frame.cols, CV_8UC3, end.data());
    // The crop's last rows and columns around the frame's last pixels, at all offsets of a fraction of a pixel.
    for (const double size : {0.25, 0.5, 1.0, 1.01, 3.0}) {
        for (int step = -9; step < 9; ++step) {
            const double inset = step * 0.171875;
            const Point end2(frame.cols - 1 - inset, frame.rows - 1 - inset / 2);
            const std::vector<Point> two = {end2 - size * Point(111, 111), end2 + size * Point(1, 1)};
            EXPECT_EQ(cv::norm(aligned(alignface_mask, view, two), aligned(alignface_mask, frame, two)), 0);
            std::vector<Point> five = shifted(base, {8, 0});
            for (Point& point : five)
                point = end2 - size * Point(111, 111) + size * point;
            EXPECT_EQ(cv::norm(aligned(alignface_pinv, view, five), aligned(alignface_pinv, frame, five)), 0);
        }
    }
}

TEST(Alignment, ArgumentsThatMakeNoSenseWriteNothing) {
    cv::Mat frame = noiseFrame(120, 120);
    const float points[10] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10};
    GuardedBuffer crop(112 * 112 * 3);
    for (const Align align : {alignface_pinv, alignface_mask}) {
        EXPECT_EQ(align(nullptr, 120, 120, crop.data(), 112, 112, points), 0);
        EXPECT_EQ(align(frame.data, 120, 120, nullptr, 112, 112, points), 0);
        EXPECT_EQ(align(frame.data, 120, 120, crop.data(), 112, 112, nullptr), 0);
        for (const int bad : {0, -1, INT_MIN}) {
            EXPECT_EQ(align(frame.data, bad, 120, crop.data(), 112, 112, points), 0);
            EXPECT_EQ(align(frame.data, 120, bad, crop.data(), 112, 112, points), 0);
            EXPECT_EQ(align(frame.data, 120, 120, crop.data(), bad, 112, points), 0);
            EXPECT_EQ(align(frame.data, 120, 120, crop.data(), 112, bad, points), 0);
        }
    }
    EXPECT_TRUE(crop.untouched());
}

TEST(Alignment, FramesBeyondOpenCvsReachRaiseItsException) {
    for (const cv::Size size : {cv::Size(32766, 2), cv::Size(2, 32766)})
        EXPECT_GT(cv::norm(aligned(alignface_mask, cv::Mat(size, CV_8UC3, cv::Scalar::all(9)), corners)), 0);
    for (const cv::Size size : {cv::Size(32767, 2), cv::Size(2, 32767)})
        EXPECT_THROW(aligned(alignface_pinv, cv::Mat(size, CV_8UC3), base), cv::Exception);
}

TEST(Alignment, ThePublishedTableIsForCallersOnly) {
    const float published[10] = {38.2946F, 51.6953F, 73.5318F, 51.6953F, 56.0252F,
                                 71.7366F, 41.5493F, 92.3655F, 70.7299F, 92.2041F};
    EXPECT_TRUE(std::equal(published, published + 10, templatekeypoints));
    const cv::Mat frame = noiseFrame(200, 200);
    const std::vector<Point> points = {{60, 70}, {110, 75}, {90, 100}, {70, 130}, {105, 128}};
    const cv::Mat before = aligned(alignface_pinv, frame, points);
    std::memset(templatekeypoints, 0, sizeof(templatekeypoints));
    EXPECT_EQ(cv::norm(aligned(alignface_pinv, frame, points), before), 0);
    std::memcpy(templatekeypoints, published, sizeof(published));
}

} // namespace
