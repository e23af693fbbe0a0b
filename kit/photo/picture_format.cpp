#include "photo/picture_format.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace veldan::kit {

namespace {

using Bytes = std::vector<unsigned char>;

bool has(const Bytes& bytes, std::size_t at, std::string_view mark) {
    return bytes.size() >= at + mark.size() &&
           std::equal(mark.begin(), mark.end(), bytes.begin() + static_cast<std::ptrdiff_t>(at),
                      [](char a, unsigned char b) { return static_cast<unsigned char>(a) == b; });
}

std::uint64_t bigEndian(const Bytes& bytes, std::size_t at, std::size_t size) {
    std::uint64_t number = 0;
    for (std::size_t i = at; i < at + size; ++i)
        number = number << 8 | bytes[i];
    return number;
}

std::uint64_t littleEndian(const Bytes& bytes, std::size_t at) {
    return bytes[at] | std::uint64_t{bytes[at + 1]} << 8 | std::uint64_t{bytes[at + 2]} << 16 |
           std::uint64_t{bytes[at + 3]} << 24;
}

/** Chunks of length, type, data and checksum, up to IEND. */
bool pngEndsTooSoon(const Bytes& bytes) {
    for (std::size_t at = 8; at + 12 <= bytes.size();) {
        if (has(bytes, at + 4, "IEND"))
            return false;
        at += static_cast<std::size_t>(bigEndian(bytes, at, 4)) + 12;
    }
    return true;
}

/** Boxes of length and type; a length of 0 reaches to the end, one of 1 is followed by a longer one. */
bool boxesEndTooSoon(const Bytes& bytes) {
    std::uint64_t at = 0;
    while (at + 8 <= bytes.size()) {
        std::uint64_t size = bigEndian(bytes, static_cast<std::size_t>(at), 4);
        if (size == 1 && at + 16 <= bytes.size())
            size = bigEndian(bytes, static_cast<std::size_t>(at) + 8, 8);
        if (size < 8)
            return false;
        if (size > bytes.size() - at)
            return true;
        at += size;
    }
    return at != bytes.size();
}

} // namespace

PictureFormat formatOf(const Bytes& bytes) {
    struct Mark {
        std::size_t at;
        std::string_view mark;
        PictureFormat format;
    };
    static constexpr std::array<Mark, 22> marks = {{
        {0, "\xff\xd8\xff", PictureFormat::Jpeg},
        {0, "\x89PNG\r\n\x1a\n", PictureFormat::Png},
        {8, "WEBP", PictureFormat::Webp},
        {0, "BM", PictureFormat::Bmp},
        {0, std::string_view("II*\0", 4), PictureFormat::Tiff},
        {0, std::string_view("MM\0*", 4), PictureFormat::Tiff},
        {0, "GIF87a", PictureFormat::Gif},
        {0, "GIF89a", PictureFormat::Gif},
        {4, "ftypavif", PictureFormat::Avif},
        {4, "ftypavis", PictureFormat::Avif},
        {4, "ftypheic", PictureFormat::Heic},
        {4, "ftypheix", PictureFormat::Heic},
        {4, "ftyphevc", PictureFormat::Heic},
        {4, "ftypheim", PictureFormat::Heic},
        {4, "ftypheis", PictureFormat::Heic},
        {4, "ftyphevm", PictureFormat::Heic},
        {4, "ftyphevs", PictureFormat::Heic},
        {4, "ftypmif1", PictureFormat::Heic},
        {4, "ftypmsf1", PictureFormat::Heic},
        {0, "#?RADIANCE", PictureFormat::Radiance},
        {0, "#?RGBE", PictureFormat::Radiance},
        {128, "DICM", PictureFormat::Dicom},
    }};
    for (const Mark& mark : marks)
        if (has(bytes, mark.at, mark.mark))
            return mark.format;
    return PictureFormat::Other;
}

const char* nameOf(PictureFormat format) {
    switch (format) {
    case PictureFormat::Jpeg:
        return "JPEG";
    case PictureFormat::Png:
        return "PNG";
    case PictureFormat::Webp:
        return "WebP";
    case PictureFormat::Bmp:
        return "BMP";
    case PictureFormat::Tiff:
        return "TIFF";
    case PictureFormat::Gif:
        return "GIF";
    case PictureFormat::Heic:
        return "HEIC";
    case PictureFormat::Avif:
        return "AVIF";
    case PictureFormat::Radiance:
        return "Radiance HDR";
    case PictureFormat::Dicom:
        return "DICOM";
    case PictureFormat::Other:
        break;
    }
    return "";
}

bool endsTooSoon(const Bytes& bytes, PictureFormat format) {
    switch (format) {
    case PictureFormat::Jpeg: {
        static constexpr std::array<unsigned char, 2> end = {0xff, 0xd9};
        return std::search(bytes.begin(), bytes.end(), end.begin(), end.end()) == bytes.end();
    }
    case PictureFormat::Png:
        return pngEndsTooSoon(bytes);
    case PictureFormat::Webp:
        return littleEndian(bytes, 4) + 8 > bytes.size();
    case PictureFormat::Bmp:
        return bytes.size() < 6 || littleEndian(bytes, 2) > bytes.size();
    case PictureFormat::Heic:
    case PictureFormat::Avif:
        return boxesEndTooSoon(bytes);
    default:
        return false;
    }
}

} // namespace veldan::kit
