#include "painted_mask.hpp"

#include <opencv2/imgproc.hpp>

#include <cmath>
#include <vector>

namespace veldan::eval {

namespace {

// The face's own directions: right along the eyes, down across them, a unit the distance of eyes and mouth.
struct FaceFrame {
    cv::Point2d eyes;
    cv::Point2d right;
    cv::Point2d down;
    double unit = 0;

    explicit FaceFrame(const FivePoints& p) {
        const auto at = [&](std::size_t k) { return cv::Point2d(p[k].x, p[k].y); };
        eyes = (at(0) + at(1)) * 0.5;
        const cv::Point2d mouth = (at(3) + at(4)) * 0.5;
        unit = std::max(1.0, cv::norm(mouth - eyes));
        down = (mouth - eyes) * (1 / unit);
        right = {down.y, -down.x};
    }
    cv::Point place(double x, double y) const {
        const cv::Point2d p = eyes + right * (x * unit) + down * (y * unit);
        return {static_cast<int>(std::lround(p.x)), static_cast<int>(std::lround(p.y))};
    }
};

} // namespace

void paintMask(cv::Mat& picture, const FivePoints& points) {
    const FaceFrame face(points);
    const cv::Scalar cloth(205, 185, 150);
    const cv::Scalar fold(180, 160, 125);
    const int thin = std::max(1, static_cast<int>(std::lround(face.unit * 0.03)));
    const std::vector<cv::Point> outline = {face.place(0, 0.35),    face.place(0.45, 0.5),   face.place(0.85, 0.55),
                                            face.place(0.72, 1.25), face.place(0.4, 1.62),   face.place(0, 1.72),
                                            face.place(-0.4, 1.62), face.place(-0.72, 1.25), face.place(-0.85, 0.55),
                                            face.place(-0.45, 0.5)};
    for (const double side : {-1.0, 1.0}) {
        cv::line(picture, face.place(side * 0.85, 0.58), face.place(side * 1.15, 0.2), cloth, thin, cv::LINE_AA);
        cv::line(picture, face.place(side * 0.72, 1.2), face.place(side * 1.1, 0.7), cloth, thin, cv::LINE_AA);
    }
    cv::fillPoly(picture, std::vector<std::vector<cv::Point>>{outline}, cloth, cv::LINE_AA);
    for (const double y : {0.8, 1.05, 1.3})
        cv::line(picture, face.place(-0.65, y), face.place(0.65, y), fold, thin, cv::LINE_AA);
}

} // namespace veldan::eval
