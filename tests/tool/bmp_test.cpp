#include "tool/guarded_buffer.hpp"

#include <veldan/image_tool.hpp>

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <random>
#include <utility>
#include <vector>

namespace {

using veldan_tests::GuardedBuffer;
using Bytes = std::vector<unsigned char>;

struct Sizes {
    int width = -99;
    int height = -99;
    int channels = -99;

    bool operator==(const Sizes& other) const {
        return width == other.width && height == other.height && channels == other.channels;
    }
};

const Sizes untold;

void put(Bytes& file, std::size_t at, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        file[at + static_cast<std::size_t>(i)] = static_cast<unsigned char>(value >> (8 * i));
}

Bytes randomBytes(std::size_t count, unsigned seed = 1) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

// A file with what the converter reads set, and random bytes everywhere else.
Bytes bmpFile(int width, int height, int bits, std::size_t bytes) {
    Bytes file = randomBytes(bytes, 7);
    file[0] = 'B';
    file[1] = 'M';
    put(file, 18, static_cast<std::uint32_t>(width), 4);
    put(file, 22, static_cast<std::uint32_t>(height), 4);
    put(file, 28, static_cast<std::uint32_t>(bits), 2);
    return file;
}

int decode(Bytes& file, int size, unsigned char* out, Sizes& sizes) {
    return BMPToRaw(file.data(), size, out, &sizes.width, &sizes.height, &sizes.channels);
}

TEST(RawToBmp, WritesTheWholeColourFile) {
    Bytes raw(18);
    for (std::size_t i = 0; i < raw.size(); ++i)
        raw[i] = static_cast<unsigned char>(i + 1);
    const Bytes expected = {'B', 'M', 78, 0,  0,  0,  0,  0,  0,  0, 54, 0, 0, 0, // file header
                            40,  0,   0,  0,  3,  0,  0,  0,  2,  0, 0,  0, 1, 0, 24, 0,
                            0,   0,   0,  0,  24, 0,  0,  0,                             // size, form, bytes of pixels
                            0,   0,   0,  0,  0,  0,  0,  0,  0,  0, 0,  0, 0, 0, 0,  0, // resolution, colours
                            10,  11,  12, 13, 14, 15, 16, 17, 18, 0, 0,  0,              // bottom row
                            1,   2,   3,  4,  5,  6,  7,  8,  9,  0, 0,  0};             // top row
    GuardedBuffer out(78);
    int size = 0;
    EXPECT_EQ(RawToBMP(raw.data(), 3, 2, 3, out.data(), &size), 1);
    EXPECT_EQ(size, 78);
    EXPECT_EQ(out.bytes(), expected);
}

TEST(RawToBmp, WritesTheWholeGreyFile) {
    Bytes raw = {9, 8, 7, 6, 5};
    GuardedBuffer out(1086);
    int size = 0;
    EXPECT_EQ(RawToBMP(raw.data(), 5, 1, 1, out.data(), &size), 1);
    EXPECT_EQ(size, 1086);
    const Bytes file = out.bytes();
    EXPECT_EQ(Bytes(file.begin(), file.begin() + 38),
              (Bytes{'B', 'M', 0x3E, 0x04, 0, 0, 0, 0, 0, 0, 0x36, 0x04, 0, 0, 40, 0, 0, 0, 5,
                     0,   0,   0,    1,    0, 0, 0, 1, 0, 8, 0,    0,    0, 0, 0,  8, 0, 0, 0}));
    for (std::size_t i = 0; i < 256; ++i) {
        const auto level = static_cast<unsigned char>(i);
        EXPECT_EQ(Bytes(&file[54 + i * 4], &file[54 + i * 4] + 4), (Bytes{level, level, level, 0}));
    }
    EXPECT_EQ(Bytes(file.begin() + 1078, file.end()), (Bytes{9, 8, 7, 6, 5, 0, 0, 0}));
}

TEST(RawToBmp, AnyOtherChannelCountMeansThree) {
    Bytes raw = randomBytes(4 * 2 * 3);
    Bytes three(78), other(78);
    int size = 0;
    RawToBMP(raw.data(), 4, 2, 3, three.data(), &size);
    for (const int channels : {0, 2, 4, -1, 24}) {
        EXPECT_EQ(RawToBMP(raw.data(), 4, 2, channels, other.data(), &size), 1);
        EXPECT_EQ(other, three) << channels;
    }
}

TEST(RawToBmp, TellsZeroBytesWhereThereIsNoFile) {
    unsigned char pixel[3] = {};
    struct Case {
        unsigned char* raw;
        int width, height, channels;
    };
    // The last two would be 2,147,483,658 and 2,147,483,650 bytes: 54 or 1078 of them too many for an int.
    for (const Case& c : {Case{nullptr, 1, 1, 3}, Case{pixel, -1, 1, 3}, Case{pixel, 1, -1, 1}, Case{pixel, -5, -5, 3},
                          Case{pixel, INT_MAX, INT_MAX, 3}, Case{pixel, INT_MAX, INT_MAX, 1},
                          Case{pixel, 4, 178956967, 3}, Case{pixel, 4, 536870643, 1}}) {
        GuardedBuffer out(2048);
        int size = -7;
        EXPECT_EQ(RawToBMP(c.raw, c.width, c.height, c.channels, out.data(), &size), 1);
        EXPECT_EQ(size, 0) << c.width << " x " << c.height;
        EXPECT_TRUE(out.untouched());
    }
    // The largest that can be told, asked for without a buffer.
    int size = 0;
    EXPECT_EQ(RawToBMP(pixel, 4, 178956966, 3, nullptr, &size), 1);
    EXPECT_EQ(size, 2147483646);
    EXPECT_EQ(RawToBMP(pixel, 4, 536870642, 1, nullptr, &size), 1);
    EXPECT_EQ(size, 2147483646);
    Bytes out(58);
    EXPECT_EQ(RawToBMP(pixel, 1, 1, 3, out.data(), nullptr), 1);
    EXPECT_EQ(out[0], 'B');
}

TEST(RawToBmp, EmptyPicturesAreHeadersOnly) {
    unsigned char pixel[3] = {};
    for (const auto& [width, height] : {std::pair{0, 5}, {5, 0}, {0, 0}, {0, INT_MAX}}) {
        GuardedBuffer out(54);
        int size = 0;
        EXPECT_EQ(RawToBMP(pixel, width, height, 3, out.data(), &size), 1);
        EXPECT_EQ(size, 54);
        Sizes sizes;
        EXPECT_EQ(BMPToRaw(out.data(), 54, pixel, &sizes.width, &sizes.height, &sizes.channels), 1);
        EXPECT_TRUE((sizes == Sizes{width, height, 3}));
    }
}

void expectRoundTrip(int width, int height, int channels) {
    const std::size_t rowBytes = static_cast<std::size_t>(width) * static_cast<std::size_t>(channels);
    Bytes raw = randomBytes(rowBytes * static_cast<std::size_t>(height));
    // Rows padded to a multiple of four, in plain words.
    std::size_t stride = rowBytes;
    while (stride % 4 != 0)
        ++stride;
    const std::size_t expectedSize = (channels == 1 ? 1078 : 54) + stride * static_cast<std::size_t>(height);

    int size = 0;
    EXPECT_EQ(RawToBMP(raw.data(), width, height, channels, nullptr, &size), 1);
    ASSERT_EQ(static_cast<std::size_t>(size), expectedSize);
    GuardedBuffer file(expectedSize);
    EXPECT_EQ(RawToBMP(raw.data(), width, height, channels, file.data(), &size), 1);
    ASSERT_EQ(static_cast<std::size_t>(size), expectedSize);

    Sizes sizes;
    EXPECT_EQ(BMPToRaw(file.data(), size, nullptr, &sizes.width, &sizes.height, &sizes.channels), 0);
    EXPECT_TRUE((sizes == Sizes{width, height, channels}));
    GuardedBuffer back(raw.size());
    EXPECT_EQ(BMPToRaw(file.data(), size, back.data(), nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(back.bytes(), raw);
}

TEST(Bmp, RoundTripGivesTheRowsBack) {
    for (const int channels : {1, 3})
        for (const int height : {1, 2, 31})
            for (const int width : {1, 2, 3, 4, 5, 6, 7, 8, 1023}) {
                SCOPED_TRACE(testing::Message() << width << " x " << height << " x " << channels);
                expectRoundTrip(width, height, channels);
            }
}

TEST(BmpToRaw, DropsTheFourthByte) {
    Bytes file = bmpFile(2, 2, 32, 54 + 16);
    for (std::size_t i = 0; i < 16; ++i)
        file[54 + i] = static_cast<unsigned char>(i);
    GuardedBuffer out(12);
    Sizes sizes;
    EXPECT_EQ(decode(file, 70, out.data(), sizes), 1);
    EXPECT_TRUE((sizes == Sizes{2, 2, 3}));
    EXPECT_EQ(out.bytes(), (Bytes{8, 9, 10, 12, 13, 14, 0, 1, 2, 4, 5, 6}));
}

TEST(BmpToRaw, LooksAtNothingButSizeAndDepth) {
    // Two files whose other fields, palettes included, differ in every byte: offset, compression, planes, colours used.
    for (const int bits : {8, 24, 32}) {
        const std::size_t pixelsAt = bits == 8 ? 1078 : 54;
        Bytes one = bmpFile(3, 2, bits, pixelsAt + 24);
        Bytes other = one;
        for (std::size_t i = 2; i < pixelsAt; ++i)
            if ((i < 18 || i >= 26) && (i < 28 || i >= 30))
                other[i] ^= 0xFF;
        GuardedBuffer first(18), second(18);
        Sizes sizes;
        EXPECT_EQ(decode(one, static_cast<int>(one.size()), first.data(), sizes), 1);
        EXPECT_EQ(decode(other, static_cast<int>(other.size()), second.data(), sizes), 1);
        EXPECT_EQ(first.bytes(), second.bytes());
    }
}

TEST(BmpToRaw, ReportsTheSizesOfUnsupportedDepths) {
    struct Case {
        int bits, channels;
    };
    for (const Case& c :
         {Case{16, 2}, Case{1, 0}, Case{4, 0}, Case{0, 0}, Case{25, 3}, Case{48, 6}, Case{0xFFFF, 8191}}) {
        // Nothing but the header is read, whatever picture it announces.
        Bytes file = bmpFile(-8, INT_MAX, c.bits, 54);
        unsigned char out = 77;
        Sizes sizes;
        EXPECT_EQ(decode(file, 54, &out, sizes), -2);
        EXPECT_TRUE((sizes == Sizes{-8, INT_MAX, c.channels})) << c.bits;
        EXPECT_EQ(out, 77);
        EXPECT_EQ(decode(file, 54, nullptr, sizes), 0);
    }
}

TEST(BmpToRaw, RefusesOtherFiles) {
    Bytes file = bmpFile(1, 1, 24, 58);
    Sizes sizes;
    unsigned char out[3];
    EXPECT_EQ(BMPToRaw(nullptr, 58, out, &sizes.width, &sizes.height, &sizes.channels), -1);
    for (const char* signature : {"BN", "AM", "MB", "bm"}) {
        file[0] = static_cast<unsigned char>(signature[0]);
        file[1] = static_cast<unsigned char>(signature[1]);
        EXPECT_EQ(decode(file, 58, out, sizes), -1) << signature;
    }
    // A header that is cut short, though all that is read of it is there.
    for (const int bits : {16, 24}) {
        Bytes noRows = bmpFile(1, 0, bits, 53);
        EXPECT_EQ(decode(noRows, 53, out, sizes), -1);
    }
    EXPECT_TRUE(sizes == untold);
}

class BmpPrefix : public testing::TestWithParam<int> {};

TEST_P(BmpPrefix, IsRefusedWithoutReadingOn) {
    const int bits = GetParam();
    const std::size_t size = (bits == 8 ? 1078 : 54) + 5 * (bits == 8 ? 8 : bits == 24 ? 24 : 28);
    const Bytes whole = bmpFile(7, 5, bits, size);
    for (std::size_t length = 1; length <= size; ++length) {
        // Exactly as long as the prefix, so that AddressSanitizer sees a read past its end.
        Bytes prefix(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length));
        Bytes out(7 * 5 * 3);
        Sizes sizes;
        const bool complete = length == size;
        ASSERT_EQ(decode(prefix, static_cast<int>(length), out.data(), sizes), complete ? 1 : -1) << length;
        ASSERT_EQ(sizes == untold, !complete) << length;
        ASSERT_EQ(decode(prefix, static_cast<int>(length), nullptr, sizes), complete ? 0 : -1) << length;
    }
}

INSTANTIATE_TEST_SUITE_P(Bits, BmpPrefix, testing::Values(8, 24, 32));

TEST(BmpToRaw, RefusesPicturesThatCannotBeThere) {
    struct Case {
        int width, height, bits;
    };
    for (const Case& c :
         {Case{INT_MAX, INT_MAX, 8}, Case{INT_MAX, INT_MAX, 24}, Case{INT_MAX, INT_MAX, 32},
          // Lengths that are small, or negative, when reckoned in 32 bits.
          Case{0x40000000, 1, 32}, Case{0x40000000, 4, 32}, Case{0x10000, 0x10000, 8}, Case{1431655766, 1, 24},
          Case{0x55555556, 3, 24}, Case{INT_MAX, 1, 24}, Case{1, INT_MAX, 32},
          // Columns to the left of nothing.
          Case{-1, 1, 8}, Case{-1, 1, 24}, Case{-1, 1, 32}, Case{INT_MIN, INT_MIN, 24}, Case{-4, -4, 32}}) {
        Bytes file = bmpFile(c.width, c.height, c.bits, 2000);
        GuardedBuffer out(2000);
        Sizes sizes;
        EXPECT_EQ(decode(file, 2000, out.data(), sizes), -1) << c.width << " x " << c.height << " x " << c.bits;
        EXPECT_EQ(decode(file, 2000, nullptr, sizes), -1);
        EXPECT_TRUE(sizes == untold);
        EXPECT_TRUE(out.untouched());
    }
}

TEST(BmpToRaw, APictureWithoutPixelsIsItsHeader) {
    // A negative height, the sign of rows stored from top to bottom, counts as no rows.
    for (const auto& [width, height] : {std::pair{7, -1}, {7, -5}, {7, INT_MIN}, {7, 0}, {INT_MAX, 0}, {0, 5}})
        for (const int bits : {8, 24, 32})
            for (const int size : {54, 0}) {
                Bytes file = bmpFile(width, height, bits, 54);
                unsigned char out = 77;
                Sizes sizes;
                EXPECT_EQ(decode(file, size, &out, sizes), 1) << width << " x " << height << " x " << bits;
                EXPECT_TRUE((sizes == Sizes{width, height, bits == 8 ? 1 : 3}));
                EXPECT_EQ(out, 77);
            }
}

TEST(BmpToRaw, AnUnknownLengthIsTheCallersWord) {
    Bytes file = bmpFile(3, 2, 24, 78);
    Bytes expected(18), out(18);
    Sizes sizes;
    ASSERT_EQ(decode(file, 78, expected.data(), sizes), 1);
    for (const int size : {0, -1, INT_MIN, INT_MAX}) {
        out.assign(18, 0);
        EXPECT_EQ(decode(file, size, out.data(), sizes), 1) << size;
        EXPECT_EQ(out, expected);
    }
    // Columns that no memory can hold are refused all the same.
    Bytes bad = bmpFile(-1, 1, 24, 78);
    EXPECT_EQ(decode(bad, 0, out.data(), sizes), -1);
}

} // namespace
