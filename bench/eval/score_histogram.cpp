#include "score_histogram.hpp"

#include "text_table.hpp"

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <stdexcept>

namespace veldan::eval {

namespace {

constexpr int bins = 70;
constexpr double lowest = 0.3; // similarities below are rare and told apart by nobody
const cv::Rect plot(60, 50, 700, 330);
const cv::Scalar ink(60, 60, 60);
const cv::Scalar ofGenuine(178, 114, 0);
const cv::Scalar ofImpostors(0, 94, 213);

using Histogram = std::array<double, bins>;

Histogram histogram(const std::vector<float>& scores) {
    Histogram shares{};
    for (const float score : scores) {
        const double place = (static_cast<double>(score) - lowest) / (1 - lowest) * bins;
        shares[static_cast<std::size_t>(std::clamp(place, 0.0, bins - 1.0))] +=
            1.0 / static_cast<double>(scores.size());
    }
    return shares;
}

int column(double similarity) {
    return plot.x + static_cast<int>(std::lround((similarity - lowest) / (1 - lowest) * plot.width));
}

void write(cv::Mat& picture, const std::string& line, cv::Point place, const cv::Scalar& colour, double size = 0.45) {
    cv::putText(picture, line, place, cv::FONT_HERSHEY_SIMPLEX, size, colour, 1, cv::LINE_AA);
}

void fill(cv::Mat& picture, const Histogram& shares, double highest, const cv::Scalar& colour) {
    cv::Mat layer = picture.clone();
    const int width = plot.width / bins;
    for (int i = 0; i < bins; ++i) {
        const int height =
            static_cast<int>(std::lround(shares[static_cast<std::size_t>(i)] / highest * (plot.height - 10)));
        cv::rectangle(layer, cv::Rect(plot.x + i * width, plot.y + plot.height - height, width, height), colour,
                      cv::FILLED);
    }
    cv::addWeighted(layer, 0.55, picture, 0.45, 0, picture);
}

} // namespace

void drawScoreHistogram(const std::filesystem::path& path, const PairScores& scores, const std::string& title) {
    cv::Mat picture(plot.y + plot.height + 60, plot.x + plot.width + 40, CV_8UC3, cv::Scalar(255, 255, 255));
    const Histogram genuine = histogram(scores.genuine);
    const Histogram impostor = histogram(scores.impostor);
    const double highest = std::max(*std::max_element(genuine.begin(), genuine.end()),
                                    *std::max_element(impostor.begin(), impostor.end()));
    fill(picture, impostor, highest, ofImpostors);
    fill(picture, genuine, highest, ofGenuine);
    for (int tenth = 3; tenth <= 10; ++tenth) {
        cv::line(picture, {column(tenth / 10.0), plot.y + plot.height},
                 {column(tenth / 10.0), plot.y + plot.height + 5}, ink);
        write(picture, text(tenth / 10.0, 1), {column(tenth / 10.0) - 10, plot.y + plot.height + 20}, ink);
    }
    for (int y = plot.y; y < plot.y + plot.height; y += 10)
        cv::line(picture, {column(0.8), y}, {column(0.8), y + 5}, ink);
    write(picture, "accepted at once", {column(0.8) + 5, plot.y + 14}, ink, 0.4);
    cv::rectangle(picture, plot, ink);
    write(picture, title, {plot.x, 30}, cv::Scalar(0, 0, 0), 0.6);
    write(picture, "different people (" + text(scores.impostor.size()) + " pairs)", {plot.x + 420, 20}, ofImpostors,
          0.5);
    write(picture, "same person (" + text(scores.genuine.size()) + " pairs)", {plot.x + 420, 40}, ofGenuine, 0.5);
    write(picture, "similarity", {plot.x + plot.width / 2 - 35, plot.y + plot.height + 45}, ink, 0.5);
    if (!cv::imwrite(path.string(), picture))
        throw std::runtime_error(path.string() + ": cannot be written");
}

} // namespace veldan::eval
