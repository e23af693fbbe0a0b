#ifndef VELDAN_KIT_PHOTO_LARGEST_FACE_HPP
#define VELDAN_KIT_PHOTO_LARGEST_FACE_HPP

#include "photo/face_api.hpp"
#include "photo/judge.hpp"
#include "photo/photo.hpp"

#include <veldan/veldan.hpp>

#include <cstddef>

namespace veldan::kit {

/** The one face of a photo that commands about a single person look at. */
struct LargestFace {
    JudgedFace face;
    std::size_t of = 1;      ///< faces in the photo
    double milliseconds = 0; ///< that the library took to find and judge it
};

/** Throws CommandError: Unsuitable when there is no face, otherwise as FaceApi::detect() and judge(). */
LargestFace largestFace(FaceApi& api, Photo& photo);

/**
 * The template of a face. The masked kind is aligned as the face allows: by the five points, which are the better ones,
 * or by the two when a mask covers the others.
 */
Template templateOf(Instance& instance, Photo& photo, const JudgedFace& face, Kind kind);

} // namespace veldan::kit

#endif
