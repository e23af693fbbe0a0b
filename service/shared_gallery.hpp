#ifndef VELDAN_SERVICE_SHARED_GALLERY_HPP
#define VELDAN_SERVICE_SHARED_GALLERY_HPP

#include "gallery/store.hpp"

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>

namespace veldan::service {

/**
 * The gallery of a server: opened once, and kept in memory as searches take it. Any thread may ask; what one has
 * changed, searches that begin later see, and what another process has changed, soon after.
 */
class SharedGallery {
public:
    using Searchable = std::shared_ptr<const kit::SearchableGallery>;

    /** Throws CommandError, as GalleryStore does. */
    explicit SharedGallery(std::string location);

    /** The gallery as it is now. Throws CommandError. */
    Searchable searchable();

    /** Does something with the store while nobody else does. */
    void use(const std::function<void(kit::GalleryStore& store)>& work);

    /** Opens the gallery anew and reads all of it. */
    void reload();

    /** Persons and photos that searches look through, as of the last reading. */
    std::size_t persons() const { return persons_; }
    std::size_t photos() const { return photos_; }

private:
    void read();

    const std::string location_;
    std::mutex mutex_;
    kit::GalleryStore store_;
    Searchable searchable_;
    bool stale_ = true;
    std::atomic<std::size_t> persons_{0};
    std::atomic<std::size_t> photos_{0};
};

} // namespace veldan::service

#endif
