#include "video/record.hpp"

#include "report/exit_codes.hpp"
#include "system/file_bytes.hpp"

#include <veldan/image_tool.h>

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <fcntl.h>
#include <fstream>
#include <string>
#include <sys/statvfs.h>
#include <system_error>
#include <unistd.h>
#include <vector>

namespace veldan::kit {

namespace {

constexpr std::uint64_t leastRoom = 1 << 20; // less would not hold the end of the video
constexpr std::chrono::seconds lookEvery(1);

CommandError incomplete(const std::filesystem::path& path, const std::string& reason) {
    return {ExitCode::NotWritten, "the recording " + path.string() + " is not complete: " + reason};
}

std::uint64_t numberAt(const std::array<unsigned char, 16>& head, std::size_t at, std::size_t size, bool bigEndian) {
    std::uint64_t number = 0;
    for (std::size_t i = 0; i < size; ++i)
        number = number << 8 | head[bigEndian ? at + i : at + size - 1 - i];
    return number;
}

/**
 * Whether the file is as long as its parts say, and nothing between them is missing. AVI files are one part, RIFF, with
 * its length after its name; MP4 files are boxes of length and name, of which moov tells where all frames are.
 */
bool holdsTogether(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::error_code error;
    const std::uint64_t length = std::filesystem::file_size(path, error);
    std::array<unsigned char, 16> head{};
    bool index = false;
    for (std::uint64_t at = 0; !error && at < length;) {
        head.fill(0);
        file.clear();
        file.seekg(static_cast<std::streamoff>(at));
        file.read(reinterpret_cast<char*>(head.data()), head.size());
        if (file.gcount() < 8)
            return false;
        const std::string name(head.begin() + 4, head.begin() + 8);
        if (std::equal(head.begin(), head.begin() + 4, "RIFF"))
            return (numberAt(head, 4, 4, false) + 8 - length) % (std::uint64_t{1} << 32) == 0;
        index = index || name == "moov";
        const std::uint64_t size = numberAt(head, 0, 4, true);
        const std::uint64_t whole = size == 1 ? numberAt(head, 8, 8, true) : size;
        if (whole < 8 || whole > length - at)
            return false;
        at += whole;
    }
    return index;
}

/** Why the file cannot grow; empty when it can. */
std::string obstacle(const std::filesystem::path& path) {
    const FileDescriptor file(::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC));
    std::error_code error;
    const auto length = std::filesystem::file_size(path, error);
    const std::vector<unsigned char> bytes(std::size_t{1} << 16);
    if (error || file.get() < 0)
        return "it is not there any more";
    std::string reason = writeAll(file.get(), bytes.data(), bytes.size()) ? "" : reasonOf(errno);
    std::filesystem::resize_file(path, length, error);
    return reason;
}

/** What keeps this from being a video of so many frames; empty when it is one. */
std::string whatWasLost(const std::filesystem::path& path, int backend, std::int64_t frames) {
    const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    // Some file systems tell only now that they had no room.
    if (file.get() >= 0 && ::fsync(file.get()) != 0)
        return reasonOf(errno);
    cv::VideoCapture video;
    if (holdsTogether(path) && video.open(path.string(), backend) &&
        std::llround(video.get(cv::CAP_PROP_FRAME_COUNT)) == frames)
        return "";
    const std::string reason = obstacle(path);
    return reason.empty() ? "not all of it reached the disk" : reason;
}

} // namespace

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
    requireRoom();
    const cv::Mat frame(height_, width_, CV_8UC3, shown->pixels.data());
    for (const std::int64_t due = std::llround(seconds * framesPerSecond_) + 1; written_ < due; ++written_)
        writer_.write(frame);
}

void VideoRecord::requireRoom() {
    // A recording of days should not learn at its end that the disk was full on the first one.
    const auto now = std::chrono::steady_clock::now();
    if (now - looked_ < lookEvery)
        return;
    looked_ = now;
    struct statvfs disk {};
    if (::statvfs(path_.c_str(), &disk) == 0 && disk.f_blocks > 0 && disk.f_bavail * disk.f_frsize < leastRoom)
        throw incomplete(path_, reasonOf(ENOSPC));
}

void VideoRecord::close() {
    if (!writer_.isOpened())
        return;
    writer_.release();
    if (const std::string reason = whatWasLost(path_, backend_, written_); !reason.empty())
        throw incomplete(path_, reason);
}

} // namespace veldan::kit
