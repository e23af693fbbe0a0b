#include "video/source.hpp"

#include "report/exit_codes.hpp"

#include <opencv2/core.hpp>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

namespace veldan::kit {

namespace {

// Where a source does not say, or says nonsense.
constexpr double usualRate = 25;
constexpr double highestRate = 1000;

VideoSource::Kind kindOf(const std::string& name) {
    const bool number =
        !name.empty() && std::all_of(name.begin(), name.end(), [](char c) { return '0' <= c && c <= '9'; });
    if (number)
        return VideoSource::Kind::Camera;
    return name.find("://") != std::string::npos ? VideoSource::Kind::Stream : VideoSource::Kind::File;
}

// OpenCV says only that it could not open something; why is for us to find out.
void requireReadable(const std::string& path) {
    if (::access(path.c_str(), R_OK) == 0)
        return;
    if (errno == ENOENT || errno == ENOTDIR)
        throw CommandError(ExitCode::Missing, path + ": no such file");
    throw CommandError(ExitCode::Unreadable, path + ": cannot be opened: " + std::strerror(errno));
}

} // namespace

// The library's own camera functions are not enough here: they tell neither the end of a video nor its rate.
VideoSource::VideoSource(const std::string& name) : name_(name), kind_(kindOf(name)) {
    if (kind_ == Kind::File)
        requireReadable(name_);
    const long number = kind_ == Kind::Camera ? std::strtol(name_.c_str(), nullptr, 10) : 0;
    const bool opened =
        kind_ == Kind::Camera ? number <= INT_MAX && capture_.open(static_cast<int>(number)) : capture_.open(name_);
    if (!opened)
        throw CommandError(ExitCode::Unreadable, kind_ == Kind::Camera
                                                     ? "there is no camera " + name_ + ", or it is in use"
                                                 : kind_ == Kind::Stream ? name_ + ": the stream cannot be opened"
                                                                         : name_ + ": not a video in a known format");
    const double rate = capture_.get(cv::CAP_PROP_FPS);
    framesPerSecond_ = rate > 0 && rate <= highestRate ? rate : usualRate;
    start_ = std::chrono::steady_clock::now();
    if (kind_ != Kind::File)
        reader_ = std::thread([this] { readOn(); });
}

VideoSource::~VideoSource() {
    ending_ = true;
    if (reader_.joinable())
        reader_.join();
}

bool VideoSource::next(Frame& frame, const std::function<bool()>& stopped) {
    return kind_ == Kind::File ? read(frame) : latest_.take(frame, stopped);
}

void VideoSource::readOn() {
    try {
        for (Frame frame; !ending_ && read(frame); frame = Frame())
            latest_.put(std::move(frame));
        latest_.close();
    } catch (...) {
        latest_.close(std::current_exception());
    }
}

bool VideoSource::read(Frame& frame) {
    cv::Mat picture;
    if (!capture_.read(picture) || picture.empty()) {
        if (frames_ == 0)
            throw CommandError(ExitCode::Unreadable, name_ + ": no picture came");
        return false;
    }
    if (picture.type() != CV_8UC3)
        throw CommandError(ExitCode::Unreadable, name_ + ": not a video in colour");
    frame.moment.seconds = kind_ == Kind::File
                               ? static_cast<double>(frames_) / framesPerSecond_
                               : std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    frame.moment.frame = ++frames_;
    frame.picture.width = picture.cols;
    frame.picture.height = picture.rows;
    const std::size_t row = static_cast<std::size_t>(picture.cols) * 3;
    frame.picture.pixels.resize(row * static_cast<std::size_t>(picture.rows));
    for (int y = 0; y < picture.rows; ++y)
        std::memcpy(frame.picture.pixels.data() + row * static_cast<std::size_t>(y), picture.ptr(y), row);
    return true;
}

} // namespace veldan::kit
