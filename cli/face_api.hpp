#ifndef VELDAN_CLI_FACE_API_HPP
#define VELDAN_CLI_FACE_API_HPP

#include "photo.hpp"

#include <veldan/face_record.h>

#include <vector>

namespace veldan::cli {

/** An instance of the library. One thread at a time. */
class FaceApi {
public:
    /** Throws CommandError (Library) when the instance cannot be created. */
    FaceApi();
    ~FaceApi();
    FaceApi(const FaceApi&) = delete;
    FaceApi& operator=(const FaceApi&) = delete;

    void* handle() const { return handle_; }

    /** Faces of a photo, largest first, and how long the library took to find them. */
    struct Detection {
        std::vector<VDFACEINFOEX> faces;
        double milliseconds = 0;
    };

    /** Throws CommandError when the photo is too small or the library fails; no face is an empty list. */
    Detection detect(Photo& photo);

private:
    void* handle_ = nullptr;
    std::vector<VDFACEINFOEX> records_;
};

} // namespace veldan::cli

#endif
