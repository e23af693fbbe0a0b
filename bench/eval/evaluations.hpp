#ifndef VELDAN_EVAL_EVALUATIONS_HPP
#define VELDAN_EVAL_EVALUATIONS_HPP

#include <functional>

namespace CLI {
class App;
}

namespace veldan::eval {

/** Each of these adds one subcommand, and stores what it does when the user chose it. */
void addDetectEvaluation(CLI::App& app, std::function<void()>& action);
void addCornersEvaluation(CLI::App& app, std::function<void()>& action);
void addMaskEvaluation(CLI::App& app, std::function<void()>& action);
void addQualityEvaluation(CLI::App& app, std::function<void()>& action);
void addLivenessEvaluation(CLI::App& app, std::function<void()>& action);
void addVerifyEvaluation(CLI::App& app, std::function<void()>& action);

} // namespace veldan::eval

#endif
