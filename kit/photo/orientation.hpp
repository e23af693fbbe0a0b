#ifndef VELDAN_KIT_PHOTO_ORIENTATION_HPP
#define VELDAN_KIT_PHOTO_ORIENTATION_HPP

#include "photo/photo.hpp"

#include <vector>

namespace veldan::kit {

/**
 * The EXIF orientation (1 to 8) of a WebP file; 1 for files without one and for every other format. OpenCV turns JPEG,
 * PNG and TIFF upright while it loads them, but takes WebP as it is stored.
 */
int webpOrientation(const std::vector<unsigned char>& bytes);

/** Turns and mirrors a picture stored with this EXIF orientation so that it stands upright. */
void turnUpright(Photo& photo, int orientation);

} // namespace veldan::kit

#endif
