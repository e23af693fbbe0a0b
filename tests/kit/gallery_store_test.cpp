#include "gallery/store.hpp"
#include "support/templates.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <string>
#include <unistd.h>

namespace {

using veldan::Kind;
using veldan::Template;
using veldan::kit::EnrolledPhoto;
using veldan::kit::GalleryStore;

namespace fs = std::filesystem;

Template templateOf(unsigned seed, Kind kind) {
    Template made{};
    const veldan_tests::Bytes bytes = veldan_tests::encode(veldan_tests::randomFeature(seed), static_cast<int>(kind));
    std::copy(bytes.begin(), bytes.end(), made.begin());
    return made;
}

EnrolledPhoto photoOf(unsigned seed) {
    return {"photo.jpg",
            std::string(64, static_cast<char>('0' + seed)),
            "2026-01-01T00:00:00Z",
            90,
            templateOf(seed, Kind::Bare),
            templateOf(seed + 10, Kind::Masked)};
}

// A service opens a gallery once for each of its threads, also before anybody is enrolled.
TEST(GalleryStore, OpenedTwiceBeforeItExistsKeepsWhatEitherAdds) {
    const fs::path folder = fs::temp_directory_path() / ("veldan-store-" + std::to_string(::getpid()));
    fs::create_directories(folder);
    const std::string path = (folder / "people.db").string();
    GalleryStore first(path, GalleryStore::Access::Create);
    GalleryStore second(path, GalleryStore::Access::Create);
    first.add({{"Ada", photoOf(1)}});
    second.add({{"Bela", photoOf(2)}});
    EXPECT_EQ(first.persons().size(), 2u);
    EXPECT_EQ(GalleryStore(path, GalleryStore::Access::Read).persons().size(), 2u);
    EXPECT_EQ(std::distance(fs::directory_iterator(folder), {}), 1) << "something was left beside the gallery";
    fs::remove_all(folder);
}

} // namespace
