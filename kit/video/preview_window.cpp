#include "video/preview_window.hpp"

#include <veldan/show_window.hpp>

#include <opencv2/core.hpp>
#include <opencv2/highgui.hpp>

namespace veldan::kit {

namespace {

constexpr int escape = 27;
constexpr int keyBits = 0xff; // above them are the modifiers

} // namespace

void PreviewWindow::show(Photo& picture) {
    if (state_ == State::Closed)
        return;
    if (state_ == State::New) {
        // The library knows whether there is a window system; to ask for one that is not there ends the process.
        WinShow(title_.data(), picture.pixels.data(), picture.width, picture.height, 3);
        if (visible())
            state_ = State::Open;
        return;
    }
    if (!visible()) { // closed by its own button
        state_ = State::Closed;
        return;
    }
    cv::imshow(title_, cv::Mat(picture.height, picture.width, CV_8UC3, picture.pixels.data()));
    const int key = cv::waitKey(1);
    if (key >= 0 && ((key & keyBits) == 'q' || (key & keyBits) == escape))
        close();
}

void PreviewWindow::close() {
    if (state_ == State::Open && visible())
        cv::destroyWindow(title_);
    state_ = State::Closed;
}

bool PreviewWindow::visible() const {
    try {
        return cv::getWindowProperty(title_, cv::WND_PROP_VISIBLE) > 0;
    } catch (const cv::Exception&) {
        return false; // there is no window at all
    }
}

} // namespace veldan::kit
