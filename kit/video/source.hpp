#ifndef VELDAN_KIT_VIDEO_SOURCE_HPP
#define VELDAN_KIT_VIDEO_SOURCE_HPP

#include "video/latest_frame.hpp"

#include <opencv2/videoio.hpp>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <thread>

namespace veldan::kit {

/**
 * A camera, a stream or a video file. Cameras and streams are live: a thread reads them, and only the latest frame is
 * kept. Files are read frame after frame.
 */
class VideoSource {
public:
    enum class Kind { Camera, Stream, File };

    /**
     * @param name  number of a camera, address of a stream ("rtsp://..."), or file name
     * Throws CommandError: Missing when there is no such file, Unreadable when it cannot be opened.
     */
    explicit VideoSource(const std::string& name);
    ~VideoSource();
    VideoSource(const VideoSource&) = delete;
    VideoSource& operator=(const VideoSource&) = delete;

    Kind kind() const { return kind_; }
    double framesPerSecond() const { return framesPerSecond_; }

    /**
     * Reads the next frame, of a live source the latest one.
     * @param stopped  asked while waiting; true ends the wait
     * @return false at the end. Throws CommandError (Unreadable) when there is no picture in the source at all.
     */
    bool next(Frame& frame, const std::function<bool()>& stopped);

    /** Frames of a live source that came while the one before was worked on. */
    std::int64_t dropped() const { return latest_.dropped(); }

private:
    void readOn();
    bool read(Frame& frame);

    std::string name_;
    Kind kind_;
    cv::VideoCapture capture_;
    double framesPerSecond_ = 0;
    std::int64_t frames_ = 0;
    std::chrono::steady_clock::time_point start_;
    LatestFrame latest_;
    std::atomic<bool> ending_{false};
    std::thread reader_;
};

} // namespace veldan::kit

#endif
