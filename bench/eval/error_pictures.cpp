#include "error_pictures.hpp"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <stdexcept>

namespace veldan::eval {

namespace {

void drawBox(cv::Mat& picture, const Box& box, const cv::Scalar& colour) {
    cv::rectangle(picture, cv::Rect2d(box.x, box.y, box.width, box.height), colour, 2);
}

void write(const std::filesystem::path& path, const cv::Mat& picture) {
    if (!cv::imwrite(path.string(), picture))
        throw std::runtime_error(path.string() + ": cannot be written");
}

} // namespace

void writeErrors(const std::filesystem::path& path, const cv::Mat& picture, const std::vector<FoundFace>& found,
                 const PhotoVerdict& verdict) {
    const bool anyFalse = std::count(verdict.found.begin(), verdict.found.end(), Verdict::False) > 0;
    const bool anyMissed = std::count(verdict.wantedFound.begin(), verdict.wantedFound.end(), false) > 0;
    if (!anyFalse && !anyMissed)
        return;
    cv::Mat drawn = picture.clone();
    for (std::size_t i = 0; i < found.size(); ++i) {
        const Verdict what = verdict.found[i];
        drawBox(drawn, found[i].box, what == Verdict::False ? red : what == Verdict::True ? green : grey);
    }
    for (std::size_t i = 0; i < verdict.wanted.size(); ++i) {
        if (!verdict.wantedFound[i])
            drawBox(drawn, verdict.wanted[i], blue);
    }
    write(path, drawn);
}

void writeJudged(const std::filesystem::path& path, const cv::Mat& picture, const std::optional<Box>& box,
                 const std::string& line) {
    cv::Mat drawn = picture.clone();
    if (box)
        drawBox(drawn, *box, grey);
    const cv::Point place(4, 18);
    cv::putText(drawn, line, place, cv::FONT_HERSHEY_SIMPLEX, 0.55, cv::Scalar(0, 0, 0), 4, cv::LINE_AA);
    cv::putText(drawn, line, place, cv::FONT_HERSHEY_SIMPLEX, 0.55, cv::Scalar(255, 255, 255), 1, cv::LINE_AA);
    write(path, drawn);
}

void drawSquare(cv::Mat& picture, Point first, Point second, const cv::Scalar& colour) {
    const cv::Point2d middle((first.x + second.x) / 2, (first.y + second.y) / 2);
    const cv::Point2d half((second.x - first.x) / 2, (second.y - first.y) / 2);
    const cv::Point2d across(-half.y, half.x);
    const std::vector<cv::Point> corners = {middle - half, middle - across, middle + half, middle + across};
    cv::polylines(picture, corners, true, colour, 2, cv::LINE_AA);
}

} // namespace veldan::eval
