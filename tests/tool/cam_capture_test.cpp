#include "tool/foreign_leaks.hpp"
#include "tool/guarded_buffer.hpp"

#include <veldan/cam_capture.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include <climits>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using veldan_tests::ForeignLeaks;
using veldan_tests::GuardedBuffer;

void* openVideo(const std::string& path) {
    std::string copy = path;
    return CamVideoOpen(copy.data());
}
void* openStream(const std::string& address) {
    std::string copy = address;
    return CamIPOpen(copy.data());
}

using Open = void* (*)(const std::string&);

class Video : public testing::TestWithParam<Open> {
protected:
    static constexpr int width = 64;
    static constexpr int height = 48;
    static constexpr int frames = 12;

    // Grey level of the left half of a frame; the right half is blue.
    static int level(int frame) { return 20 + 15 * frame; }

    void SetUp() override {
        path = fs::temp_directory_path() / ("veldan-video-" + std::to_string(getpid()) + ".avi");
        cv::VideoWriter writer(path, cv::CAP_OPENCV_MJPEG, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25.0,
                               cv::Size(width, height));
        ASSERT_TRUE(writer.isOpened());
        for (int frame = 0; frame < frames; ++frame) {
            cv::Mat picture(height, width, CV_8UC3, cv::Scalar::all(level(frame)));
            picture.colRange(width / 2, width).setTo(cv::Scalar(255, 0, 0));
            writer.write(picture);
        }
    }
    void TearDown() override { fs::remove(path); }

    fs::path path;
};

TEST_P(Video, IsReadToItsEnd) {
    const ForeignLeaks ignored;
    void* const video = GetParam()(path);
    ASSERT_NE(video, nullptr);
    EXPECT_EQ(GetCamWidth(video), width);
    EXPECT_EQ(GetCamHeight(video), height);
    // A file has the size that it has; the request is answered all the same.
    EXPECT_EQ(SetCamWidth(video, 1920), 1);
    EXPECT_EQ(SetCamHeight(video, -1), 1);
    EXPECT_EQ(GetCamWidth(video), width);

    for (int frame = 0; frame < frames; ++frame) {
        GuardedBuffer out(width * height * 3);
        ASSERT_EQ(CamCapture(video, out.data()), 1);
        constexpr std::size_t row = std::size_t{height / 2} * width * 3;
        for (std::size_t c = 0; c < 3; ++c) {
            EXPECT_NEAR(out[row + 8 * 3 + c], level(frame), 10) << "frame " << frame;
            EXPECT_NEAR(out[row + (width - 8) * 3 + c], c == 0 ? 255 : 0, 10) << "frame " << frame;
        }
    }
    for (int i = 0; i < 3; ++i) {
        GuardedBuffer out(width * height * 3);
        EXPECT_EQ(CamCapture(video, out.data()), 1);
        EXPECT_TRUE(out.untouched()) << "past the end";
    }
    EXPECT_EQ(CamClose(video), 1);
}

TEST_P(Video, HandlesAreIndependent) {
    const ForeignLeaks ignored;
    void* const one = GetParam()(path);
    void* const other = GetParam()(path);
    ASSERT_NE(one, nullptr);
    ASSERT_NE(other, nullptr);
    EXPECT_NE(one, other);
    GuardedBuffer out(width * height * 3);
    for (int i = 0; i < 5; ++i)
        CamCapture(one, out.data());
    EXPECT_NEAR(out[0], level(4), 10);
    EXPECT_EQ(CamClose(one), 1);
    EXPECT_EQ(CamCapture(other, nullptr), 0) << "no frame is taken";
    EXPECT_EQ(CamCapture(other, out.data()), 1);
    EXPECT_NEAR(out[0], level(0), 10);
    EXPECT_EQ(CamClose(other), 1);
}

TEST_P(Video, MissingSourcesGiveNull) {
    const ForeignLeaks ignored;
    for (const std::string name : {"/nonexistent-folder/video.avi", "", "/"})
        EXPECT_EQ(GetParam()(name), nullptr) << name;
    // Not a video. The next open still works.
    EXPECT_EQ(GetParam()("/proc/self/status"), nullptr);
    void* const video = GetParam()(path);
    EXPECT_EQ(GetCamWidth(video), width);
    CamClose(video);
}

INSTANTIATE_TEST_SUITE_P(OpenedBy, Video, testing::Values(openVideo, openStream),
                         [](const auto& info) { return info.index == 0 ? "CamVideoOpen" : "CamIPOpen"; });

TEST(Camera, ThatIsMissingGivesNull) {
    const ForeignLeaks ignored;
    // The highest number that the kernel gives a camera is far below.
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(CamUsbOpen(99), nullptr);
    EXPECT_EQ(CamUsbOpen(INT_MAX), nullptr);
}

TEST(Camera, NullIsAnswered) {
    unsigned char out = 77;
    EXPECT_EQ(CamIPOpen(nullptr), nullptr);
    EXPECT_EQ(CamVideoOpen(nullptr), nullptr);
    EXPECT_EQ(CamClose(nullptr), 1);
    EXPECT_EQ(GetCamWidth(nullptr), 0);
    EXPECT_EQ(GetCamHeight(nullptr), 0);
    EXPECT_EQ(SetCamWidth(nullptr, 640), 0);
    EXPECT_EQ(SetCamHeight(nullptr, 480), 0);
    EXPECT_EQ(CamCapture(nullptr, &out), 0);
    EXPECT_EQ(out, 77);
}

} // namespace
