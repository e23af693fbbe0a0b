#include "statistics.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numeric>

namespace veldan::eval {

double mean(const std::vector<double>& values) {
    return values.empty() ? 0 : std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

double quantile(std::vector<double> values, double share) {
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const double place = share * static_cast<double>(values.size() - 1);
    const std::size_t below = static_cast<std::size_t>(place);
    const std::size_t above = std::min(below + 1, values.size() - 1);
    return values[below] + (place - static_cast<double>(below)) * (values[above] - values[below]);
}

double median(const std::vector<double>& values) {
    return quantile(values, 0.5);
}

std::vector<double> ranks(const std::vector<double>& values) {
    std::vector<std::size_t> order(values.size());
    std::iota(order.begin(), order.end(), std::size_t{0});
    std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return values[a] < values[b]; });
    std::vector<double> result(values.size());
    for (std::size_t first = 0; first < order.size();) {
        std::size_t end = first;
        while (end < order.size() && values[order[end]] == values[order[first]])
            ++end;
        // Places first + 1 to end.
        const double shared = static_cast<double>(first + 1 + end) / 2;
        for (; first < end; ++first)
            result[order[first]] = shared;
    }
    return result;
}

std::optional<double> rankCorrelation(const std::vector<double>& a, const std::vector<double>& b) {
    const std::vector<double> first = ranks(a);
    const std::vector<double> second = ranks(b);
    const double middle = mean(first); // of both: ranks always add up to the same
    double product = 0;
    double spreadFirst = 0;
    double spreadSecond = 0;
    for (std::size_t i = 0; i < first.size(); ++i) {
        product += (first[i] - middle) * (second[i] - middle);
        spreadFirst += (first[i] - middle) * (first[i] - middle);
        spreadSecond += (second[i] - middle) * (second[i] - middle);
    }
    if (spreadFirst == 0 || spreadSecond == 0)
        return std::nullopt;
    return product / std::sqrt(spreadFirst * spreadSecond);
}

std::optional<double> areaUnderCurve(const std::vector<double>& larger, const std::vector<double>& smaller) {
    if (larger.empty() || smaller.empty())
        return std::nullopt;
    std::vector<double> all = larger;
    all.insert(all.end(), smaller.begin(), smaller.end());
    const std::vector<double> places = ranks(all);
    const double n = static_cast<double>(larger.size());
    double sum = 0;
    for (std::size_t i = 0; i < larger.size(); ++i)
        sum += places[i];
    return (sum - n * (n + 1) / 2) / (n * static_cast<double>(smaller.size()));
}

} // namespace veldan::eval
