#ifndef VELDAN_CLI_OPTIONS_HPP
#define VELDAN_CLI_OPTIONS_HPP

#include "kit_names.hpp"
#include "photo/inputs.hpp"

#include <cstddef>
#include <optional>
#include <string>

namespace CLI {
class App;
class Option;
} // namespace CLI

namespace veldan::cli {

// The options that several commands have, and what belongs to them. A variable must outlive the parsing.

/** The options of every command that looks for faces in photos. */
struct PhotoOptions {
    PhotoSources photos;
    std::string draw;
    bool json = false;
    std::size_t jobs = 1;         ///< photos worked on at the same time
    std::optional<bool> progress; ///< without a value: when a terminal shows it
};

/** Adds the options to a command. @param drawHelp  what --draw draws */
void addPhotoOptions(CLI::App& command, PhotoOptions& options, const std::string& drawHelp);

/** Adds those alone that say how many photos are worked on at a time and whether progress is shown. */
void addJobOptions(CLI::App& command, PhotoOptions& options);

/** Adds --json. */
void addJsonFlag(CLI::App& command, bool& json);

/** Adds --gallery, which is required. */
void addGalleryOption(
    CLI::App& command, std::string& path,
    const std::string& help = "The gallery: a file made by \"veldan enroll\", or postgresql://HOST/DATABASE");

/** How similarities are written, for the help of commands that take them. */
inline constexpr const char* similarityHelp =
    "A similarity is a number from 0 to 1, as in the output, or percent: 0.72, 72% and 72 are the same; numbers above\n"
    "1 are percent, and 1 without a sign is 1.0.\n";

/** Adds an option that takes a similarity. @param value  holds the default */
CLI::Option* addSimilarityOption(CLI::App& command, const std::string& name, double& value, const std::string& help);

} // namespace veldan::cli

#endif
