#ifndef VELDAN_KIT_VIDEO_RECORD_HPP
#define VELDAN_KIT_VIDEO_RECORD_HPP

#include "photo/photo.hpp"

#include <opencv2/videoio.hpp>

#include <chrono>
#include <cstdint>
#include <filesystem>

namespace veldan::kit {

/**
 * A video that is being written. The first picture decides its size; later ones of another size are resized. OpenCV
 * tells nobody when a disk is full, so what it wrote is looked at.
 */
class VideoRecord {
public:
    /** @param path  .avi (Motion JPEG) or .mp4 (MPEG-4). Throws CommandError (Usage) for other names. */
    VideoRecord(const std::filesystem::path& path, double framesPerSecond);

    /**
     * Writes a picture as often as it takes to reach its time, so that a video of irregular frames runs at the speed of
     * what it shows. Throws CommandError (NotWritten).
     */
    void write(Photo& picture, double seconds);

    /** Ends the video. Throws CommandError (NotWritten) unless all of it is on the disk. */
    void close();

private:
    void requireRoom();

    std::filesystem::path path_;
    double framesPerSecond_;
    int fourcc_;
    int backend_;
    cv::VideoWriter writer_;
    int width_ = 0;
    int height_ = 0;
    std::int64_t written_ = 0;
    std::chrono::steady_clock::time_point looked_;
};

} // namespace veldan::kit

#endif
