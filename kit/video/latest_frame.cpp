#include "video/latest_frame.hpp"

#include <chrono>
#include <utility>

namespace veldan::kit {

namespace {

// How long a signal may have to wait to be noticed while the camera is silent.
constexpr std::chrono::milliseconds patience(100);

} // namespace

void LatestFrame::put(Frame frame) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        if (fresh_)
            ++dropped_;
        frame_ = std::move(frame);
        fresh_ = true;
    }
    changed_.notify_one();
}

void LatestFrame::close(std::exception_ptr failure) {
    {
        const std::lock_guard<std::mutex> lock(mutex_);
        closed_ = true;
        failure_ = std::move(failure);
    }
    changed_.notify_one();
}

bool LatestFrame::take(Frame& frame, const std::function<bool()>& stopped) {
    std::unique_lock<std::mutex> lock(mutex_);
    while (!fresh_ && !closed_ && !stopped())
        changed_.wait_for(lock, patience);
    if (fresh_) {
        std::swap(frame, frame_);
        fresh_ = false;
        return true;
    }
    if (failure_)
        std::rethrow_exception(std::exchange(failure_, nullptr));
    return false;
}

std::int64_t LatestFrame::dropped() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return dropped_;
}

} // namespace veldan::kit
