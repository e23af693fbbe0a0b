#include "gallery_to_search.hpp"

#include "report/messages.hpp"

namespace veldan::cli {

SearchableGallery galleryToSearch(const std::string& path, const std::string& empty) {
    SearchableGallery gallery = GalleryStore(path, GalleryStore::Access::Read).searchable();
    const std::string passedOver = path + ": passed over: ";
    for (const std::string& damage : gallery.damaged)
        tellUser(passedOver + damage);
    if (gallery.names.empty())
        tellUser(path + ": " + empty);
    return gallery;
}

} // namespace veldan::cli
