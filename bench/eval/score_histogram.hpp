#ifndef VELDAN_EVAL_SCORE_HISTOGRAM_HPP
#define VELDAN_EVAL_SCORE_HISTOGRAM_HPP

#include "verify_figures.hpp"

#include <filesystem>
#include <string>

namespace veldan::eval {

/** Draws how the similarities of genuine and of impostor pairs lie, each as shares of its own kind. */
void drawScoreHistogram(const std::filesystem::path& path, const PairScores& scores, const std::string& title);

} // namespace veldan::eval

#endif
