#ifndef VELDAN_EVAL_EVALUATIONS_HPP
#define VELDAN_EVAL_EVALUATIONS_HPP

#include <CLI/CLI.hpp>

#include <functional>
#include <memory>

namespace veldan::eval {

/** Each of these adds one subcommand, and stores what it does when the user chose it. */
void addDetectEvaluation(CLI::App& app, std::function<void()>& action);
void addCornersEvaluation(CLI::App& app, std::function<void()>& action);
void addMaskEvaluation(CLI::App& app, std::function<void()>& action);
void addQualityEvaluation(CLI::App& app, std::function<void()>& action);
void addLivenessEvaluation(CLI::App& app, std::function<void()>& action);
void addVerifyEvaluation(CLI::App& app, std::function<void()>& action);

/** Lets a subcommand store the run of an Evaluation, which is made of the options. */
template <class Evaluation, class Options>
void onChoice(CLI::App& command, std::function<void()>& action, const std::shared_ptr<Options>& options) {
    command.callback([options, &action] { action = [options] { Evaluation(*options).run(); }; });
}

} // namespace veldan::eval

#endif
