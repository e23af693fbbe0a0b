#ifndef VELDAN_ALIGN_SQUARE_CROP_HPP
#define VELDAN_ALIGN_SQUARE_CROP_HPP

#include <opencv2/core.hpp>

namespace veldan {

// The crop of get_crop() and get_crop_landmark(). Returns the square, in pixels of the bordered image when it leaves
// the image.
cv::Rect cropSquare(const cv::Mat& image, int x, int y, int w, int h, int size, cv::Mat& out);

} // namespace veldan

#endif
