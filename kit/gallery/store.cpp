#include "gallery/store.hpp"

#include "gallery/home.hpp"
#include "report/exit_codes.hpp"

#include <optional>
#include <utility>

namespace veldan::kit {

namespace {

CommandError nobody(const std::string& path, const std::string& person) {
    return {ExitCode::Missing, path + ": there is no \"" + person + "\""};
}

} // namespace

GalleryStore::GalleryStore(const std::string& location, Access access) : home_(openHome(location, access)) {}

GalleryStore::GalleryStore(GalleryStore&& other) noexcept = default;

GalleryStore& GalleryStore::operator=(GalleryStore&& other) noexcept = default;

GalleryStore::~GalleryStore() = default;

const std::string& GalleryStore::name() const {
    return home_->name();
}

const Recognizers& GalleryStore::recognizers() const {
    return home_->recognizers();
}

void GalleryStore::requireOwnNetworks() const {
    if (recognizers() == Recognizers::embedded())
        return;
    throw CommandError(ExitCode::Gallery,
                       home_->name() +
                           ": made with other networks, whose templates cannot be compared with those of this version. "
                           "Enrol again from the photos, into a new gallery: veldan enroll --gallery NEW.db NAME "
                           "PHOTO... (\"veldan gallery show --gallery " +
                           home_->name() + "\" names persons and photos)");
}

SearchableGallery GalleryStore::searchable() {
    requireOwnNetworks();
    SearchableGallery gallery;
    std::string name;
    std::vector<Template> bare;
    std::vector<Template> masked;
    const auto finish = [&] {
        if (!bare.empty()) {
            gallery.names.push_back(name);
            gallery.bare.add(bare);
            gallery.masked.add(masked);
        }
        bare.clear();
        masked.clear();
    };
    const auto visit = [&](const PersonPhoto& row) {
        if (row.person != name) {
            finish();
            name = row.person;
        }
        if (const std::string damage = damageOf(row.photo); !damage.empty()) {
            gallery.damaged.push_back(name + ": " + row.photo.source + ": " + damage);
        } else {
            bare.push_back(row.photo.bare);
            masked.push_back(row.photo.masked);
            gallery.origins.push_back({row.photo.source, row.photo.digest});
        }
    };
    const auto restart = [&] {
        gallery = {};
        name.clear();
        bare.clear();
        masked.clear();
    };
    const auto [persons, photos] = home_->size();
    gallery.names.reserve(persons);
    gallery.origins.reserve(photos);
    gallery.bare.reserve(persons, photos);
    gallery.masked.reserve(persons, photos);
    home_->forEach(visit, restart);
    finish();
    return gallery;
}

bool GalleryStore::changed() {
    return home_->changed();
}

bool GalleryStore::searches() const {
    return home_->searches();
}

std::vector<NearestPerson> GalleryStore::nearest(const Template& probe, Kind kind, std::size_t count) {
    return home_->nearest(probe, kind, count);
}

GallerySize GalleryStore::size() {
    return home_->size();
}

void GalleryStore::forEach(const std::function<void(const PersonPhoto& photo)>& visit) {
    home_->forEach(visit, {});
}

std::vector<PersonSummary> GalleryStore::persons() {
    return home_->persons();
}

std::vector<EnrolledPhoto> GalleryStore::photosOf(const std::string& person) {
    return home_->photosOf(person);
}

bool GalleryStore::holds(const std::string& person, const std::string& digest) {
    const std::optional<EnrolledPhoto> photo = home_->photo(person, digest);
    return photo && damageOf(*photo).empty();
}

std::vector<std::string> GalleryStore::othersWith(const std::string& person, const std::string& digest) {
    return home_->othersWith(person, digest);
}

void GalleryStore::change(const std::function<void()>& steps) {
    while (!home_->change(steps))
        requireOwnNetworks(); // of the gallery that another process has made meanwhile
}

std::vector<GalleryStore::Added> GalleryStore::addAll(const std::vector<PersonPhoto>& photos) {
    const std::vector<bool> fresh = home_->insert(photos);
    std::vector<Added> added(photos.size(), Added::New);
    for (std::size_t i = 0; i < photos.size(); ++i) {
        if (fresh[i])
            continue;
        const auto& [person, photo] = photos[i];
        added[i] = Added::Unchanged;
        if (holds(person, photo.digest) || !damageOf(photo).empty())
            continue;
        home_->replaceTemplates(person, photo);
        added[i] = Added::Repaired;
    }
    return added;
}

std::vector<GalleryStore::Added> GalleryStore::add(const std::vector<PersonPhoto>& photos) {
    std::vector<Added> added;
    if (!photos.empty())
        change([&] { added = addAll(photos); });
    return added;
}

void GalleryStore::renamePerson(const std::string& person, const std::string& name) {
    if (const std::string refusal = refusalOfName(name); !refusal.empty())
        throw CommandError(ExitCode::Usage, "\"" + name + "\": " + refusal);
    change([&] {
        if (photosOf(person).empty())
            throw nobody(home_->name(), person);
        if (person != name && !photosOf(name).empty())
            throw CommandError(ExitCode::Usage, home_->name() + ": there is a \"" + name +
                                                    "\" already; \"veldan gallery merge\" makes one person of both");
        home_->rename(person, name);
    });
}

std::size_t GalleryStore::mergePerson(const std::string& person, const std::string& into) {
    if (person == into)
        throw CommandError(ExitCode::Usage, "\"" + person + "\" cannot be merged into itself");
    std::size_t count = 0;
    change([&] {
        const std::vector<EnrolledPhoto> photos = photosOf(person);
        if (photos.empty())
            throw nobody(home_->name(), person);
        if (photosOf(into).empty())
            throw nobody(home_->name(), into);
        std::vector<PersonPhoto> moved;
        moved.reserve(photos.size());
        for (const EnrolledPhoto& photo : photos)
            moved.push_back({into, photo});
        addAll(moved);
        home_->removePerson(person);
        count = photosOf(into).size();
    });
    return count;
}

std::size_t GalleryStore::removePerson(const std::string& person) {
    std::size_t photos = 0;
    change([&] { photos = home_->removePerson(person); });
    return photos;
}

bool GalleryStore::removePhoto(const std::string& person, const std::string& digest) {
    bool removed = false;
    change([&] {
        removed = home_->removePhoto(person, digest);
        home_->removePersonsWithoutPhotos();
    });
    return removed;
}

} // namespace veldan::kit
