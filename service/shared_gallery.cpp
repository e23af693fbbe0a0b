#include "shared_gallery.hpp"

#include <utility>

namespace veldan::service {

namespace {

using Access = kit::GalleryStore::Access;

} // namespace

SharedGallery::SharedGallery(std::string location) : location_(std::move(location)), store_(location_, Access::Create) {
    const std::lock_guard<std::mutex> lock(mutex_);
    read();
}

SharedGallery::Searchable SharedGallery::searchable() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (store_.changed() || stale_)
        read();
    return searchable_;
}

void SharedGallery::use(const std::function<void(kit::GalleryStore& store)>& work) {
    const std::lock_guard<std::mutex> lock(mutex_);
    work(store_);
}

void SharedGallery::reload() {
    const std::lock_guard<std::mutex> lock(mutex_);
    store_ = kit::GalleryStore(location_, Access::Create);
    read();
}

void SharedGallery::read() {
    stale_ = true; // until it is read to its end
    auto gallery = std::make_shared<const kit::SearchableGallery>(store_.searchable());
    persons_ = gallery->names.size();
    photos_ = gallery->origins.size();
    searchable_ = std::move(gallery);
    stale_ = false;
}

} // namespace veldan::service
