#ifndef VELDAN_EVAL_GEOMETRY_HPP
#define VELDAN_EVAL_GEOMETRY_HPP

#include <array>
#include <cstddef>
#include <optional>
#include <vector>

namespace veldan::eval {

struct Point {
    double x = 0;
    double y = 0;
};

/** Eye on the image's left, eye on its right, nose tip, mouth corner on the left, on the right. */
using FivePoints = std::array<Point, 5>;

struct Box {
    double x = 0;
    double y = 0;
    double width = 0;
    double height = 0;

    bool contains(Point p) const { return p.x >= x && p.x <= x + width && p.y >= y && p.y <= y + height; }
};

/** How the size of a face is measured when it is compared with the smallest size that counts. */
enum class SizeMeasure { Geometric, Longer, Shorter };

/** Geometric: root of width x height. */
double sizeOf(const Box& box, SizeMeasure measure = SizeMeasure::Geometric);

/** Intersection over union; 0 when the boxes do not overlap. */
double overlap(const Box& a, const Box& b);

/** The part of the box inside a picture of this size. */
Box clipped(const Box& box, double width, double height);

Box scaled(const Box& box, double sx, double sy);
FivePoints scaled(const FivePoints& points, double sx, double sy);

double distance(Point a, Point b);
Point centroid(const FivePoints& points);

/**
 * Gives each wanted box to at most one found one, the pair with the best overlap first. For each found box the index of
 * the wanted one that it was given, or nothing.
 */
std::vector<std::optional<std::size_t>> assignBoxes(const std::vector<Box>& found, const std::vector<Box>& wanted,
                                                    double leastOverlap);

/** The square of a picture that alignment cuts out, where its corners (0, 0) and (112, 112) lie in the picture. */
struct CropSquare {
    Point first;
    Point second;
    double side = 0;
    /** How far the face is turned clockwise, in degrees, -180 to 180. */
    double angle = 0;
};

/** The boxes of things that have one. */
template <class T>
std::vector<Box> boxesOf(const std::vector<T>& things) {
    std::vector<Box> boxes;
    boxes.reserve(things.size());
    for (const T& thing : things)
        boxes.push_back(thing.box);
    return boxes;
}

/**
 * The square of the five-point alignment to 112 x 112, computed apart from the library, which tells nobody where its
 * crops lie. Nothing when all points are equal or mirrored so that no square fits.
 */
std::optional<CropSquare> alignedSquare(const FivePoints& points);

/** Mean distance of the two corners from those of another square, as a share of the side of that one. */
double cornerError(Point first, Point second, const CropSquare& truth);

/**
 * How far the square about a box reaches out of the picture: the two-point engine gives its points shifted to the right
 * and down by this much. 0 when the square lies inside. Boxes are those of the library, whole pixels.
 */
int shiftOfPoints(int x, int y, int width, int height, int pictureWidth, int pictureHeight);

} // namespace veldan::eval

#endif
