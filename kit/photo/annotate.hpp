#ifndef VELDAN_KIT_PHOTO_ANNOTATE_HPP
#define VELDAN_KIT_PHOTO_ANNOTATE_HPP

#include "photo/photo.hpp"

#include <veldan/face_record.h>

#include <string>
#include <utility>
#include <vector>

namespace veldan::kit {

/** What is drawn of a face. */
struct Mark {
    Mark(const VDFACEINFOEX& record) : face(record) {} // NOLINT(google-explicit-constructor): a face alone is a mark
    Mark(const VDFACEINFOEX& record, bool withTwoPoints, std::vector<std::string> lines)
        : face(record), twoPoints(withTwoPoints), words(std::move(lines)) {}

    VDFACEINFOEX face;
    bool twoPoints = false;         ///< key points 5 and 6 as well
    std::vector<std::string> words; ///< lines written beside the box
};

/**
 * Draws each face's box in green, its five key points in red and the two of masked faces in blue; with several faces
 * also their numbers, counted from 1 in the order of the marks. Lines, points and letters grow with the photo, and only
 * pixels under them change.
 */
void annotate(Photo& photo, const std::vector<Mark>& marks);

/** An annotated copy of the photo: a small one is enlarged by a whole factor first, so that the words have room. */
Photo annotatedCopy(Photo& photo, std::vector<Mark> marks);

/** The photo enlarged by a whole factor, for more room for words between the faces. */
Photo enlarged(Photo& photo, int factor);

/** The face as it lies on the enlarged photo. */
VDFACEINFOEX enlarged(const VDFACEINFOEX& face, int factor);

} // namespace veldan::kit

#endif
