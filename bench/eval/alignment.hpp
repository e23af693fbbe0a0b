#ifndef VELDAN_EVAL_ALIGNMENT_HPP
#define VELDAN_EVAL_ALIGNMENT_HPP

#include "geometry.hpp"

#include <optional>

namespace veldan::eval {

/** The square of a picture that alignment cuts out, where its corners (0, 0) and (112, 112) lie in the picture. */
struct CropSquare {
    Point first;
    Point second;
    double side = 0;
    /** How far the face is turned clockwise, in degrees, -180 to 180. */
    double angle = 0;
};

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
