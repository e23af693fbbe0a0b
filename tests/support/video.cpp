#include "support/video.hpp"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include <algorithm>
#include <stdexcept>

namespace veldan_tests {

namespace {

const cv::Size frameSize(480, 360);
constexpr int emptyFrames = 30; // long enough for everybody to count as gone

// A face of a photo with some hair and neck about it.
cv::Mat headOf(const std::string& photo, const cv::Rect& face) {
    const cv::Mat picture = cv::imread(photo);
    if (picture.empty())
        throw std::runtime_error("cannot read " + photo);
    const int hair = face.height / 4;
    const cv::Rect head(face.x - hair, face.y - hair, face.width + 2 * hair, face.height + 2 * hair);
    return picture(head & cv::Rect({0, 0}, picture.size())).clone();
}

// Draws the head with its middle at the place, the given number of pixels high, as far as it is inside of the frame.
// An oval keeps its corners from hiding more than a head would.
void place(cv::Mat& frame, const cv::Mat& picture, double x, double y, double height) {
    const cv::Size size(cvRound(height * picture.cols / picture.rows), cvRound(height));
    cv::Mat head;
    cv::resize(picture, head, size, 0, 0, cv::INTER_AREA);
    cv::Mat mask = cv::Mat::zeros(size, CV_8UC1);
    cv::ellipse(mask, {size.width / 2, size.height / 2}, {size.width / 2, size.height / 2}, 0, 0, 360, 255, -1);
    const cv::Rect whole({cvRound(x) - size.width / 2, cvRound(y) - size.height / 2}, size);
    const cv::Rect visible = whole & cv::Rect({0, 0}, frameSize);
    if (visible.empty())
        return;
    const cv::Rect part(visible.tl() - whole.tl(), visible.size());
    head(part).copyTo(frame(visible), mask(part));
}

// From 0 to 1 while the frame number goes from one to the other.
double progress(int frame, int from, int to) {
    return std::clamp(static_cast<double>(frame - from) / (to - from), 0.0, 1.0);
}

} // namespace

std::vector<cv::Mat> meeting(const std::string& photos) {
    const cv::Mat first = headOf(photos + "/astronaut.jpg", {180, 60, 92, 115});
    const cv::Mat second = headOf(photos + "/second-bare.webp", {102, 141, 110, 158});
    std::vector<cv::Mat> frames;
    for (int i = 0; i < 100 + emptyFrames; ++i) {
        cv::Mat frame(frameSize, CV_8UC3, cv::Scalar(150, 160, 155));
        if (i >= 25)
            place(frame, second, 600 - 720 * progress(i, 25, 75), 170, 190);
        const double zoom = 160 + 40 * progress(i, 0, 25);
        place(frame, first, -80 + 300 * progress(i, 0, 25) + 380 * progress(i, 70, 99), 180, zoom);
        frames.push_back(frame);
    }
    return frames;
}

void writeVideo(const std::string& path, const std::vector<cv::Mat>& frames) {
    cv::VideoWriter writer(path, cv::CAP_OPENCV_MJPEG, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25.0, frameSize);
    if (!writer.isOpened())
        throw std::runtime_error("cannot write " + path);
    for (const cv::Mat& frame : frames)
        writer.write(frame);
}

} // namespace veldan_tests
