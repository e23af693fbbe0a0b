#ifndef VELDAN_KIT_GALLERY_LIVE_GALLERY_HPP
#define VELDAN_KIT_GALLERY_LIVE_GALLERY_HPP

#include "gallery/store.hpp"

#include <chrono>
#include <cstddef>
#include <string>

namespace veldan::kit {

/**
 * A gallery in memory that follows its home: whoever is enrolled anywhere is in it soon after. Persons keep their index
 * as long as the object lives, so that faces which are being followed keep their names: new persons come last, and who
 * has left has no templates any more. One thread at a time.
 */
class LiveGallery {
public:
    /** Throws CommandError, as GalleryStore does. */
    explicit LiveGallery(const std::string& location);

    const std::string& name() const { return store_.name(); }

    /** What searches take now. */
    const SearchableGallery& gallery() const { return gallery_; }

    /** Most persons that gallery() will ever hold; those beyond are told about and left out. */
    std::size_t capacity() const { return capacity_; }

    /** Reads the gallery again when it has changed, at most twice a second. @return whether it did */
    bool follow();

private:
    using Clock = std::chrono::steady_clock;

    GalleryStore store_;
    SearchableGallery gallery_;
    std::size_t capacity_;
    Clock::time_point asked_ = Clock::now();
    bool full_ = false;
};

/**
 * A gallery in the order of an earlier one: its persons under their old indices, without templates if they are gone,
 * then new ones, as long as there is room. @return false when some did not fit
 */
bool inOrderOf(const SearchableGallery& earlier, SearchableGallery& gallery, std::size_t capacity);

} // namespace veldan::kit

#endif
