#ifndef VELDAN_KIT_PHOTO_PHOTO_ENTRY_HPP
#define VELDAN_KIT_PHOTO_PHOTO_ENTRY_HPP

#include "photo/largest_face.hpp"
#include "photo/photo.hpp"
#include "report/json.hpp"

#include <cstddef>

namespace veldan::kit {

// What a document tells of one photo, in the order in which it is learnt; its faces follow in "faces".

/** Size and flaw of a photo that was decoded. */
void putPicture(Json& entry, const Photo& photo);

/** How long the library took, and room for the faces. */
void putFaces(Json& entry, double milliseconds);

/** The face that stands for a photo. */
Json largestFaceJson(const LargestFace& largest);

/** Throws CommandError when there are more faces than the library follows. */
void refuseCrowd(std::size_t count);

} // namespace veldan::kit

#endif
