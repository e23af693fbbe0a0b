#include "video_record.hpp"

#include "exit_codes.hpp"

#include <veldan/image_tool.h>

#include <opencv2/core.hpp>

#include <cmath>
#include <system_error>

namespace veldan::cli {

VideoRecord::VideoRecord(const std::filesystem::path& path, double framesPerSecond)
    : path_(path), framesPerSecond_(framesPerSecond) {
    if (path.extension() == ".avi") {
        backend_ = cv::CAP_OPENCV_MJPEG;
        fourcc_ = cv::VideoWriter::fourcc('M', 'J', 'P', 'G');
    } else if (path.extension() == ".mp4") {
        backend_ = cv::CAP_FFMPEG;
        fourcc_ = cv::VideoWriter::fourcc('m', 'p', '4', 'v');
    } else {
        throw CommandError(ExitCode::Usage, "--record: " + path.string() + " ends neither in .avi nor in .mp4");
    }
}

void VideoRecord::write(Photo& picture, double seconds) {
    if (!writer_.isOpened()) {
        width_ = picture.width;
        height_ = picture.height;
        if (!writer_.open(path_.string(), backend_, fourcc_, framesPerSecond_, cv::Size(width_, height_)))
            throw CommandError(ExitCode::NotWritten, path_.string() +
                                                         " cannot be written: is the folder there, and may "
                                                         "you write into it?");
    }
    Photo resized;
    Photo* shown = &picture;
    if (picture.width != width_ || picture.height != height_) {
        resized = {
            width_, height_,
            std::vector<unsigned char>(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 3)};
        ImageZoom(picture.pixels.data(), picture.width, picture.height, 3, width_, height_, resized.pixels.data());
        shown = &resized;
    }
    const cv::Mat frame(height_, width_, CV_8UC3, shown->pixels.data());
    for (const std::int64_t due = std::llround(seconds * framesPerSecond_) + 1; written_ < due; ++written_)
        writer_.write(frame);
}

void VideoRecord::close() {
    if (!writer_.isOpened())
        return;
    writer_.release();
    std::error_code error;
    const auto size = std::filesystem::file_size(path_, error);
    if (error || size == 0)
        throw CommandError(ExitCode::NotWritten, path_.string() + " could not be written");
}

} // namespace veldan::cli
