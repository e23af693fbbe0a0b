#include <veldan/cam_capture.hpp>
#include <veldan/show_window.hpp>

#include <gtest/gtest.h>

namespace {

// As of a camera that does not exist, whatever is asked for.
TEST(NoVideo, AnswersLikeASourceThatCannotBeOpened) {
    char name[] = VELDAN_PHOTO_DIR "/astronaut.jpg"; // with cameras and videos, this opens
    EXPECT_EQ(CamUsbOpen(0), nullptr);
    EXPECT_EQ(CamIPOpen(name), nullptr);
    EXPECT_EQ(CamVideoOpen(name), nullptr);
    EXPECT_EQ(CamClose(nullptr), 1);
    EXPECT_EQ(GetCamWidth(nullptr), 0);
    EXPECT_EQ(GetCamHeight(nullptr), 0);
    EXPECT_EQ(SetCamWidth(nullptr, 640), 0);
    EXPECT_EQ(SetCamHeight(nullptr, 480), 0);
    unsigned char pixels[3] = {1, 2, 3};
    EXPECT_EQ(CamCapture(nullptr, pixels), 0);
    EXPECT_EQ(pixels[0], 1);
    WinShow(name, pixels, 1, 1, 3); // without a window system that would end the process
    WinHide(name);
}

} // namespace
