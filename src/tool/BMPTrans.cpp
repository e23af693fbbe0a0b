#include "tool/report.hpp"

#include <veldan/image_tool.hpp>

#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstring>

using veldan::report;

namespace {

// Size of both headers, and where the pixels begin when there is no palette.
constexpr std::size_t headerBytes = 54;
constexpr std::size_t paletteBytes = std::size_t{256} * 4;

// Where a header field begins.
enum Field : std::size_t {
    fileSizeAt = 2,
    pixelOffsetAt = 10,
    infoSizeAt = 14,
    widthAt = 18,
    heightAt = 22,
    planesAt = 26,
    bitsAt = 28,
    pixelBytesAt = 34
};

unsigned readU16(const unsigned char* bytes) {
    return bytes[0] | static_cast<unsigned>(bytes[1]) << 8;
}

std::int32_t readI32(const unsigned char* bytes) {
    return static_cast<std::int32_t>(readU16(bytes) | readU16(bytes + 2) << 16);
}

void writeU16(unsigned char* bytes, unsigned value) {
    bytes[0] = static_cast<unsigned char>(value);
    bytes[1] = static_cast<unsigned char>(value >> 8);
}

void writeU32(unsigned char* bytes, std::uint32_t value) {
    writeU16(bytes, value & 0xFFFFU);
    writeU16(bytes + 2, value >> 16);
}

// How the pixel rows of a file lie: stride bytes apart from pixelOffset on. 64 bits hold the length of any file that a
// 32-bit width and height can announce.
struct Layout {
    std::uint64_t pixelOffset;
    std::uint64_t stride;

    std::uint64_t fileBytes(std::uint64_t height) const { return pixelOffset + height * stride; }
};

// For 8, 24 and 32 bits; width is not negative.
Layout layoutOf(unsigned bits, std::int32_t width) {
    const auto w = static_cast<std::uint64_t>(width);
    switch (bits) {
    case 8:
        return {headerBytes + paletteBytes, (w + 3) / 4 * 4};
    case 24:
        return {headerBytes, (w + 1) * 3 / 4 * 4};
    default:
        return {headerBytes, w * 4};
    }
}

} // namespace

// The offset field, the compression field and the palette are left unread on purpose: the pixels are where RawToBMP
// puts them, and a top-down file (negative height) has, read this way, no rows.
int BMPToRaw(unsigned char* bmp, int size, unsigned char* out, int* width, int* height, int* channels) {
    constexpr int notBmp = -1;
    constexpr int unsupportedDepth = -2;
    // Callers that pass no length, 0 or a length that overflowed, get what they vouch for. A positive length is a
    // promise that nothing beyond it is read.
    const bool sizeKnown = size > 0;
    const auto limit = static_cast<std::uint64_t>(sizeKnown ? size : 0);

    if (bmp == nullptr || (sizeKnown && limit < headerBytes) || bmp[0] != 'B' || bmp[1] != 'M')
        return notBmp;
    const std::int32_t fileWidth = readI32(bmp + widthAt);
    const std::int32_t fileHeight = readI32(bmp + heightAt);
    const unsigned bits = readU16(bmp + bitsAt);
    const bool supported = bits == 8 || bits == 24 || bits == 32;
    // Without columns there are no rows to go through either, however many are announced.
    const auto rows = static_cast<std::uint64_t>(fileHeight > 0 && fileWidth != 0 ? fileHeight : 0);
    Layout layout{};
    if (supported) {
        if (fileWidth < 0)
            return notBmp;
        layout = layoutOf(bits, fileWidth);
        // Asked before the sizes are reported, also when only they are wanted: nobody should make room for a picture
        // that will then be refused.
        if (sizeKnown && rows > 0 && limit < layout.fileBytes(rows))
            return notBmp;
    }

    report(width, fileWidth);
    report(height, fileHeight);
    report(channels, bits == 32 ? 3 : static_cast<int>(bits / 8));
    if (out == nullptr)
        return 0;
    if (!supported)
        return unsupportedDepth;

    const auto pixels = static_cast<std::size_t>(fileWidth);
    const std::size_t outStride = bits == 8 ? pixels : pixels * 3;
    for (std::uint64_t row = 0; row < rows; ++row, out += outStride) {
        const unsigned char* in = bmp + layout.pixelOffset + (rows - 1 - row) * layout.stride;
        if (bits != 32) {
            std::memcpy(out, in, outStride);
            continue;
        }
        for (std::size_t pixel = 0; pixel < pixels; ++pixel) {
            out[pixel * 3] = in[pixel * 4];
            out[pixel * 3 + 1] = in[pixel * 4 + 1];
            out[pixel * 3 + 2] = in[pixel * 4 + 2];
        }
    }
    return 1;
}

int RawToBMP(unsigned char* raw, int width, int height, int channels, unsigned char* out, int* outSize) {
    report(outSize, 0);
    if (raw == nullptr || width < 0 || height < 0)
        return 1;
    const bool grey = channels == 1;
    const auto rows = static_cast<std::size_t>(height);
    const Layout layout = layoutOf(grey ? 8 : 24, width);
    const std::uint64_t fileBytes = layout.fileBytes(rows);
    if (fileBytes > INT_MAX)
        return 1;
    report(outSize, static_cast<int>(fileBytes));
    if (out == nullptr)
        return 1;

    std::memset(out, 0, layout.pixelOffset);
    out[0] = 'B';
    out[1] = 'M';
    writeU32(out + fileSizeAt, static_cast<std::uint32_t>(fileBytes));
    writeU32(out + pixelOffsetAt, static_cast<std::uint32_t>(layout.pixelOffset));
    writeU32(out + infoSizeAt, 40);
    writeU32(out + widthAt, static_cast<std::uint32_t>(width));
    writeU32(out + heightAt, static_cast<std::uint32_t>(height));
    writeU16(out + planesAt, 1);
    writeU16(out + bitsAt, grey ? 8 : 24);
    writeU32(out + pixelBytesAt, static_cast<std::uint32_t>(rows * layout.stride));
    if (grey) {
        unsigned char* entry = out + headerBytes;
        for (int level = 0; level < 256; ++level, entry += 4)
            std::memset(entry, level, 3);
    }

    const std::size_t rowBytes = static_cast<std::size_t>(width) * (grey ? 1 : 3);
    for (std::size_t row = 0; row < rows && rowBytes > 0; ++row, raw += rowBytes) {
        unsigned char* line = out + layout.pixelOffset + (rows - 1 - row) * layout.stride;
        std::memcpy(line, raw, rowBytes);
        std::memset(line + rowBytes, 0, layout.stride - rowBytes);
    }
    return 1;
}
