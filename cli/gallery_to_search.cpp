#include "gallery_to_search.hpp"

#include "report/messages.hpp"

#include <utility>

namespace veldan::cli {

void tellAbout(const SearchableGallery& gallery, const std::string& name, const std::string& empty) {
    const std::string passedOver = name + ": passed over: ";
    for (const std::string& damage : gallery.damaged)
        tellUser(passedOver + damage);
    if (gallery.names.empty())
        tellUser(name + ": " + empty);
}

GalleryToSearch::GalleryToSearch(std::string location, const std::string& empty) : location_(std::move(location)) {
    auto store = std::make_unique<GalleryStore>(location_, GalleryStore::Access::Read);
    name_ = store->name();
    if (!store->searches()) {
        persons_ = memory_.emplace(store->searchable()).names.size();
        tellAbout(*memory_, name_, empty);
        return;
    }
    store->requireOwnNetworks();
    persons_ = store->size().persons;
    if (persons_ == 0)
        tellUser(name_ + ": " + empty);
    idle_.push_back(std::move(store));
}

std::unique_ptr<GalleryStore> GalleryToSearch::taken() {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (idle_.empty())
        return nullptr;
    std::unique_ptr<GalleryStore> store = std::move(idle_.back());
    idle_.pop_back();
    return store;
}

Identity GalleryToSearch::identify(Instance& instance, const Template& probe, Kind kind, const IdentitySearch& search) {
    if (memory_)
        return kit::identify(instance, *memory_, probe, kind, search);
    std::unique_ptr<GalleryStore> store = taken();
    if (store == nullptr)
        store = std::make_unique<GalleryStore>(location_, GalleryStore::Access::Read);
    Identity identity = kit::identify(*store, probe, kind, search);
    const std::lock_guard<std::mutex> lock(mutex_);
    idle_.push_back(std::move(store));
    return identity;
}

} // namespace veldan::cli
