// Gallery files, exported galleries, the orientation of WebP photos and the size that pictures tell, as the command
// reads them.

#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"
#include "gallery/exchange.hpp"
#include "gallery/store.hpp"
#include "photo/orientation.hpp"
#include "photo/photo.hpp"
#include "photo/picture_format.hpp"
#include "photo/picture_size.hpp"
#include "report/exit_codes.hpp"

#include <veldan/feature_template.hpp>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <string>
#include <unistd.h>
#include <vector>

namespace veldan_fuzz {
namespace {

namespace fs = std::filesystem;
using Bytes = std::vector<unsigned char>;

Bytes read(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write(const fs::path& path, const Bytes& bytes) {
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

veldan::Template someTemplate(veldan::Kind kind, int person) {
    float feature[128];
    for (int k = 0; k < 128; ++k)
        feature[k] = std::sin(static_cast<float>(k * (person + 1)));
    veldan::Template one{};
    TzEncode(static_cast<int>(kind), reinterpret_cast<const unsigned char*>(feature), sizeof feature, one.data());
    return one;
}

// A folder of the process with an intact gallery of three persons, as bytes too.
struct Shelf {
    fs::path folder = fs::temp_directory_path() / ("veldan-fuzz-" + std::to_string(::getpid()));
    fs::path file = folder / "gallery";
    Bytes intact;
    Bytes exported;

    Shelf() {
        fs::create_directory(folder);
        std::vector<veldan::kit::PersonPhoto> photos;
        for (int person = 0; person < 3; ++person)
            photos.push_back(
                {"person " + std::to_string(person),
                 {"photo.jpg", std::string(63, 'a') + static_cast<char>('0' + person), "2024-05-31T12:00:00Z",
                  80 + person, someTemplate(veldan::Kind::Bare, person), someTemplate(veldan::Kind::Masked, person)}});
        veldan::kit::GalleryStore store(file.string(), veldan::kit::GalleryStore::Access::Create);
        store.add(photos);
        intact = read(file);
        std::vector<veldan::kit::Unusable> unusable;
        const std::string text = veldan::kit::exportedGallery(store, unusable).dump();
        exported.assign(text.begin(), text.end());
    }
    ~Shelf() {
        std::error_code ignored;
        fs::remove_all(folder, ignored);
    }
};

const Shelf& shelf() {
    static const Shelf one;
    return one;
}

// The input itself, or the intact bytes with a few of them changed, which gets further than any bytes would.
Bytes damaged(Input& input, const Bytes& intact) {
    if (input.byte() % 2 == 0)
        return {input.rest(), input.rest() + input.left()};
    Bytes bytes = intact;
    while (input.left() > 0) {
        const std::size_t at = input.take<std::uint16_t>() % bytes.size();
        const int value = input.byte();
        if (at == 0 && bytes.size() > 1)
            bytes.resize(1 + bytes.size() * static_cast<std::size_t>(value) / 256);
        else
            bytes[at] = static_cast<unsigned char>(value);
    }
    return bytes;
}

void requireSound(const veldan::kit::EnrolledPhoto& photo) {
    require(veldan::kit::damageOf(photo).empty());
}

void galleryExchange(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Bytes text = damaged(input, shelf().exported);
    try {
        const veldan::kit::ExportedGallery gallery = veldan::kit::readExport(text);
        for (const veldan::kit::PersonPhoto& one : gallery.photos) {
            requireSound(one.photo);
            require(veldan::kit::refusalOfName(one.person).empty());
            require(one.photo.quality >= 0 && one.photo.quality <= 100);
            require(one.photo.digest.size() == 64 && one.photo.date.size() == 20);
        }
    } catch (const veldan::kit::CommandError&) {
        // It is something else altogether.
    }
}

void galleryFile(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Bytes bytes = damaged(input, shelf().intact);
    write(shelf().file, bytes);
    try {
        veldan::kit::GalleryStore store(shelf().file.string(), veldan::kit::GalleryStore::Access::Read);
        for (const veldan::kit::PersonSummary& person : store.persons())
            store.photosOf(person.name);
        veldan::kit::SearchableGallery gallery = store.searchable();
        require(gallery.bare.persons() == static_cast<int>(gallery.names.size()));
        require(gallery.bare.templates() == gallery.masked.templates());
        require(gallery.bare.templates() == gallery.origins.size());
        std::vector<veldan::kit::Unusable> unusable;
        veldan::kit::exportedGallery(store, unusable);
    } catch (const veldan::kit::CommandError&) {
        // Not a gallery, or a damaged one.
    }
    require(read(shelf().file) == bytes);
    require(std::distance(fs::directory_iterator(shelf().folder), fs::directory_iterator()) == 1);
}

void orientation(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const bool wrapped = input.byte() % 2 != 0;
    Bytes bytes(input.rest(), input.rest() + input.left());
    if (wrapped) {
        const std::string head = std::string("RIFF\0\0\0\0WEBPEXIF", 16);
        const auto length = static_cast<unsigned>(bytes.size());
        Bytes file(head.begin(), head.end());
        for (int k = 0; k < 4; ++k)
            file.push_back(static_cast<unsigned char>(length >> 8 * k));
        file.insert(file.end(), bytes.begin(), bytes.end());
        bytes = file;
    }
    bytes.shrink_to_fit();
    const int found = veldan::kit::webpOrientation(bytes);
    require(found >= 1 && found <= 8);
    veldan::kit::Photo photo;
    photo.width = 3;
    photo.height = 2;
    for (unsigned char k = 0; k < 18; ++k)
        photo.pixels.push_back(k);
    veldan::kit::turnUpright(photo, found);
    require(photo.width == (found >= 5 ? 2 : 3) && photo.height == (found >= 5 ? 3 : 2));
    require(std::set<unsigned char>(photo.pixels.begin(), photo.pixels.end()).size() == 18);
}

void pictureSize(const std::uint8_t* data, std::size_t size) {
    const Bytes bytes(data, data + size);
    const std::optional<veldan::kit::PictureSize> told = veldan::kit::pictureSize(bytes);
    if (told && told->pixels() > 1 << 20)
        return; // refused before anything is decoded
    try {
        const veldan::kit::Photo photo = veldan::kit::decodePhoto(bytes);
        // What is decoded without its size being known, or larger than told, would pass by every limit. Formats that
        // the program does not know by their first bytes are refused before.
        if (veldan::kit::formatOf(bytes) == veldan::kit::PictureFormat::Other)
            return;
        const auto pixels = static_cast<std::uint64_t>(photo.width) * static_cast<std::uint64_t>(photo.height);
        require(told && pixels <= told->pixels());
    } catch (const veldan::kit::CommandError&) {
        // No picture, or a damaged one.
    }
}

} // namespace

const std::vector<Target>& targets() {
    static const std::vector<Target> all = {{"gallery_exchange", galleryExchange},
                                            {"gallery_file", galleryFile},
                                            {"orientation", orientation},
                                            {"picture_size", pictureSize}};
    return all;
}

} // namespace veldan_fuzz
