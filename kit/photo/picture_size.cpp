#include "photo/picture_size.hpp"

#include "photo/heif.hpp"
#include "photo/picture_format.hpp"

#include <cstddef>
#include <cstdlib>

namespace veldan::kit {

namespace {

using Size = std::optional<PictureSize>;

/** Reads numbers of a file; what lies behind its end is none. */
class Numbers {
public:
    Numbers(const std::vector<unsigned char>& bytes, bool bigEndian) : bytes_(bytes), bigEndian_(bigEndian) {}

    bool reach(std::uint64_t at, std::uint64_t size) const { return at <= bytes_.size() && size <= bytes_.size() - at; }
    /** Of a number that is in reach. */
    std::uint32_t number(std::uint64_t at, std::size_t size) const {
        std::uint32_t value = 0;
        for (std::size_t i = 0; i < size; ++i)
            value = value << 8 | bytes_[static_cast<std::size_t>(at) + (bigEndian_ ? i : size - 1 - i)];
        return value;
    }

private:
    const std::vector<unsigned char>& bytes_;
    bool bigEndian_;
};

/** Segments up to the first frame header; what stands between them is passed over, as decoders do. */
Size jpegSize(const std::vector<unsigned char>& bytes) {
    const Numbers file(bytes, true);
    for (std::uint64_t at = 2; file.reach(at, 4);) {
        const std::uint32_t marker = file.number(at, 2);
        if (marker < 0xff01 || marker == 0xffff || marker == 0xff01 || (marker >= 0xffd0 && marker <= 0xffd8)) {
            ++at;
            continue;
        }
        const bool frame =
            marker >= 0xffc0 && marker <= 0xffcf && marker != 0xffc4 && marker != 0xffc8 && marker != 0xffcc;
        if (frame && file.reach(at, 9))
            return PictureSize{file.number(at + 7, 2), file.number(at + 5, 2)};
        if (frame || marker == 0xffd9)
            return {};
        at += 2 + file.number(at + 2, 2);
    }
    return {};
}

Size pngSize(const std::vector<unsigned char>& bytes) {
    const Numbers file(bytes, true);
    return file.reach(0, 24) ? Size(PictureSize{file.number(16, 4), file.number(20, 4)}) : Size();
}

Size webpSize(const std::vector<unsigned char>& bytes) {
    const Numbers file(bytes, false);
    if (!file.reach(0, 30))
        return {};
    switch (file.number(12, 4)) {
    case 0x20385056: // "VP8 "
        return PictureSize{file.number(26, 2) & 0x3fff, file.number(28, 2) & 0x3fff};
    case 0x4c385056: { // "VP8L"
        const std::uint32_t packed = file.number(21, 4);
        return PictureSize{(packed & 0x3fff) + 1, (packed >> 14 & 0x3fff) + 1};
    }
    case 0x58385056: // "VP8X"
        return PictureSize{std::uint64_t{file.number(24, 3)} + 1, std::uint64_t{file.number(27, 3)} + 1};
    default:
        return {};
    }
}

Size bmpSize(const std::vector<unsigned char>& bytes) {
    const Numbers file(bytes, false);
    if (!file.reach(0, 26))
        return {};
    if (file.number(14, 4) == 12) // the header of OS/2
        return PictureSize{file.number(18, 2), file.number(20, 2)};
    const auto side = [&](std::uint64_t at) { // rows may be counted downwards
        return static_cast<std::uint64_t>(std::llabs(static_cast<std::int32_t>(file.number(at, 4))));
    };
    return PictureSize{side(18), side(22)};
}

/** Width and height among the entries of the first directory. */
Size tiffSize(const std::vector<unsigned char>& bytes) {
    const Numbers file(bytes, bytes[0] == 'M');
    if (!file.reach(0, 8))
        return {};
    const std::uint64_t directory = file.number(4, 4);
    if (!file.reach(directory, 2))
        return {};
    PictureSize size;
    const std::uint32_t entries = file.number(directory, 2);
    for (std::uint64_t at = directory + 2; at < directory + 2 + std::uint64_t{12} * entries && file.reach(at, 12);
         at += 12) {
        const std::uint32_t tag = file.number(at, 2);
        const std::uint32_t value = file.number(at + 2, 2) == 3 ? file.number(at + 8, 2) : file.number(at + 8, 4);
        if (tag == 256)
            size.width = value;
        if (tag == 257)
            size.height = value;
    }
    return size.pixels() > 0 ? Size(size) : Size();
}

} // namespace

std::optional<PictureSize> pictureSize(const std::vector<unsigned char>& bytes) {
    switch (formatOf(bytes)) {
    case PictureFormat::Jpeg:
        return jpegSize(bytes);
    case PictureFormat::Png:
        return pngSize(bytes);
    case PictureFormat::Webp:
        return webpSize(bytes);
    case PictureFormat::Bmp:
        return bmpSize(bytes);
    case PictureFormat::Tiff:
        return tiffSize(bytes);
    case PictureFormat::Heic:
    case PictureFormat::Avif:
        return heifSize(bytes);
    default:
        return {};
    }
}

} // namespace veldan::kit
