#ifndef VELDAN_CLI_VIDEO_RECORD_HPP
#define VELDAN_CLI_VIDEO_RECORD_HPP

#include "photo.hpp"

#include <opencv2/videoio.hpp>

#include <cstdint>
#include <filesystem>
#include <string>

namespace veldan::cli {

/** A video that is being written. The first picture decides its size; later ones of another size are resized. */
class VideoRecord {
public:
    /** @param path  .avi (Motion JPEG) or .mp4 (MPEG-4). Throws CommandError (Usage) for other names. */
    VideoRecord(const std::filesystem::path& path, double framesPerSecond);

    /**
     * Writes a picture as often as it takes to reach its time, so that a video of irregular frames runs at the speed of
     * what it shows. Throws CommandError (NotWritten).
     */
    void write(Photo& picture, double seconds);

    /** Ends the video. Throws CommandError (NotWritten) when nothing reached the disk. */
    void close();

private:
    std::filesystem::path path_;
    double framesPerSecond_;
    int fourcc_;
    int backend_;
    cv::VideoWriter writer_;
    int width_ = 0;
    int height_ = 0;
    std::int64_t written_ = 0;
};

} // namespace veldan::cli

#endif
