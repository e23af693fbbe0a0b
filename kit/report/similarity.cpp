#include "report/similarity.hpp"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <string_view>
#include <system_error>

namespace veldan::kit {

std::string verdictOn(double similarity, Kind kind) {
    std::string verdict = "probably different people";
    for (const SimilarityStep& step : similaritySteps(kind))
        if (similarity >= step.similarity)
            verdict = step.verdict;
    return verdict;
}

std::string oneIn(const SimilarityStep& step) {
    return fmt::format("1 in {}", std::lround(1 / step.falseMatchRate));
}

Json stepsJson(double similarity, Kind kind) {
    Json steps = Json::array();
    for (const SimilarityStep& step : similaritySteps(kind))
        steps.push_back({{"similarity", step.similarity},
                         {"falseMatchRate", step.falseMatchRate},
                         {"reached", similarity >= step.similarity}});
    return steps;
}

double similarityFrom(const std::string& text) {
    std::string_view number(text);
    const bool sign = !number.empty() && number.back() == '%';
    if (sign)
        number.remove_suffix(1);
    while (sign && !number.empty() && number.back() == ' ')
        number.remove_suffix(1);
    double value = -1;
    const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), value);
    const bool percent = sign || value > 1;
    const bool whole = error == std::errc() && end == number.data() + number.size();
    if (!whole || !(value >= 0 && value <= (percent ? 100 : 1)))
        throw CommandError(ExitCode::Usage,
                           "\"" + text + "\" is no similarity: 0 to 1, or percent as in 72% or 72, are");
    return percent ? value / 100 : value;
}

int wholePercent(double similarity) {
    constexpr double rounding = 1e-9; // 0.07 * 100 is a little more than 7
    return std::max(1, static_cast<int>(std::ceil(similarity * 100 - rounding)));
}

} // namespace veldan::kit
