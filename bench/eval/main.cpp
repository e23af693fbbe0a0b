#include "evaluations.hpp"

#include <exception>
#include <iostream>

int main(int argc, char** argv) {
    CLI::App app{"Measures the library on labelled photos.", "veldan_eval"};
    app.require_subcommand(1);
    app.option_defaults()->always_capture_default();
    std::function<void()> action;
    veldan::eval::addDetectEvaluation(app, action);
    veldan::eval::addCornersEvaluation(app, action);
    veldan::eval::addMaskEvaluation(app, action);
    veldan::eval::addQualityEvaluation(app, action);
    veldan::eval::addLivenessEvaluation(app, action);
    veldan::eval::addVerifyEvaluation(app, action);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    try {
        action();
    } catch (const std::exception& error) {
        std::cerr << "veldan_eval: " << error.what() << '\n';
        return 1;
    }
    return 0;
}
