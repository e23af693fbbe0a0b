#ifndef VELDAN_KIT_PHOTO_INPUTS_HPP
#define VELDAN_KIT_PHOTO_INPUTS_HPP

#include "report/exit_codes.hpp"

#include <optional>
#include <string>
#include <vector>

namespace veldan::kit {

/** Where the photos of a command line come from. */
struct PhotoSources {
    std::vector<std::string> named; ///< files, "-" for standard input, and folders
    std::string list;               ///< a file that names further ones, one a line; "-" for standard input
    bool nullSeparated = false;     ///< names in the list end with a NUL byte instead
    bool recursive = false;         ///< folders stand for the photos in them and below
};

/** A photo, or what stands where there should be one. */
struct PhotoInput {
    std::string path;
    std::optional<CommandError> refusal;
};

/**
 * The photos in order: as named, then those of the list; of a folder those with the extension of a picture, sorted by
 * name, nothing whose name begins with a dot. A folder that cannot be read is refused alone.
 * Throws CommandError when the list cannot be read, or when standard input is asked for twice.
 */
std::vector<PhotoInput> photoInputs(const PhotoSources& sources);

} // namespace veldan::kit

#endif
