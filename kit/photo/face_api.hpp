#ifndef VELDAN_KIT_PHOTO_FACE_API_HPP
#define VELDAN_KIT_PHOTO_FACE_API_HPP

#include "photo/photo.hpp"

#include <veldan/veldan.hpp>

#include <vector>

namespace veldan::kit {

/** A photo as the library takes it. */
inline ImageView viewOf(Photo& photo) {
    return {photo.pixels.data(), photo.width, photo.height};
}

/** An instance of the library whose failures are those of the command. One thread at a time. */
class FaceApi {
public:
    /** @param capacity  most persons of a tracked search. Throws CommandError (Library) when it cannot be created. */
    explicit FaceApi(int capacity = VELDAN_DEFAULT_CAPACITY);

    Instance& instance() { return instance_; }

    /** Faces of a photo, largest first, and how long the library took to find them. */
    struct Detection {
        std::vector<VDFACEINFOEX> faces;
        double milliseconds = 0;
    };

    /** Throws CommandError when the photo is too small or the library fails; no face is an empty list. */
    Detection detect(Photo& photo);

private:
    Instance instance_;
};

} // namespace veldan::kit

#endif
