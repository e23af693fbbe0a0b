#include "quality_curves.hpp"

#include "text_table.hpp"

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace veldan::eval {

namespace {

const cv::Rect plot(70, 50, 640, 460);
const cv::Scalar ink(60, 60, 60);
// Colours that are told apart by most eyes, also side by side; blue, green, red.
const std::vector<cv::Scalar> colours = {{178, 114, 0}, {0, 94, 213},   {115, 158, 0}, {167, 121, 204},
                                         {0, 159, 230}, {233, 180, 86}, {30, 70, 150}, {150, 150, 150},
                                         {60, 20, 120}, {30, 170, 170}};

cv::Point at(double level, double score) {
    return {plot.x + static_cast<int>(std::lround(level * plot.width)),
            plot.y + static_cast<int>(std::lround((1 - score / 100) * plot.height))};
}

/** Text to the right of a point, its height centred on it. */
void write(cv::Mat& picture, const std::string& line, cv::Point place, const cv::Scalar& colour, double size = 0.45) {
    cv::putText(picture, line, place + cv::Point(0, 5), cv::FONT_HERSHEY_SIMPLEX, size, colour, 1, cv::LINE_AA);
}

void drawAxes(cv::Mat& picture, int good) {
    const cv::Scalar line(225, 225, 225);
    for (int score = 0; score <= 100; score += 20) {
        cv::line(picture, at(0, score), at(1, score), line, 1);
        write(picture, std::to_string(score), at(0, score) - cv::Point(score == 100 ? 36 : 30, 0), ink);
    }
    for (int tenth = 0; tenth <= 10; tenth += 2) {
        cv::line(picture, at(tenth / 10.0, 0), at(tenth / 10.0, 100), line, 1);
        write(picture, text(tenth / 10.0, 1), at(tenth / 10.0, 0) + cv::Point(-11, 18), ink);
    }
    const cv::Point threshold = at(0, good);
    for (int x = 0; x < plot.width; x += 12)
        cv::line(picture, threshold + cv::Point(x, 0), threshold + cv::Point(x + 6, 0), ink, 1);
    cv::rectangle(picture, plot, ink, 1);
    write(picture, "Mean quality score against the level of damage", {plot.x, 24}, cv::Scalar(0, 0, 0), 0.6);
    write(picture, "level of damage (0: none, 1: worst)", {plot.x + 190, plot.y + plot.height + 44}, ink, 0.5);
    write(picture, "score", {8, plot.y - 18}, ink, 0.5);
}

/** At levels that only some kinds have, the mean of all would jump to the one of those. */
bool isCommon(const QualityFigures& figures, int place) {
    const auto having = std::count_if(figures.damage.begin(), figures.damage.end(),
                                      [&](const DamageFigures& kind) { return kind.levels.count(place) > 0; });
    return 2 * static_cast<std::size_t>(having) > figures.damage.size();
}

} // namespace

void drawQualityCurves(const std::filesystem::path& path, const QualityFigures& figures, int good) {
    cv::Mat picture(580, 1000, CV_8UC3, cv::Scalar(255, 255, 255));
    drawAxes(picture, good);
    cv::Point legend(plot.x + plot.width + 24, plot.y + 6);
    write(picture, "rank correlation", legend, ink);
    std::size_t i = 0;
    for (const DamageFigures& kind : figures.damage) {
        const bool all = kind.kind == "all";
        const cv::Scalar colour = all ? cv::Scalar(0, 0, 0) : colours[i++ % colours.size()];
        const int width = all ? 3 : 2;
        std::vector<cv::Point> places;
        for (const auto& [place, level] : kind.levels) {
            if (level.photos > level.missed && (!all || isCommon(figures, place)))
                places.push_back(at(place / 10.0, level.meanScore));
        }
        cv::polylines(picture, places, false, colour, width, cv::LINE_AA);
        for (const cv::Point& place : places)
            cv::circle(picture, place, width + 1, colour, cv::FILLED, cv::LINE_AA);
        legend.y += 24;
        cv::line(picture, legend, legend + cv::Point(28, 0), colour, width, cv::LINE_AA);
        write(picture, kind.kind + "  " + text(kind.pooled, 2), legend + cv::Point(38, 0), ink);
    }
    if (!cv::imwrite(path.string(), picture))
        throw std::runtime_error(path.string() + ": cannot be written");
}

} // namespace veldan::eval
