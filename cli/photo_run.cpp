#include "photo_run.hpp"

#include "report/printable.hpp"
#include "system/file_bytes.hpp"
#include "system/ordered_work.hpp"

#include <CLI/CLI.hpp>
#include <opencv2/core/utility.hpp>

#include <algorithm>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>
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

std::size_t jobsOf(const std::string& text) {
    const std::size_t jobs = text == "auto" ? 0 : static_cast<std::size_t>(std::stoul(text));
    return jobs > 0 ? jobs : std::max<std::size_t>(std::thread::hardware_concurrency(), 1);
}

} // namespace

void addPhotoOptions(CLI::App& command, PhotoOptions& options, const std::string& drawHelp) {
    command
        .add_option("PHOTO", options.photos.named,
                    "Photos: jpg, png, webp, bmp, tiff and what else OpenCV reads; - for standard input")
        ->type_name("");
    command.add_flag("-r,--recursive", options.photos.recursive, "Read the photos in folders, and in folders in them");
    command
        .add_option("--files-from", options.photos.list,
                    "Read the names of photos from a file, one a line; - for standard input")
        ->type_name("FILE");
    command.add_flag("-0,--null", options.photos.nullSeparated, "Names of --files-from end with a NUL byte");
    command.add_flag("--json", options.json, "Print one JSON document instead of text");
    command
        .add_option("--draw", options.draw,
                    drawHelp + ": a file for one photo, a folder for several, - for standard output (PNG)")
        ->type_name("OUT");
    addJobOptions(command, options);
    command.parse_complete_callback([&options] {
        if (options.photos.named.empty() && options.photos.list.empty())
            throw CLI::RequiredError("PHOTO");
    });
}

void addJobOptions(CLI::App& command, PhotoOptions& options) {
    command
        .add_option_function<std::string>(
            "-j,--jobs", [&options](const std::string& text) { options.jobs = jobsOf(text); },
            "Photos to work on at the same time; 0 or auto: as many as there are processors")
        ->type_name("N")
        ->default_str("1")
        ->check([](const std::string& text) {
            const bool number = !text.empty() && text.size() <= 3 &&
                                std::all_of(text.begin(), text.end(), [](char c) { return '0' <= c && c <= '9'; });
            return std::string(number || text == "auto" ? "" : "neither a number from 0 to 999 nor auto: " + text);
        });
    command.add_flag_function(
        "--progress,!--no-progress", [&options](std::int64_t count) { options.progress = count > 0; },
        "Show how far the work has come; by default when standard error is a terminal");
}

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
    if (options_.json) {
        // File names need not be UTF-8; what is not is replaced rather than losing the whole document.
        std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    }
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
        std::cout.flush(); // keeps the message behind the lines of the photos before it
        std::cerr << "veldan: " << printable(line.text) << '\n';
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
