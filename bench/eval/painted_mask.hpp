#ifndef VELDAN_EVAL_PAINTED_MASK_HPP
#define VELDAN_EVAL_PAINTED_MASK_HPP

#include "geometry.hpp"

#include <opencv2/core.hpp>

namespace veldan::eval {

/** Paints a surgical mask over nose, mouth and chin of a face, with folds and straps. */
void paintMask(cv::Mat& picture, const FivePoints& points);

} // namespace veldan::eval

#endif
