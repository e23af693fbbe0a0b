#ifndef VELDAN_KIT_VIDEO_PREVIEW_WINDOW_HPP
#define VELDAN_KIT_VIDEO_PREVIEW_WINDOW_HPP

#include "photo/photo.hpp"

#include <string>
#include <utility>

namespace veldan::kit {

/** A window that shows a video until it, or q or Esc, closes it. Does nothing without a display. One thread only. */
class PreviewWindow {
public:
    explicit PreviewWindow(std::string title) : title_(std::move(title)) {}

    /** Shows a picture, unless the user has closed the window. */
    void show(Photo& picture);

    /** Closes the window for good. */
    void close();

private:
    enum class State { New, Open, Closed };

    bool visible() const;

    std::string title_;
    State state_ = State::New;
};

} // namespace veldan::kit

#endif
