#ifndef VELDAN_ALIGN_SIMILARITY_TRANSFORM_HPP
#define VELDAN_ALIGN_SIMILARITY_TRANSFORM_HPP

#include <opencv2/core.hpp>

namespace veldan {

// The turn, scale and shift that bring `from` nearest to `to`, by least squares:
//
//     |  r0 r1 r2 |
//     | -r1 r0 r3 |
//
// Points are single precision, the system and its solution double. A system that does not determine all four values,
// because the points coincide, has the solution of least norm.
template <int Points>
cv::Matx23d fitSimilarity(const cv::Point2f (&from)[Points], const cv::Point2f (&to)[Points]) {
    // Matrices of fixed size: they take no memory from the heap, and the solve stays cheap beside the warp.
    cv::Matx<double, 2 * Points, 4> a;
    cv::Matx<double, 2 * Points, 1> b;
    for (int i = 0; i < Points; ++i) {
        const double x = from[i].x;
        const double y = from[i].y;
        a(2 * i, 0) = x;
        a(2 * i, 1) = y;
        a(2 * i, 2) = 1;
        a(2 * i + 1, 0) = y;
        a(2 * i + 1, 1) = -x;
        a(2 * i + 1, 3) = 1;
        b(2 * i) = to[i].x;
        b(2 * i + 1) = to[i].y;
    }
    cv::Matx<double, 4, 2 * Points> inverse;
    cv::invert(a, inverse, cv::DECOMP_SVD);
    const cv::Matx41d r = inverse * b;
    return {r(0), r(1), r(2), -r(1), r(0), r(3)};
}

} // namespace veldan

#endif
