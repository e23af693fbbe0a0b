#ifndef VELDAN_KIT_GALLERY_EXCHANGE_HPP
#define VELDAN_KIT_GALLERY_EXCHANGE_HPP

#include "gallery/store.hpp"
#include "report/json.hpp"

#include <string>
#include <vector>

namespace veldan::kit {

/** The photo of a person that cannot be exported or imported. */
struct Unusable {
    std::string what; ///< person and photo
    std::string reason;
};

/** A whole gallery as one JSON document. @param unusable  receives the photos that are damaged and left out */
Json exportedGallery(GalleryStore& store, std::vector<Unusable>& unusable);

/** A gallery that was exported. */
struct ExportedGallery {
    Recognizers recognizers;
    std::vector<PersonPhoto> photos;
    std::vector<Unusable> unusable;
};

/**
 * Reads what exportedGallery() made. Whatever is wrong with a single photo makes it unusable; a text that is something
 * else altogether throws CommandError (Unreadable), whose message does not name the file.
 */
ExportedGallery readExport(const std::vector<unsigned char>& text);

} // namespace veldan::kit

#endif
