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

} // namespace

void writeErrors(const std::filesystem::path& path, const cv::Mat& picture, const std::vector<FoundFace>& found,
                 const PhotoVerdict& verdict) {
    const bool anyFalse = std::count(verdict.found.begin(), verdict.found.end(), Verdict::False) > 0;
    const bool anyMissed = std::count(verdict.wantedFound.begin(), verdict.wantedFound.end(), false) > 0;
    if (!anyFalse && !anyMissed)
        return;
    const cv::Scalar red(0, 0, 255);
    const cv::Scalar green(0, 255, 0);
    const cv::Scalar grey(160, 160, 160);
    const cv::Scalar blue(255, 0, 0);
    cv::Mat drawn = picture.clone();
    for (std::size_t i = 0; i < found.size(); ++i) {
        const Verdict what = verdict.found[i];
        drawBox(drawn, found[i].box, what == Verdict::False ? red : what == Verdict::True ? green : grey);
    }
    for (std::size_t i = 0; i < verdict.wanted.size(); ++i) {
        if (!verdict.wantedFound[i])
            drawBox(drawn, verdict.wanted[i], blue);
    }
    if (!cv::imwrite(path.string(), drawn))
        throw std::runtime_error(path.string() + ": cannot be written");
}

} // namespace veldan::eval
