#ifndef VELDAN_KIT_VIDEO_LATEST_FRAME_HPP
#define VELDAN_KIT_VIDEO_LATEST_FRAME_HPP

#include "photo/photo.hpp"
#include "video/track_events.hpp"

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>

namespace veldan::kit {

/** One picture of a video. */
struct Frame {
    Photo picture;
    Moment moment;
};

/**
 * Hands frames from the thread that reads a camera to the one that works on them. Work that is slower than the camera
 * always gets the latest frame; those before it are dropped, so that it never falls behind.
 */
class LatestFrame {
public:
    void put(Frame frame);

    /** There are no more frames, perhaps because of a failure. */
    void close(std::exception_ptr failure = nullptr);

    /**
     * Waits for a frame that was not taken before.
     * @param stopped  asked now and then; true ends the wait
     * @return false when there is none any more; throws the failure, if there was one
     */
    bool take(Frame& frame, const std::function<bool()>& stopped);

    /** Frames that were replaced before anybody took them. */
    std::int64_t dropped() const;

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    Frame frame_;
    bool fresh_ = false;
    bool closed_ = false;
    std::exception_ptr failure_;
    std::int64_t dropped_ = 0;
};

} // namespace veldan::kit

#endif
