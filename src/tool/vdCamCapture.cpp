#include "tool/image_buffer.hpp"

#include <veldan/cam_capture.hpp>

#include <opencv2/videoio.hpp>

#include <atomic>
#include <climits>
#include <memory>
#include <string>

namespace {

// By contract an open that fails leaves its capture object allocated. It is kept here for the next open, so that an
// application that asks again and again for a missing camera does not grow.
std::atomic<cv::VideoCapture*> unusedCapture{nullptr};

template <typename Source>
void* openCapture(const Source& source) {
    std::unique_ptr<cv::VideoCapture> capture(unusedCapture.exchange(nullptr));
    if (!capture)
        capture = std::make_unique<cv::VideoCapture>();
    if (capture->open(source))
        return capture.release();
    // Another thread may have failed, too, and left its own.
    capture.reset(unusedCapture.exchange(capture.release()));
    return nullptr;
}

cv::VideoCapture* captureOf(void* handle) {
    return static_cast<cv::VideoCapture*>(handle);
}

int intProperty(void* handle, int property) {
    if (handle == nullptr)
        return 0;
    const double value = captureOf(handle)->get(property);
    // A source that does not know the property answers with 0 or -1; nothing else outside of int makes sense.
    return value > INT_MIN && value < INT_MAX ? static_cast<int>(value) : 0;
}

int setProperty(void* handle, int property, int value) {
    if (handle == nullptr)
        return 0;
    // Whether the source took the value is not reported: what it chose can be read back.
    captureOf(handle)->set(property, static_cast<double>(value));
    return 1;
}

} // namespace

void* CamUsbOpen(int index) {
    return openCapture(index);
}

void* CamIPOpen(char* address) {
    return address == nullptr ? nullptr : openCapture(cv::String(address));
}

void* CamVideoOpen(char* path) {
    return CamIPOpen(path);
}

int CamClose(void* handle) {
    const std::unique_ptr<cv::VideoCapture> capture(captureOf(handle));
    if (capture)
        capture->release();
    return 1;
}

int GetCamWidth(void* handle) {
    return intProperty(handle, cv::CAP_PROP_FRAME_WIDTH);
}

int GetCamHeight(void* handle) {
    return intProperty(handle, cv::CAP_PROP_FRAME_HEIGHT);
}

int SetCamWidth(void* handle, int width) {
    return setProperty(handle, cv::CAP_PROP_FRAME_WIDTH, width);
}

int SetCamHeight(void* handle, int height) {
    return setProperty(handle, cv::CAP_PROP_FRAME_HEIGHT, height);
}

int CamCapture(void* handle, unsigned char* out) {
    if (handle == nullptr || out == nullptr)
        return 0;
    cv::Mat frame;
    // A lost frame, or the end of a video, is an empty one: nothing is copied, and the answer is the same.
    captureOf(handle)->read(frame);
    veldan::copyImage(frame, out);
    return 1;
}
