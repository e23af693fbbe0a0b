#include "gallery/store.hpp"

#include "gallery/sqlite_home.hpp"
#include "report/exit_codes.hpp"

#include <optional>
#include <utility>

namespace veldan::kit {

namespace {

CommandError nobody(const std::string& path, const std::string& person) {
    return {ExitCode::Missing, path + ": there is no \"" + person + "\""};
}

} // namespace

GalleryStore::GalleryStore(const std::string& path, Access access)
    : home_(std::make_unique<SqliteHome>(path, access)) {}

GalleryStore::GalleryStore(GalleryStore&& other) noexcept = default;

GalleryStore& GalleryStore::operator=(GalleryStore&& other) noexcept = default;

GalleryStore::~GalleryStore() = default;

const Recognizers& GalleryStore::recognizers() const {
    return home_->recognizers();
}

void GalleryStore::requireOwnNetworks() const {
    if (recognizers() == Recognizers::embedded())
        return;
    throw CommandError(ExitCode::Gallery,
                       home_->path() +
                           ": made with other networks, whose templates cannot be compared with those of this version. "
                           "Enrol again from the photos, into a new gallery: veldan enroll --gallery NEW.db NAME "
                           "PHOTO... (\"veldan gallery show --gallery " +
                           home_->path() + "\" names persons and photos)");
}

SearchableGallery GalleryStore::searchable() {
    requireOwnNetworks();
    SearchableGallery gallery;
    std::string name;
    std::vector<Template> bare;
    std::vector<Template> masked;
    const auto finish = [&] {
        if (bare.empty())
            return;
        gallery.names.push_back(name);
        gallery.bare.add(bare);
        gallery.masked.add(masked);
        bare.clear();
        masked.clear();
    };
    forEach([&](const PersonPhoto& row) {
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
    });
    finish();
    return gallery;
}

void GalleryStore::forEach(const std::function<void(const PersonPhoto& photo)>& visit) {
    home_->forEach(visit);
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

GalleryStore::Added GalleryStore::addOne(const PersonPhoto& added) {
    if (home_->insert(added.person, added.photo))
        return Added::New;
    if (holds(added.person, added.photo.digest) || !damageOf(added.photo).empty())
        return Added::Unchanged;
    home_->replaceTemplates(added.person, added.photo);
    return Added::Repaired;
}

std::vector<GalleryStore::Added> GalleryStore::add(const std::vector<PersonPhoto>& photos) {
    std::vector<Added> added;
    if (photos.empty())
        return added;
    change([&] {
        added.clear();
        for (const PersonPhoto& photo : photos)
            added.push_back(addOne(photo));
    });
    return added;
}

void GalleryStore::renamePerson(const std::string& person, const std::string& name) {
    if (const std::string refusal = refusalOfName(name); !refusal.empty())
        throw CommandError(ExitCode::Usage, "\"" + name + "\": " + refusal);
    change([&] {
        if (photosOf(person).empty())
            throw nobody(home_->path(), person);
        if (person != name && !photosOf(name).empty())
            throw CommandError(ExitCode::Usage, home_->path() + ": there is a \"" + name +
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
            throw nobody(home_->path(), person);
        if (photosOf(into).empty())
            throw nobody(home_->path(), into);
        for (const EnrolledPhoto& photo : photos)
            addOne({into, photo});
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
