#ifndef VELDAN_EVAL_PLOTS_HPP
#define VELDAN_EVAL_PLOTS_HPP

#include "tables.hpp"
#include "verify_figures.hpp"

#include <filesystem>
#include <string>

namespace veldan::eval {

// Pictures of figures. What cannot be written throws std::runtime_error.

/** The mean score against the level, a line for each kind of damage of qualityFigures(), and the good score. */
void drawQualityCurves(const std::filesystem::path& path, const Json& figures, int good);

/** How the similarities of genuine and of impostor pairs lie, each as shares of its own kind. */
void drawScoreHistogram(const std::filesystem::path& path, const PairScores& scores, const std::string& title);

} // namespace veldan::eval

#endif
