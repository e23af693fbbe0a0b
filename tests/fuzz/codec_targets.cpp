// Base64, the storage form of the networks, and templates, against plain forms of the same.

#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"
#include "models/network_store.hpp"

#include <veldan/feature_template.hpp>
#include <veldan/model_store.hpp>
#include <veldan/recognizer.hpp>
#include <veldan/template.hpp>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

namespace veldan_fuzz {
namespace {

using Bytes = std::vector<unsigned char>;

unsigned valueOf(char c) {
    static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const std::size_t at = alphabet.find(c);
    return at == std::string::npos ? 255 : static_cast<unsigned>(at);
}

// Decoding by its definition. What was written before a text was rejected stays in `out`.
int plainDecode(const std::string& text, Bytes& out) {
    out.clear();
    if (text.empty() || text.size() % 4 != 0)
        return 0;
    const std::size_t padding = text[text.size() - 2] == '=' ? 2 : text.back() == '=' ? 1 : 0;
    const auto put = [&](unsigned value) { out.push_back(static_cast<unsigned char>(value)); };
    std::size_t at = 0;
    for (; at < (text.size() - padding) / 4 * 4; at += 4) {
        unsigned v[4];
        for (std::size_t k = 0; k < 4; ++k)
            v[k] = valueOf(text[at + k]);
        if (std::find(v, v + 4, 255U) != v + 4)
            return 0;
        put(v[0] << 2 | v[1] >> 4);
        put(v[1] << 4 | v[2] >> 2);
        put(v[2] << 6 | v[3]);
    }
    if (padding > 0)
        put(valueOf(text[at]) << 2 | valueOf(text[at + 1]) >> 4);
    if (padding == 1)
        put(valueOf(text[at + 1]) << 4 | valueOf(text[at + 2]) >> 2);
    return static_cast<int>(out.size());
}

// A decoding of an intact template, from its layout.
bool isIntact(const Bytes& bytes, int kind) {
    unsigned sum = 0;
    for (const unsigned char byte : bytes)
        sum ^= byte;
    return bytes.size() >= 8 && sum == 0 &&
           std::equal(bytes.begin(), bytes.begin() + 7, kind == 1 ? "VD_V5.0" : "VD_V5.4");
}

void judgeTemplate(const veldan::Template& one, veldan::Kind kind) {
    const bool intact = isIntact({one.begin(), one.end()}, static_cast<int>(kind));
    require(veldan::plausible(one, kind) == (*veldan::flawOf(one, kind) == '\0'));
    require(intact || !veldan::plausible(one, kind));
    if (!veldan::plausible(one, kind))
        return;
    // Whatever is taken for a template has bounded similarities.
    float feature[128];
    std::memcpy(feature, one.data() + 8, sizeof feature);
    float other[128];
    for (std::size_t k = 0; k < 128; ++k)
        other[k] = static_cast<float>(std::sin(static_cast<double>(k * k)));
    MOBILEFACENET recognizer;
    const double score = recognizer.mfFeatureMatch(feature, other);
    require(score > -1e-6 && score < 1 + 1e-6);
    require(std::abs(recognizer.mfFeatureMatch(feature, feature) - 1) < 1e-6);
}

} // namespace

void base64(const std::uint8_t* data, std::size_t size) {
    const auto text = exactCopy(data, size);
    const auto length = static_cast<int>(size);
    Bytes expected;
    const int plain = plainDecode({data, data + size}, expected);
    Bytes out(std::max<std::size_t>(size / 4 * 3, 1), 0xA5);
    require(B64Decode(reinterpret_cast<const char*>(text.get()), length, out.data()) == plain);
    require(std::equal(expected.begin(), expected.end(), out.begin()));
    require(std::all_of(out.begin() + static_cast<std::ptrdiff_t>(expected.size()), out.end(),
                        [](unsigned char byte) { return byte == 0xA5; }));

    std::string encoded((size + 2) / 3 * 4, '?');
    const auto room = static_cast<int>(encoded.size());
    if (size > 0)
        require(B64Encode(text.get(), length, encoded.data(), room - 1) == 0 && encoded[0] == '?');
    require(B64Encode(text.get(), length, encoded.data(), room) == room);
    require(plainDecode(encoded, expected) == length && std::equal(expected.begin(), expected.end(), data));
}

void storedNetwork(const std::uint8_t* data, std::size_t size) {
    constexpr int most = 1 << 12;
    Input input(data, size);
    const int base64Length = input.take<std::int32_t>() % most;
    const int length = input.take<std::int32_t>() % most;
    // Chunks end with a zero each, as in the library.
    std::vector<std::string> chunks;
    std::string joined;
    for (const std::uint8_t *at = input.rest(), *end = at + input.left(); at < end;) {
        const std::uint8_t* stop = std::find(at, end, 0);
        chunks.emplace_back(at, stop);
        joined += chunks.back();
        at = stop + (stop < end ? 1 : 0);
    }
    std::vector<std::unique_ptr<unsigned char[]>> copies;
    std::vector<const char*> pointers;
    for (const std::string& chunk : chunks) {
        copies.push_back(exactCopy(reinterpret_cast<const std::uint8_t*>(chunk.c_str()), chunk.size() + 1));
        pointers.push_back(reinterpret_cast<const char*>(copies.back().get()));
    }
    Bytes expected;
    const bool fits = base64Length >= 0 && length >= 0 && joined.size() <= static_cast<std::size_t>(base64Length);
    if (fits)
        joined.resize(static_cast<std::size_t>(base64Length));
    const bool right = fits && plainDecode(joined, expected) == length;
    Bytes out(static_cast<std::size_t>(std::max(length, 1)), 0xA5);
    const int code = veldan::decodeStoredNetwork(pointers.data(), static_cast<int>(pointers.size()), base64Length,
                                                 length, out.data());
    require(code == (right ? 0 : -1));
    if (right)
        require(std::equal(out.begin(), out.begin() + length, expected.begin()));
    else
        require(std::all_of(out.begin(), out.end(), [](unsigned char byte) { return byte == 0xA5; }));
}

void featureTemplate(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const int kind = input.byte() % 4;
    const bool repaired = input.byte() % 2 != 0;
    Bytes bytes(input.rest(), input.rest() + input.left());
    if (repaired && bytes.size() >= 8)
        AddSum(bytes.data(), static_cast<int>(bytes.size()), 7);
    const auto exact = exactCopy(bytes.data(), bytes.size());
    Bytes feature(std::max<std::size_t>(bytes.size(), 8) - 8 + 1, 0xA5);
    const int code = TzDecode(kind, exact.get(), static_cast<int>(bytes.size()), feature.data());
    require((code == 0) == isIntact(bytes, kind));
    require(code != -1 || bytes.size() < 8 || CheckSum(exact.get(), static_cast<int>(bytes.size()), 7) == -1);
    require(feature.back() == 0xA5);
    if (code == 0) {
        Bytes again(bytes.size());
        require(TzEncode(kind, feature.data(), static_cast<int>(bytes.size() - 8), again.data()) == 0);
        require(again == bytes);
    } else {
        require(std::all_of(feature.begin(), feature.end(), [](unsigned char byte) { return byte == 0xA5; }));
    }

    veldan::Template one{};
    std::copy_n(bytes.begin(), std::min(bytes.size(), one.size()), one.begin());
    judgeTemplate(one, veldan::Kind::Bare);
    judgeTemplate(one, veldan::Kind::Masked);
    // The same values with a tag and a checksum that hold, which is where foreign values matter.
    veldan::Template sound{};
    TzEncode(kind, one.data() + 8, static_cast<int>(one.size() - 8), sound.data());
    judgeTemplate(sound, kind == 1 ? veldan::Kind::Bare : veldan::Kind::Masked);
}

} // namespace veldan_fuzz
