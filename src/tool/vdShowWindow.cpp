#include "tool/image_buffer.hpp"
#include "tool/window_system.hpp"

#include <veldan/show_window.hpp>

#include <opencv2/highgui.hpp>

void WinShow(char* name, unsigned char* image, int width, int height, int channels) {
    if (name == nullptr || image == nullptr || !veldan::windowSystemReachable())
        return;
    cv::imshow(name, veldan::wrapImage(image, width, height, channels));
    cv::waitKey(1);
}

void WinHide(char* name) {
    if (name == nullptr || !veldan::windowSystemReachable())
        return;
    cv::destroyWindow(name);
}
