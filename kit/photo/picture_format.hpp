#ifndef VELDAN_KIT_PHOTO_PICTURE_FORMAT_HPP
#define VELDAN_KIT_PHOTO_PICTURE_FORMAT_HPP

#include <vector>

namespace veldan::kit {

/** Formats of pictures, as the first bytes of a file tell them. */
enum class PictureFormat { Other, Jpeg, Png, Webp, Bmp, Tiff, Gif, Heic, Avif, Radiance, Dicom };

PictureFormat formatOf(const std::vector<unsigned char>& bytes);

/** The name as people know it; "" for Other. */
const char* nameOf(PictureFormat format);

/** True when the file says itself that it should be longer. */
bool endsTooSoon(const std::vector<unsigned char>& bytes, PictureFormat format);

} // namespace veldan::kit

#endif
