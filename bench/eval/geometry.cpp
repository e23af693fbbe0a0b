#include "geometry.hpp"

#include <algorithm>
#include <cmath>

namespace veldan::eval {

double sizeOf(const Box& box, SizeMeasure measure) {
    switch (measure) {
    case SizeMeasure::Longer:
        return std::max(box.width, box.height);
    case SizeMeasure::Shorter:
        return std::min(box.width, box.height);
    case SizeMeasure::Geometric:
        break;
    }
    return std::sqrt(std::max(0.0, box.width) * std::max(0.0, box.height));
}

double overlap(const Box& a, const Box& b) {
    const double width = std::min(a.x + a.width, b.x + b.width) - std::max(a.x, b.x);
    const double height = std::min(a.y + a.height, b.y + b.height) - std::max(a.y, b.y);
    if (width <= 0 || height <= 0)
        return 0;
    const double common = width * height;
    return common / (a.width * a.height + b.width * b.height - common);
}

Box clipped(const Box& box, double width, double height) {
    const double left = std::clamp(box.x, 0.0, width);
    const double top = std::clamp(box.y, 0.0, height);
    const double right = std::clamp(box.x + box.width, 0.0, width);
    const double bottom = std::clamp(box.y + box.height, 0.0, height);
    return {left, top, right - left, bottom - top};
}

Box scaled(const Box& box, double sx, double sy) {
    return {box.x * sx, box.y * sy, box.width * sx, box.height * sy};
}

FivePoints scaled(const FivePoints& points, double sx, double sy) {
    FivePoints result = points;
    for (Point& point : result)
        point = {point.x * sx, point.y * sy};
    return result;
}

double distance(Point a, Point b) {
    return std::hypot(a.x - b.x, a.y - b.y);
}

Point centroid(const FivePoints& points) {
    Point sum;
    for (const Point& point : points) {
        sum.x += point.x;
        sum.y += point.y;
    }
    return {sum.x / static_cast<double>(points.size()), sum.y / static_cast<double>(points.size())};
}

std::vector<std::optional<std::size_t>> assignBoxes(const std::vector<Box>& found, const std::vector<Box>& wanted,
                                                    double leastOverlap) {
    struct Pair {
        double overlap;
        std::size_t found;
        std::size_t wanted;
    };
    std::vector<Pair> pairs;
    for (std::size_t f = 0; f < found.size(); ++f) {
        for (std::size_t w = 0; w < wanted.size(); ++w) {
            const double value = overlap(found[f], wanted[w]);
            if (value >= leastOverlap)
                pairs.push_back({value, f, w});
        }
    }
    std::stable_sort(pairs.begin(), pairs.end(), [](const Pair& a, const Pair& b) { return a.overlap > b.overlap; });
    std::vector<std::optional<std::size_t>> assignment(found.size());
    std::vector<bool> taken(wanted.size(), false);
    for (const Pair& pair : pairs) {
        if (!assignment[pair.found] && !taken[pair.wanted]) {
            assignment[pair.found] = pair.wanted;
            taken[pair.wanted] = true;
        }
    }
    return assignment;
}

} // namespace veldan::eval
