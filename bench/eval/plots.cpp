#include "plots.hpp"

#include "photos.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

namespace veldan::eval {

namespace {

const cv::Scalar black(0, 0, 0);
const cv::Scalar ink(60, 60, 60);
// Colours that are told apart by most eyes, also side by side; blue, green, red.
const std::vector<cv::Scalar> colours = {{178, 114, 0}, {0, 94, 213},   {115, 158, 0}, {167, 121, 204},
                                         {0, 159, 230}, {233, 180, 86}, {30, 70, 150}, {150, 150, 150},
                                         {60, 20, 120}, {30, 170, 170}};

/** A picture with room for axes of these ranges. */
struct Plot {
    cv::Rect area;
    double lowest, highest; ///< of x
    cv::Mat picture;

    Plot(cv::Rect area_, cv::Size size, double lowest_, double highest_)
        : area(area_), lowest(lowest_), highest(highest_), picture(size, CV_8UC3, cv::Scalar::all(255)) {}

    /** y: share of the height. */
    cv::Point at(double x, double y) const {
        return {area.x + static_cast<int>(std::lround((x - lowest) / (highest - lowest) * area.width)),
                area.y + static_cast<int>(std::lround((1 - y) * area.height))};
    }
    void write(const std::string& line, cv::Point place, const cv::Scalar& colour = ink, double size = 0.45) {
        cv::putText(picture, line, place, cv::FONT_HERSHEY_SIMPLEX, size, colour, 1, cv::LINE_AA);
    }
    void dash(cv::Point from, cv::Point to, int length) {
        const int whole = std::max(to.x - from.x, to.y - from.y);
        const cv::Point step = (to - from) / std::max(whole, 1);
        for (int i = 0; i < whole; i += 2 * length)
            cv::line(picture, from + step * i, from + step * (i + length), ink);
    }
};

void drawAxes(Plot& plot, int good) {
    const cv::Scalar line(225, 225, 225);
    for (int fifth = 0; fifth <= 5; ++fifth) {
        const double share = fifth / 5.0;
        cv::line(plot.picture, plot.at(0, share), plot.at(1, share), line);
        plot.write(std::to_string(20 * fifth), plot.at(0, share) + cv::Point(fifth == 5 ? -36 : -30, 5));
        cv::line(plot.picture, plot.at(share, 0), plot.at(share, 1), line);
        plot.write(text(share, 1), plot.at(share, 0) + cv::Point(-11, 23));
    }
    plot.dash(plot.at(0, good / 100.0), plot.at(1, good / 100.0), 6);
    cv::rectangle(plot.picture, plot.area, ink);
    plot.write("Mean quality score against the level of damage", {plot.area.x, 29}, black, 0.6);
    plot.write("level of damage (0: none, 1: worst)", plot.at(0, 0) + cv::Point(190, 49), ink, 0.5);
    plot.write("score", {8, plot.area.y - 13}, ink, 0.5);
}

constexpr std::size_t bins = 70;
using Histogram = std::array<double, bins>;

} // namespace

void drawQualityCurves(const std::filesystem::path& path, const Json& figures, int good) {
    Plot plot({70, 50, 640, 460}, {1000, 580}, 0, 1);
    drawAxes(plot, good);
    const Json& kinds = figures["damage"];
    std::multiset<double> having;
    for (const Json& kind : kinds)
        for (const Json& level : kind["levels"])
            having.insert(level["level"].get<double>());
    cv::Point legend(plot.area.x + plot.area.width + 24, plot.area.y + 6);
    plot.write("rank correlation", legend + cv::Point(0, 5));
    std::size_t next = 0;
    for (const Json& kind : kinds) {
        const bool all = kind["kind"] == "all";
        const cv::Scalar colour = all ? black : colours[next++ % colours.size()];
        const int width = all ? 3 : 2;
        std::vector<cv::Point> places;
        for (const Json& level : kind["levels"]) {
            const auto place = level["level"].get<double>();
            // At levels that only some kinds have, the mean of all would jump to the one of those.
            if (level["photos"] > level["missed"] && (!all || 2 * having.count(place) > kinds.size()))
                places.push_back(plot.at(place, level["meanScore"].get<double>() / 100));
        }
        cv::polylines(plot.picture, places, false, colour, width, cv::LINE_AA);
        for (const cv::Point& place : places)
            cv::circle(plot.picture, place, width + 1, colour, cv::FILLED, cv::LINE_AA);
        legend.y += 24;
        cv::line(plot.picture, legend, legend + cv::Point(28, 0), colour, width, cv::LINE_AA);
        plot.write(kind["kind"].get<std::string>() + "  " + text(kind["pooled"].get<double>(), 2),
                   legend + cv::Point(38, 5));
    }
    writePicture(path, plot.picture);
}

void drawScoreHistogram(const std::filesystem::path& path, const PairScores& scores, const std::string& title) {
    constexpr double lowest = 0.3; // similarities below are rare and told apart by nobody
    Plot plot({60, 50, 700, 330}, {800, 440}, lowest, 1);
    const auto histogram = [&](const std::vector<float>& similarities) {
        Histogram shares{};
        for (const float score : similarities) {
            const double place = (static_cast<double>(score) - lowest) / (1 - lowest) * bins;
            shares[static_cast<std::size_t>(std::clamp(place, 0.0, bins - 1.0))] +=
                1.0 / static_cast<double>(similarities.size());
        }
        return shares;
    };
    const Histogram shares[] = {histogram(scores.impostor), histogram(scores.genuine)};
    const cv::Scalar colour[] = {colours[1], colours[0]};
    double highest = 0;
    for (const Histogram& one : shares)
        highest = std::max(highest, *std::max_element(one.begin(), one.end()));
    for (std::size_t kind = 0; kind < 2; ++kind) {
        cv::Mat layer = plot.picture.clone();
        const int width = plot.area.width / static_cast<int>(bins);
        for (std::size_t i = 0; i < bins; ++i) {
            const int height = static_cast<int>(std::lround(shares[kind][i] / highest * (plot.area.height - 10)));
            const cv::Point corner(plot.area.x + static_cast<int>(i) * width, plot.area.br().y - height);
            cv::rectangle(layer, cv::Rect(corner, cv::Size(width, height)), colour[kind], cv::FILLED);
        }
        cv::addWeighted(layer, 0.55, plot.picture, 0.45, 0, plot.picture);
    }
    for (int tenth = 3; tenth <= 10; ++tenth) {
        const cv::Point foot = plot.at(tenth / 10.0, 0);
        cv::line(plot.picture, foot, foot + cv::Point(0, 5), ink);
        plot.write(text(tenth / 10.0, 1), foot + cv::Point(-10, 20));
    }
    plot.dash(plot.at(0.8, 1), plot.at(0.8, 0), 5);
    plot.write("accepted at once", plot.at(0.8, 1) + cv::Point(5, 14), ink, 0.4);
    cv::rectangle(plot.picture, plot.area, ink);
    plot.write(title, {plot.area.x, 30}, black, 0.6);
    plot.write("different people (" + std::to_string(scores.impostor.size()) + " pairs)", {plot.area.x + 420, 20},
               colour[0], 0.5);
    plot.write("same person (" + std::to_string(scores.genuine.size()) + " pairs)", {plot.area.x + 420, 40}, colour[1],
               0.5);
    plot.write("similarity", {plot.area.x + plot.area.width / 2 - 35, plot.area.br().y + 45}, ink, 0.5);
    writePicture(path, plot.picture);
}

} // namespace veldan::eval
