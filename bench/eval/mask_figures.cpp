#include "mask_figures.hpp"

#include "known_faces.hpp"

#include <nlohmann/json.hpp>

namespace veldan::eval {

namespace {

std::optional<double> ratio(std::size_t part, std::size_t whole) {
    if (whole == 0)
        return std::nullopt;
    return static_cast<double>(part) / static_cast<double>(whole);
}

} // namespace

void MaskFigures::add(const std::string& category, std::optional<int> score, int threshold) {
    Count& count = counts_[category];
    if (!score)
        ++count.missed;
    else if (*score >= threshold)
        ++count.masked;
    else
        ++count.bare;
}

void MaskFigures::add(const MaskFigures& other) {
    for (const auto& [category, count] : other.counts_) {
        Count& sum = counts_[category];
        sum.masked += count.masked;
        sum.bare += count.bare;
        sum.missed += count.missed;
    }
}

MaskFigures::Count MaskFigures::count(const std::string& category) const {
    const auto found = counts_.find(category);
    return found == counts_.end() ? Count() : found->second;
}

std::size_t MaskFigures::faces() const {
    std::size_t sum = 0;
    for (const auto& [category, count] : counts_)
        sum += count.faces();
    return sum;
}

std::optional<double> MaskFigures::accuracy() const {
    const Count masked = count(withMask);
    const Count bare = count(withoutMask);
    return ratio(masked.masked + bare.bare, masked.judged() + bare.judged());
}

std::optional<double> MaskFigures::maskedShare(const std::string& category) const {
    const Count of = count(category);
    return ratio(of.masked, of.judged());
}

nlohmann::ordered_json MaskFigures::toJson() const {
    nlohmann::ordered_json classes = nlohmann::ordered_json::object();
    for (const auto& [category, count] : counts_)
        classes[category] = {{"judgedMasked", count.masked}, {"judgedBare", count.bare}, {"missed", count.missed}};
    const std::optional<double> share = accuracy();
    return {{"faces", faces()},
            {"accuracy", share ? nlohmann::ordered_json(*share) : nlohmann::ordered_json()},
            {"classes", classes}};
}

} // namespace veldan::eval
