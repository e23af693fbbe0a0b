#ifndef VELDAN_KIT_PHOTO_HEIF_HPP
#define VELDAN_KIT_PHOTO_HEIF_HPP

#include "photo/photo.hpp"

#include <vector>

namespace veldan::kit {

/**
 * The main picture of a HEIC or AVIF file, upright. Throws CommandError (Unreadable), also when the command was built
 * without libheif.
 */
Photo decodeHeif(const std::vector<unsigned char>& bytes);

} // namespace veldan::kit

#endif
