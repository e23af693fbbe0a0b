#ifndef VELDAN_EVAL_QUALITY_CURVES_HPP
#define VELDAN_EVAL_QUALITY_CURVES_HPP

#include "quality_figures.hpp"

#include <filesystem>

namespace veldan::eval {

/** Draws the mean score against the level, a line for each kind of damage, and the threshold of a good score. */
void drawQualityCurves(const std::filesystem::path& path, const QualityFigures& figures, int good);

} // namespace veldan::eval

#endif
