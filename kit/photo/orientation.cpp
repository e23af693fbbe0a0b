#include "photo/orientation.hpp"

#include <veldan/image_tool.h>

#include <algorithm>
#include <cstring>
#include <libexif/exif-data.h>
#include <memory>

namespace veldan::kit {

namespace {

struct ExifDataRelease {
    void operator()(ExifData* data) const { exif_data_unref(data); }
};

int orientationOf(const unsigned char* exif, std::size_t size) {
    // libexif wants the marker that EXIF data have in JPEG files; in WebP files most writers leave it out.
    static constexpr unsigned char marker[] = {'E', 'x', 'i', 'f', 0, 0};
    std::vector<unsigned char> block;
    if (size < sizeof marker || std::memcmp(exif, marker, sizeof marker) != 0)
        block.assign(marker, marker + sizeof marker);
    block.insert(block.end(), exif, exif + size);

    const std::unique_ptr<ExifData, ExifDataRelease> data(
        exif_data_new_from_data(block.data(), static_cast<unsigned int>(block.size())));
    if (!data)
        return 1;
    const ExifEntry* entry = exif_content_get_entry(data->ifd[EXIF_IFD_0], EXIF_TAG_ORIENTATION);
    if (entry == nullptr || entry->format != EXIF_FORMAT_SHORT || entry->components != 1)
        return 1;
    const int orientation = exif_get_short(entry->data, exif_data_get_byte_order(data.get()));
    return orientation >= 1 && orientation <= 8 ? orientation : 1;
}

void rotate(Photo& photo, int angle) {
    std::vector<unsigned char> turned(photo.pixels.size());
    int width = 0;
    int height = 0;
    ImageRotate(photo.pixels.data(), photo.width, photo.height, angle, turned.data(), &width, &height);
    photo.width = width;
    photo.height = height;
    photo.pixels = std::move(turned);
}

void mirrorLeftRight(Photo& photo) {
    std::vector<unsigned char> mirrored(photo.pixels.size());
    ImageFlip(photo.pixels.data(), photo.width, photo.height, 1, mirrored.data());
    photo.pixels.swap(mirrored);
}

} // namespace

int webpOrientation(const std::vector<unsigned char>& bytes) {
    constexpr std::size_t fileHeader = 12;
    constexpr std::size_t chunkHeader = 8;
    if (bytes.size() < fileHeader || std::memcmp(bytes.data(), "RIFF", 4) != 0 ||
        std::memcmp(bytes.data() + 8, "WEBP", 4) != 0)
        return 1;
    std::size_t at = fileHeader;
    while (bytes.size() - at >= chunkHeader) {
        const unsigned char* chunk = bytes.data() + at;
        const std::size_t stated = chunk[4] | static_cast<std::size_t>(chunk[5]) << 8 |
                                   static_cast<std::size_t>(chunk[6]) << 16 | static_cast<std::size_t>(chunk[7]) << 24;
        const std::size_t size = std::min(stated, bytes.size() - at - chunkHeader);
        if (std::memcmp(chunk, "EXIF", 4) == 0)
            return orientationOf(chunk + chunkHeader, size);
        at += chunkHeader + size;
        at += std::min<std::size_t>(size % 2, bytes.size() - at); // chunks begin at even places
    }
    return 1;
}

void turnUpright(Photo& photo, int orientation) {
    // Stored orientations: 1 upright, 3 on its head, 6 lying on its left side, 8 on its right side; each even-odd
    // partner is the same, mirrored.
    switch (orientation) {
    case 2:
        mirrorLeftRight(photo);
        break;
    case 3:
        rotate(photo, 180);
        break;
    case 4:
        rotate(photo, 180);
        mirrorLeftRight(photo);
        break;
    case 5:
        rotate(photo, 90);
        mirrorLeftRight(photo);
        break;
    case 6:
        rotate(photo, 90);
        break;
    case 7:
        rotate(photo, 270);
        mirrorLeftRight(photo);
        break;
    case 8:
        rotate(photo, 270);
        break;
    default:
        break;
    }
}

} // namespace veldan::kit
