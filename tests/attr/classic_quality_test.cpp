#include "support/engines.hpp"
#include "support/frames.hpp"

#include <veldan/face_quality.hpp>

#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <map>
#include <vector>

namespace {

using veldan_tests::faceWithBox;
using veldan_tests::FrameAtTheEnd;
using veldan_tests::noiseFrame;

int isSharp(const cv::Mat& frame, const cv::Rect& box) {
    return FaceQuality().Face_blurRGB(frame.data, frame.cols, frame.rows,
                                      faceWithBox(box.x, box.y, box.width, box.height));
}

// Mean and standard deviation of the Laplacian's magnitude, written out pixel by pixel.
std::pair<double, double> sharpness(const cv::Mat& region) {
    using Plane = cv::Mat1i;
    const int rows = region.rows;
    const int columns = region.cols;
    const auto filtered = [&](const Plane& in, const int(&kernel)[9], auto finish) {
        const auto mirrored = [](int i, int n) { return n == 1 ? 0 : i < 0 ? -i : i >= n ? 2 * n - 2 - i : i; };
        Plane out(rows, columns);
        for (int y = 0; y < rows; ++y)
            for (int x = 0; x < columns; ++x) {
                int sum = 0;
                for (int k = 0; k < 9; ++k)
                    sum += kernel[k] * in(mirrored(y + k / 3 - 1, rows), mirrored(x + k % 3 - 1, columns));
                out(y, x) = finish(sum);
            }
        return out;
    };
    Plane grey(rows, columns);
    for (int y = 0; y < rows; ++y)
        for (int x = 0; x < columns; ++x) {
            const auto& pixel = region.at<cv::Vec3b>(y, x);
            grey(y, x) = static_cast<int>(std::lround(0.114 * pixel[0] + 0.587 * pixel[1] + 0.299 * pixel[2]));
        }
    const Plane smooth = filtered(grey, {1, 2, 1, 2, 4, 2, 1, 2, 1}, [](int sum) { return (sum + 8) / 16; });
    const Plane strength =
        filtered(smooth, {2, 0, 2, 0, -8, 0, 2, 0, 2}, [](int sum) { return std::min(std::abs(sum), 255); });
    double sum = 0;
    double squares = 0;
    for (const int value : strength) {
        sum += value;
        squares += value * value;
    }
    const double mean = sum / (rows * columns);
    return {mean, std::sqrt(squares / (rows * columns) - mean * mean)};
}

TEST(Sharpness, FollowsMeanAndSpreadOfTheLaplacian) {
    // From soft to harsh, and with details on a part of the face only.
    std::map<std::string, int> seen;
    cv::RNG random(5);
    for (int i = 0; i < 400; ++i) {
        const cv::Rect box(random.uniform(-20, 60), random.uniform(-20, 60), random.uniform(30, 80),
                           random.uniform(30, 80));
        cv::Mat frame = noiseFrame(100, 90, static_cast<unsigned>(i), 1 + 2 * random.uniform(0, 2));
        frame.convertTo(frame, -1, random.uniform(0.02, 1.0), random.uniform(0, 60));
        if (random.uniform(0, 2) != 0)
            frame.rowRange(0, random.uniform(20, 85)).setTo(cv::Scalar(90, 100, 110));
        const auto [mean, deviation] = sharpness(frame(box & cv::Rect(0, 0, 100, 90)));
        const double margin = 0.05;
        if (std::abs(mean - 10) < margin || std::abs(deviation - 20) < margin ||
            std::abs(mean / deviation - 0.5) < 0.005)
            continue;
        const bool enough = mean > 10;
        const bool spread = deviation > 20;
        const bool even = mean / deviation > 0.5;
        ++seen[std::string(enough ? "M" : "-") + (spread ? "S" : "-") + (even ? "R" : "-")];
        EXPECT_EQ(isSharp(frame, box), enough && spread && even ? 1 : 0) << mean << ' ' << deviation << ' ' << box;
    }
    // Each test decides on its own somewhere.
    for (const char* combination : {"MSR", "-S-", "M-R", "MS-"})
        EXPECT_GT(seen[combination], 0) << combination;
}

TEST(Sharpness, EvenRegionsAndRegionsOutsideAreNotSharp) {
    cv::Mat frame = noiseFrame(200, 150, 1, 1);
    EXPECT_EQ(isSharp(frame, {20, 20, 100, 100}), 1);
    const cv::Rect outside[] = {{200, 0, 50, 50},
                                {0, 150, 50, 50},
                                {-50, 0, 50, 50},
                                {0, -50, 50, 50},
                                {50, 50, 0, 50},
                                {50, 50, 50, -1},
                                {INT_MAX, INT_MAX, INT_MAX, INT_MAX},
                                {INT_MIN, INT_MIN, INT_MIN, 1}};
    for (const cv::Rect& box : outside)
        EXPECT_EQ(isSharp(frame, box), 0) << box;
    EXPECT_EQ(isSharp(frame, {-1, -1, INT_MAX, INT_MAX}), 1) << "clipped to the frame";
    EXPECT_EQ(isSharp(frame, {INT_MAX - 5, 0, INT_MAX, 10}), 0);
    EXPECT_EQ(isSharp(frame, {30, 30, 1, 1}), 0);

    // Only what lies inside of the box counts.
    frame(cv::Rect(20, 20, 100, 100)).setTo(cv::Scalar(80, 120, 160));
    EXPECT_EQ(isSharp(frame, {20, 20, 100, 100}), 0);

    FaceQuality tests;
    EXPECT_EQ(tests.Face_blurRGB(nullptr, 200, 150, faceWithBox(0, 0, 50, 50)), 0);
    EXPECT_EQ(tests.Face_blurRGB(frame.data, 0, 150, faceWithBox(0, 0, 50, 50)), 0);
    EXPECT_EQ(tests.Face_blurRGB(frame.data, 200, -1, faceWithBox(0, 0, 50, 50)), 0);
}

TEST(Sharpness, NothingIsReadPastTheFrame) {
    for (const int width : {100, 101, 133}) {
        const cv::Mat frame = noiseFrame(width, 101, 1, 1);
        FrameAtTheEnd end(frame);
        const cv::Mat view(101, width, CV_8UC3, end.data());
        for (const int side : {1, 2, 3, 17, 40, 101})
            EXPECT_EQ(isSharp(view, {width - side, 101 - side, side, side}),
                      isSharp(frame, {width - side, 101 - side, side, side}));
    }
}

// A face in the middle of a box of 100 pixels, that every ratio finds well balanced, and what changes about it.
struct Pose {
    int x0 = 30, x1 = 70, x2 = 50, x3 = 40, x4 = 60;
    int y0 = 40, y1 = 40, y2 = 60, y3 = 80, y4 = 80;
    int left = 0, width = 100;
};

int isFrontal(const Pose& pose, int shift = 0) {
    VDFACEINFOEX face = faceWithBox(pose.left + shift, -7, pose.width, 3);
    const int x[] = {pose.x0, pose.x1, pose.x2, pose.x3, pose.x4};
    const int y[] = {pose.y0, pose.y1, pose.y2, pose.y3, pose.y4};
    for (int k = 0; k < 5; ++k) {
        face.keyPointX[k] = x[k] + shift;
        face.keyPointY[k] = y[k] - shift;
    }
    return FaceQuality().Face_Front(nullptr, 0, 0, face);
}

TEST(Frontalness, EachBoundDecidesOnItsOwn) {
    EXPECT_EQ(isFrontal({}), 1);
    const struct {
        const char* what;
        Pose at;     // exactly at the bound, everything else inside
        Pose inside; // just inside
    } cases[] = {
        {"eyes, 13 to 10", {37, 60}, {37, 61}},
        {"eyes, 12 to 16", {38, 66}, {38, 65}},
        {"mouth, 13 to 10", {30, 70, 50, 37, 60}, {30, 70, 50, 37, 61}},
        {"mouth, 12 to 16", {30, 70, 50, 38, 66}, {30, 70, 50, 38, 65}},
        {"nose 20 below the eyes, 10 above the mouth",
         {30, 70, 50, 40, 60, 40, 40, 60, 70, 70},
         {30, 70, 50, 40, 60, 40, 40, 60, 71, 70}},
        {"nose 10 below the eyes, 20 above the mouth",
         {30, 70, 50, 40, 60, 40, 40, 50, 70, 70},
         {30, 70, 50, 40, 60, 40, 40, 50, 69, 70}},
        {"half a pixel of the eyes counts",
         {30, 70, 50, 40, 60, 39, 41, 60, 70, 70},
         {30, 70, 50, 40, 60, 40, 41, 60, 70, 70}},
        {"eye margins, 30 to 40",
         {30, 70, 50, 40, 60, 40, 40, 60, 80, 80, 0, 110},
         {30, 70, 50, 40, 60, 40, 40, 60, 80, 80, 0, 109}},
        {"eye margins, 26 to 20",
         {30, 70, 50, 40, 60, 40, 40, 60, 80, 80, 4, 86},
         {30, 70, 50, 40, 60, 40, 40, 60, 80, 80, 4, 87}},
        {"mouth margins, 39 to 30",
         {28, 67, 50, 39, 60, 40, 40, 60, 80, 80, 0, 90},
         {28, 67, 50, 38, 60, 40, 40, 60, 80, 80, 0, 90}},
        {"mouth margins, 30 to 40",
         {23, 62, 40, 30, 50, 40, 40, 60, 80, 80, 0, 90},
         {23, 62, 40, 30, 51, 40, 40, 60, 80, 80, 0, 90}},
        // With the eyes in order, the nose margin follows from the eyes and their margins; so it takes crossed ones.
        {"nose margin, 51 to 68",
         {60, 42, 51, 75, 25, 40, 40, 60, 80, 80, 0, 119},
         {60, 42, 51, 75, 25, 40, 40, 60, 80, 80, 0, 118}},
        {"mouth as wide as the eyes", {30, 70, 50, 30, 70}, {30, 70, 50, 30, 69}},
    };
    for (const auto& c : cases) {
        for (const int shift : {0, 1000, -1000}) {
            EXPECT_EQ(isFrontal(c.at, shift), 0) << c.what;
            EXPECT_EQ(isFrontal(c.inside, shift), 1) << c.what;
        }
    }
}

TEST(Frontalness, ZeroDivisorsAndHostilePoints) {
    EXPECT_EQ(isFrontal({50, 50, 50}), 0) << "0 / 0";
    EXPECT_EQ(isFrontal({30, 50, 50}), 0);
    EXPECT_EQ(isFrontal({30, 70, 50, 40, 50}), 0);
    EXPECT_EQ(isFrontal({30, 70, 50, 40, 60, 40, 40, 60, 60, 60}), 0);
    EXPECT_EQ(isFrontal({30, 70, 50, 40, 60, 40, 40, 60, 80, 80, 0, 70}), 0);
    for (const int value : {INT_MIN, -1, 0, INT_MAX}) {
        VDFACEINFOEX face = faceWithBox(INT_MAX, 0, INT_MAX, 0);
        std::fill_n(face.keyPointX, 120, value);
        std::fill_n(face.keyPointY, 120, value);
        EXPECT_EQ(FaceQuality().Face_Front(nullptr, 0, 0, face), 0);
        face.keyPointX[0] = face.keyPointX[3] = face.keyPointY[0] = INT_MIN;
        face.keyPointX[1] = face.keyPointX[4] = face.keyPointY[3] = INT_MAX;
        EXPECT_EQ(FaceQuality().Face_Front(nullptr, 0, 0, face), 0);
    }
}

} // namespace
