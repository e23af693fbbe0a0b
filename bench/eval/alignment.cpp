#include "alignment.hpp"

#include <algorithm>
#include <cmath>

namespace veldan::eval {

namespace {

constexpr double cropSide = 112;

// The places that the alignment itself uses, not those of the exported table: the second point differs.
constexpr FivePoints places = {
    {{38.2946, 51.6953}, {73.5318, 51.5014}, {56.0252, 71.7366}, {41.5493, 92.3655}, {70.7299, 92.2041}}};

} // namespace

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
