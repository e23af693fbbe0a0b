#ifndef VELDAN_EVAL_ERROR_PICTURES_HPP
#define VELDAN_EVAL_ERROR_PICTURES_HPP

#include "detection_figures.hpp"

#include <opencv2/core.hpp>

#include <filesystem>
#include <vector>

namespace veldan::eval {

/**
 * Writes the picture with what went wrong in it: false boxes red, faces that were not found blue, found ones green,
 * ignored ones grey. Writes nothing when nothing went wrong.
 */
void writeErrors(const std::filesystem::path& path, const cv::Mat& picture, const std::vector<FoundFace>& found,
                 const PhotoVerdict& verdict);

} // namespace veldan::eval

#endif
