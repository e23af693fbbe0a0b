#ifndef VELDAN_KIT_GALLERY_FEATURE_MATRIX_HPP
#define VELDAN_KIT_GALLERY_FEATURE_MATRIX_HPP

#include "gallery/exchange.hpp"
#include "gallery/store.hpp"

#include <cstddef>
#include <string>
#include <vector>

namespace veldan::kit {

/** What writeFeatures() wrote. */
struct WrittenFeatures {
    std::size_t rows = 0;
    std::string rowFile;
    std::vector<Unusable> unusable; ///< photos that are damaged and left out
};

/**
 * Writes the features of all photos of a gallery as numpy.load() and search libraries read them: a C-ordered
 * little-endian float32 matrix of one row of 128 for each photo, as TzDecode() gives them, which is not normalised.
 * Beside it goes a file that says whose the rows are: the same name with the ending .jsonl, a JSON object with "name",
 * "photo" and "digest" on a line for each row. Both appear once they are whole. Takes little memory however large the
 * gallery. Throws CommandError (NotWritten), with the file's name.
 */
WrittenFeatures writeFeatures(GalleryStore& store, Kind kind, const std::string& path);

} // namespace veldan::kit

#endif
