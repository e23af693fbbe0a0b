#include "face_figures.hpp"

#include "labels.hpp"
#include "statistics.hpp"

namespace veldan::eval {

Json spreadOf(const std::vector<double>& errors) {
    return {{"median", median(errors)}, {"mean", mean(errors)}, {"percentile90", quantile(errors, 0.9)}};
}

Json CornerFigures::toJson() const {
    std::size_t shifted = 0;
    std::vector<double> twoPoints;
    std::vector<double> againstFive;
    std::vector<double> fivePoints;
    for (const std::optional<CornerErrors>& face : faces) {
        if (!face)
            continue;
        shifted += face->shifted ? 1 : 0;
        twoPoints.push_back(face->twoPoints);
        againstFive.push_back(face->againstFive);
        fivePoints.push_back(face->fivePoints);
    }
    return {{"faces", faces.size()},
            {"missed", faces.size() - twoPoints.size()},
            {"shifted", shifted},
            {"twoPoints", spreadOf(twoPoints)},
            {"twoPointsAgainstFoundFive", spreadOf(againstFive)},
            {"foundFive", spreadOf(fivePoints)}};
}

void MaskFigures::add(const std::string& category, std::optional<int> score, int threshold) {
    Count& count = counts_[category];
    ++(!score ? count.missed : *score >= threshold ? count.masked : count.bare);
}

std::size_t MaskFigures::faces() const {
    std::size_t sum = 0;
    for (const auto& [category, count] : counts_)
        sum += count.masked + count.bare + count.missed;
    return sum;
}

Json MaskFigures::toJson() const {
    std::size_t right = 0;
    std::size_t judged = 0;
    Json classes = Json::object();
    for (const auto& [category, count] : counts_) {
        classes[category] = {{"judgedMasked", count.masked}, {"judgedBare", count.bare}, {"missed", count.missed}};
        if (category != withMask && category != withoutMask)
            continue;
        right += category == withMask ? count.masked : count.bare;
        judged += count.masked + count.bare;
    }
    return {{"faces", faces()}, {"accuracy", orNull(ratio(right, judged))}, {"classes", classes}};
}

} // namespace veldan::eval
