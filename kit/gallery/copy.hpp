#ifndef VELDAN_KIT_GALLERY_COPY_HPP
#define VELDAN_KIT_GALLERY_COPY_HPP

#include "gallery/exchange.hpp"
#include "gallery/store.hpp"

#include <cstddef>
#include <functional>
#include <vector>

namespace veldan::kit {

/** What copyGallery() did. */
struct CopiedGallery {
    std::size_t added = 0;
    std::size_t repaired = 0;
    std::size_t unchanged = 0;      ///< were there before
    std::vector<Unusable> unusable; ///< photos that are damaged and left out
};

/**
 * Adds the persons and photos of a gallery to another one, wherever they are, in order and some hundred in a
 * transaction. What was broken off is taken up again by calling this once more. Throws CommandError as the galleries
 * do, and (Gallery) when other networks made the one than the other.
 * @param progress  told, after each transaction, how many photos it dealt with
 */
CopiedGallery copyGallery(GalleryStore& from, GalleryStore& to,
                          const std::function<void(std::size_t photos)>& progress);

} // namespace veldan::kit

#endif
