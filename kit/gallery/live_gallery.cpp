#include "gallery/live_gallery.hpp"

#include "report/exit_codes.hpp"
#include "report/messages.hpp"

#include <algorithm>
#include <unordered_map>
#include <utility>
#include <vector>

namespace veldan::kit {

namespace {

constexpr std::chrono::milliseconds betweenQuestions(500);
constexpr std::size_t leastRoom = 1000;

/** Appends a person's templates as one. */
void append(Gallery& to, const Gallery& from, std::size_t first, std::size_t count) {
    std::vector<Template> templates(count);
    for (std::size_t i = 0; i < count; ++i)
        std::copy_n(from.data() + (first + i) * templateBytes, templateBytes, templates[i].begin());
    to.add(templates);
}

} // namespace

bool inOrderOf(const SearchableGallery& earlier, SearchableGallery& gallery, std::size_t capacity) {
    if (gallery.names.size() >= earlier.names.size() && gallery.names.size() <= capacity &&
        std::equal(earlier.names.begin(), earlier.names.end(), gallery.names.begin()))
        return true;
    std::vector<std::size_t> first(gallery.names.size());
    std::unordered_map<std::string, std::size_t> left;
    for (std::size_t i = 0, photo = 0; i < first.size(); ++i) {
        first[i] = photo;
        photo += static_cast<std::size_t>(gallery.bare.counts()[i]);
        left.emplace(gallery.names[i], i);
    }
    SearchableGallery ordered;
    ordered.damaged = gallery.damaged;
    const auto take = [&](std::size_t person) {
        const auto count = static_cast<std::size_t>(gallery.bare.counts()[person]);
        append(ordered.bare, gallery.bare, first[person], count);
        append(ordered.masked, gallery.masked, first[person], count);
        for (std::size_t i = 0; i < count; ++i)
            ordered.origins.push_back(gallery.origins[first[person] + i]);
    };
    for (const std::string& name : earlier.names) {
        ordered.names.push_back(name);
        if (const auto found = left.find(name); found != left.end()) {
            take(found->second);
            left.erase(found);
        } else {
            ordered.bare.add({});
            ordered.masked.add({});
        }
    }
    for (std::size_t i = 0; i < gallery.names.size() && ordered.names.size() < capacity; ++i)
        if (left.erase(gallery.names[i]) > 0) {
            ordered.names.push_back(gallery.names[i]);
            take(i);
        }
    gallery = std::move(ordered);
    return left.empty();
}

LiveGallery::LiveGallery(const std::string& location)
    : store_(location, GalleryStore::Access::Read), gallery_(store_.searchable()),
      capacity_(gallery_.names.size() + std::max(leastRoom, gallery_.names.size() / 4)) {}

bool LiveGallery::follow() {
    const Clock::time_point now = Clock::now();
    if (now - asked_ < betweenQuestions)
        return false;
    asked_ = now;
    if (!store_.changed())
        return false;
    SearchableGallery fresh = store_.searchable();
    if (!inOrderOf(gallery_, fresh, capacity_) && !std::exchange(full_, true))
        tellUser(store_.name() + ": more persons were enrolled than there is room for; begin anew to see all of them");
    gallery_ = std::move(fresh);
    asked_ = Clock::now();
    return true;
}

} // namespace veldan::kit
