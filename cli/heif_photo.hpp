#ifndef VELDAN_CLI_HEIF_PHOTO_HPP
#define VELDAN_CLI_HEIF_PHOTO_HPP

#include "photo.hpp"

#include <vector>

namespace veldan::cli {

/**
 * The main picture of a HEIC or AVIF file, upright. Throws CommandError (Unreadable), also when the command was built
 * without libheif.
 */
Photo decodeHeif(const std::vector<unsigned char>& bytes);

} // namespace veldan::cli

#endif
