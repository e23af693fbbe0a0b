#include "geometry.hpp"

#include <algorithm>
#include <cmath>

namespace veldan::eval {

namespace {

constexpr double cropSide = 112;

// The places that the alignment itself uses, not those of the exported table: the second point differs.
constexpr FivePoints places = {
    {{38.2946, 51.6953}, {73.5318, 51.5014}, {56.0252, 71.7366}, {41.5493, 92.3655}, {70.7299, 92.2041}}};

} // namespace

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

std::optional<CropSquare> alignedSquare(const FivePoints& points) {
    // u = a x + b y + c, v = a y - b x + d; about the centroids the least squares for a and b come apart.
    const Point from = centroid(points);
    const Point to = centroid(places);
    double spread = 0;
    double a = 0;
    double b = 0;
    for (std::size_t k = 0; k < points.size(); ++k) {
        const Point p = {points[k].x - from.x, points[k].y - from.y};
        const Point q = {places[k].x - to.x, places[k].y - to.y};
        spread += p.x * p.x + p.y * p.y;
        a += p.x * q.x + p.y * q.y;
        b += p.y * q.x - p.x * q.y;
    }
    if (spread <= 0 || std::hypot(a, b) <= 1e-9 * spread)
        return std::nullopt;
    a /= spread;
    b /= spread;
    const double square = a * a + b * b;
    const auto back = [&](double u, double v) -> Point {
        const double du = u - to.x;
        const double dv = v - to.y;
        return {from.x + (a * du - b * dv) / square, from.y + (b * du + a * dv) / square};
    };
    constexpr double degrees = 57.29577951308232;
    return CropSquare{back(0, 0), back(cropSide, cropSide), cropSide / std::sqrt(square), std::atan2(b, a) * degrees};
}

double cornerError(Point first, Point second, const CropSquare& truth) {
    return (distance(first, truth.first) + distance(second, truth.second)) / 2 / truth.side;
}

int shiftOfPoints(int x, int y, int width, int height, int pictureWidth, int pictureHeight) {
    const int side = std::max(width, height);
    const int left = x + (width - side) / 2;
    const int top = y + (height - side) / 2;
    return std::max({0, -left, -top, left + side - pictureWidth, top + side - pictureHeight});
}

} // namespace veldan::eval
