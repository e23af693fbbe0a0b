#ifndef VELDAN_KIT_PHOTO_HEIF_HPP
#define VELDAN_KIT_PHOTO_HEIF_HPP

#include "photo/photo.hpp"
#include "photo/picture_size.hpp"

#include <optional>
#include <vector>

namespace veldan::kit {

/**
 * The main picture of a HEIC or AVIF file, upright. Throws CommandError (Unreadable), also when the command was built
 * without libheif.
 */
Photo decodeHeif(const std::vector<unsigned char>& bytes);

/** The size that the file says its main picture has; nothing when it cannot be told. */
std::optional<PictureSize> heifSize(const std::vector<unsigned char>& bytes);

} // namespace veldan::kit

#endif
