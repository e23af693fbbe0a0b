#include "options.hpp"

#include "report/exit_codes.hpp"
#include "report/similarity.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <fmt/format.h>
#include <thread>

namespace veldan::cli {

namespace {

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
    addJsonFlag(command, options.json);
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

void addJsonFlag(CLI::App& command, bool& json) {
    command.add_flag("--json", json, "Print one JSON document instead of text");
}

void addGalleryOption(CLI::App& command, std::string& path, const std::string& help) {
    command.add_option("--gallery", path, help)->required()->type_name("LOCATION");
}

CLI::Option* addSimilarityOption(CLI::App& command, const std::string& name, double& value, const std::string& help) {
    const auto read = [&value, name](const std::string& given) {
        try {
            value = similarityFrom(given);
        } catch (const CommandError& error) {
            throw CLI::ValidationError(name, error.what());
        }
    };
    return command.add_option_function<std::string>(name, read, help)
        ->type_name("S")
        ->default_str(fmt::format("{:g}", value));
}

} // namespace veldan::cli
