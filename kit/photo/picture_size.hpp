#ifndef VELDAN_KIT_PHOTO_PICTURE_SIZE_HPP
#define VELDAN_KIT_PHOTO_PICTURE_SIZE_HPP

#include <cstdint>
#include <optional>
#include <vector>

namespace veldan::kit {

/** Of a picture as its file tells it. */
struct PictureSize {
    std::uint64_t width = 0;
    std::uint64_t height = 0;

    std::uint64_t pixels() const { return width * height; }
};

/**
 * The size that a picture says it has, before anything of it is decoded: small files may hold huge pictures. Nothing
 * for formats that are not read, and for files whose size cannot be told.
 */
std::optional<PictureSize> pictureSize(const std::vector<unsigned char>& bytes);

} // namespace veldan::kit

#endif
