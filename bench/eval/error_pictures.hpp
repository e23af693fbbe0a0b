#ifndef VELDAN_EVAL_ERROR_PICTURES_HPP
#define VELDAN_EVAL_ERROR_PICTURES_HPP

#include "detection_figures.hpp"

#include <opencv2/core.hpp>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace veldan::eval {

inline const cv::Scalar red(0, 0, 255);
inline const cv::Scalar green(0, 255, 0);
inline const cv::Scalar blue(255, 0, 0);
inline const cv::Scalar grey(160, 160, 160);

/**
 * Writes the picture with what went wrong in it: false boxes red, faces that were not found blue, found ones green,
 * ignored ones grey. Writes nothing when nothing went wrong.
 */
void writeErrors(const std::filesystem::path& path, const cv::Mat& picture, const std::vector<FoundFace>& found,
                 const PhotoVerdict& verdict);

/** Writes the picture with a box in it and a line about the face. */
void writeJudged(const std::filesystem::path& path, const cv::Mat& picture, const std::optional<Box>& box,
                 const std::string& line);

/** Draws the square with these opposite corners, as two-point alignment cuts it out. */
void drawSquare(cv::Mat& picture, Point first, Point second, const cv::Scalar& colour);

} // namespace veldan::eval

#endif
