#include "gallery_to_search.hpp"

#include "report/messages.hpp"

namespace veldan::cli {

SearchableGallery galleryToSearch(const std::string& path, const std::string& empty) {
    GalleryStore store(path, GalleryStore::Access::Read);
    SearchableGallery gallery = store.searchable();
    const std::string passedOver = store.name() + ": passed over: ";
    for (const std::string& damage : gallery.damaged)
        tellUser(passedOver + damage);
    if (gallery.names.empty())
        tellUser(store.name() + ": " + empty);
    return gallery;
}

} // namespace veldan::cli
