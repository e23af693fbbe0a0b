#include "corner_figures.hpp"

#include "statistics.hpp"

#include <nlohmann/json.hpp>

namespace veldan::eval {

namespace {

CornerFigures::Summary summaryOf(const std::vector<double>& errors) {
    return {median(errors), mean(errors), quantile(errors, 0.9)};
}

nlohmann::ordered_json toJson(const CornerFigures::Summary& summary) {
    return {{"median", summary.median}, {"mean", summary.mean}, {"percentile90", summary.ninetieth}};
}

} // namespace

void CornerFigures::add(const CornerErrors& face) {
    twoPoints_.push_back(face.twoPoints);
    againstFive_.push_back(face.againstFive);
    fivePoints_.push_back(face.fivePoints);
    if (face.shifted)
        ++shifted_;
}

CornerFigures::Summary CornerFigures::twoPoints() const {
    return summaryOf(twoPoints_);
}

CornerFigures::Summary CornerFigures::againstFive() const {
    return summaryOf(againstFive_);
}

CornerFigures::Summary CornerFigures::fivePoints() const {
    return summaryOf(fivePoints_);
}

nlohmann::ordered_json CornerFigures::toJson() const {
    return {{"faces", faces()},
            {"missed", missed_},
            {"shifted", shifted_},
            {"twoPoints", eval::toJson(twoPoints())},
            {"twoPointsAgainstFoundFive", eval::toJson(againstFive())},
            {"foundFive", eval::toJson(fivePoints())}};
}

} // namespace veldan::eval
