#include "photo_run.hpp"

#include "report/messages.hpp"
#include "report/printable.hpp"
#include "system/file_bytes.hpp"
#include "system/ordered_work.hpp"

#include <opencv2/core/utility.hpp>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <utility>

namespace veldan::cli {

namespace {

// Results that wait for a slow photo before them are small, but a folder may hold a million photos.
constexpr std::size_t waitingPerJob = 8;

std::vector<std::string> pathsOf(const std::vector<PhotoInput>& inputs) {
    std::vector<std::string> paths;
    paths.reserve(inputs.size());
    for (const PhotoInput& input : inputs)
        paths.push_back(input.path);
    return paths;
}

bool severalWanted(const PhotoOptions& options, const std::vector<PhotoInput>& inputs) {
    return inputs.size() > 1 || options.photos.recursive || !options.photos.list.empty();
}

} // namespace

PhotoRun::PhotoRun(const PhotoOptions& options)
    : options_(options), inputs_(photoInputs(options.photos)), photoFiles_(pathsOf(inputs_)),
      drawTarget_(options.draw, severalWanted(options, inputs_)), progress_(inputs_.size(), options.progress) {
    if (options.draw == standardStream && options.json)
        throw CommandError(ExitCode::Usage, "--draw - and --json both want standard output");
}

ExitCode PhotoRun::forEach(const Steps& steps, const std::function<void(Json& document)>& conclude,
                           const std::function<void(Json& document)>& summarise) {
    OrderedWork order;
    order.count = inputs_.size();
    order.workers = std::clamp<std::size_t>(options_.jobs, 1, std::max<std::size_t>(inputs_.size(), 1));
    order.window = waitingPerJob * order.workers;
    // Two ways of using all processors at a time only get into each other's way.
    if (order.workers > 1)
        cv::setNumThreads(1);

    std::vector<std::filesystem::path> drawings(drawTarget_.wanted() ? inputs_.size() : 0);
    for (std::size_t i = 0; i < drawings.size(); ++i)
        drawings[i] = drawTarget_.pathFor(inputs_[i].path);
    const PhotoOutputs outputs{photoFiles_, options_.json};
    std::vector<PhotoWorker> workers(order.workers);
    std::vector<std::unique_ptr<PhotoTask>> tasks(order.window);

    order.work = [&](std::size_t index, std::size_t worker) {
        const PhotoInput& input = inputs_[index];
        auto task = std::make_unique<PhotoTask>(
            index, input.path, drawings.empty() ? std::filesystem::path() : drawings[index], outputs, workers[worker]);
        task->attempt([&] {
            if (input.refusal)
                throw CommandError(*input.refusal);
            steps.work(*task);
        });
        tasks[index % order.window] = std::move(task);
    };
    order.deliver = [&](std::size_t index) {
        const std::unique_ptr<PhotoTask> task = std::move(tasks[index % order.window]);
        if (steps.finish && task->code() == ExitCode::Success)
            task->attempt([&] { steps.finish(*task); });
        report(*task);
        return !stopped_;
    };
    try {
        order.run();
    } catch (const NoLibrary& failure) {
        throw CommandError(failure.reason);
    }

    progress_.end();
    Json document = {{"version", VELDAN_VERSION}, {"photos", entries_}};
    if (stopped_)
        document["error"] = entries_.back()["error"];
    if (conclude && code_ == ExitCode::Success)
        attempt(document, conclude);
    if (summarise)
        attempt(document, summarise);
    if (options_.json)
        std::cout << written(document) << '\n';
    return code_;
}

void PhotoRun::tell(const std::string& line) {
    if (!options_.json)
        say({false, printable(line)});
}

void PhotoRun::report(PhotoTask& task) {
    if (!task.lines().empty())
        progress_.clear();
    for (const PhotoTask::Line& line : task.lines())
        say(line);
    std::cout.flush(); // whoever follows the output wants to know at once
    entries_.push_back(task.takeEntry());
    if (code_ == ExitCode::Success || task.fatal())
        code_ = task.code();
    stopped_ = task.fatal();
    progress_.done(task.path());
}

void PhotoRun::say(const PhotoTask::Line& line) {
    if (line.message) {
        tellUser(line.text);
        return;
    }
    // Where the picture takes standard output, what is said about it stands with the messages.
    (options_.draw == standardStream ? std::cerr : std::cout) << line.text << '\n';
}

void PhotoRun::attempt(Json& document, const std::function<void(Json& document)>& action) {
    ExitCode code = ExitCode::Internal;
    std::string message;
    try {
        action(document);
        return;
    } catch (const CommandError& error) {
        code = error.code();
        message = error.what();
    } catch (const std::exception& error) {
        message = std::string("unexpected failure: ") + error.what();
    }
    say({true, message});
    document["error"] = failureJson(code, message);
    if (code_ == ExitCode::Success)
        code_ = code;
}

} // namespace veldan::cli
