#ifndef VELDAN_CLI_GALLERY_TO_SEARCH_HPP
#define VELDAN_CLI_GALLERY_TO_SEARCH_HPP

#include "gallery/identity.hpp"
#include "gallery/store.hpp"
#include "kit_names.hpp"

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace veldan::cli {

/**
 * A gallery that any number of threads ask at once: its server where it has one, which each thread asks over a
 * connection of its own, otherwise a copy in memory. Tells what is passed over in it.
 */
class GalleryToSearch {
public:
    /** @param empty  what to tell when nobody is enrolled */
    GalleryToSearch(std::string location, const std::string& empty);

    const std::string& name() const { return name_; }
    std::size_t persons() const { return persons_; }
    const std::vector<std::string>& damaged() const { return memory_ ? memory_->damaged : none_; }

    Identity identify(Instance& instance, const Template& probe, Kind kind, const IdentitySearch& search);

private:
    std::unique_ptr<GalleryStore> taken();

    std::string location_;
    std::string name_;
    std::size_t persons_ = 0;
    std::optional<SearchableGallery> memory_;
    std::vector<std::string> none_;
    std::mutex mutex_;
    std::vector<std::unique_ptr<GalleryStore>> idle_; ///< connections that no thread uses
};

/** Tells what is passed over in a gallery. @param name  the gallery's @param empty  as above */
void tellAbout(const SearchableGallery& gallery, const std::string& name, const std::string& empty);

} // namespace veldan::cli

#endif
