#include <veldan/model_store.hpp>

#include <gtest/gtest.h>

#include <climits>
#include <random>
#include <string>
#include <vector>

namespace {

const std::string letters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char canary = 0xA5;

struct Decoded {
    int count;
    std::vector<unsigned char> bytes; // whole output buffer, with the canary where nothing was written

    bool operator==(const Decoded& other) const { return count == other.count && bytes == other.bytes; }
};

void PrintTo(const Decoded& d, std::ostream* out) {
    *out << d.count << " bytes:";
    for (unsigned char byte : d.bytes)
        *out << ' ' << int{byte};
}

Decoded decode(const std::string& text) {
    // As many bytes as the documentation promises to suffice, on the heap, where a sanitizer watches the end.
    Decoded result{0, std::vector<unsigned char>(text.size() / 4 * 3, canary)};
    result.count = B64Decode(text.data(), static_cast<int>(text.size()), result.bytes.data());
    return result;
}

// The rule, a character at a time.
Decoded expectedDecode(const std::string& text) {
    Decoded result{0, std::vector<unsigned char>(text.size() / 4 * 3, canary)};
    const auto value = [](char c) {
        const std::size_t position = letters.find(c);
        return position == std::string::npos ? 255U : static_cast<unsigned>(position);
    };
    std::size_t padding = 0;
    if (text[text.size() - 2] == '=')
        padding = 2;
    else if (text.back() == '=')
        padding = 1;
    std::size_t at = 0;
    for (std::size_t group = 0; group < text.size() / 4; ++group) {
        const unsigned v[] = {value(text[4 * group]), value(text[4 * group + 1]), value(text[4 * group + 2]),
                              value(text[4 * group + 3])};
        const bool last = padding != 0 && group == text.size() / 4 - 1;
        if (!last && (v[0] == 255 || v[1] == 255 || v[2] == 255 || v[3] == 255))
            return result;
        const unsigned bytes[] = {v[0] << 2 | v[1] >> 4, v[1] << 4 | v[2] >> 2, v[2] << 6 | v[3]};
        for (std::size_t k = 0; k < (last ? 3 - padding : 3); ++k)
            result.bytes[at++] = static_cast<unsigned char>(bytes[k] % 256);
    }
    result.count = static_cast<int>(at);
    return result;
}

std::string encode(const std::string& bytes) {
    std::string text((bytes.size() + 2) / 3 * 4 + 1, '~');
    const int written = B64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()),
                                  text.data(), static_cast<int>(text.size()));
    EXPECT_EQ(written, static_cast<int>(text.size()) - 1);
    EXPECT_EQ(text.back(), '~') << "wrote past the end";
    text.pop_back();
    return text;
}

TEST(Base64, KnownPairs) {
    // RFC 4648, and bytes that need the last two letters of the alphabet.
    const std::pair<std::string, std::string> pairs[] = {
        {"f", "Zg=="},         {"fo", "Zm8="},           {"foo", "Zm9v"},          {"foob", "Zm9vYg=="},
        {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},   {"Man", "TWFu"},          {"Ma", "TWE="},
        {"M", "TQ=="},         {"\xFB\xEF\xBE", "++++"}, {"\xFF\xFF\xFF", "////"}, {std::string(3, '\0'), "AAAA"},
    };
    for (const auto& [bytes, text] : pairs) {
        EXPECT_EQ(encode(bytes), text);
        const Decoded back = decode(text);
        ASSERT_EQ(back.count, static_cast<int>(bytes.size())) << text;
        EXPECT_EQ(std::string(back.bytes.begin(), back.bytes.begin() + back.count), bytes);
    }
}

TEST(Base64, EveryLengthComesBack) {
    std::mt19937 random(1);
    for (std::size_t size = 1; size < 300; ++size) {
        std::string bytes(size, '\0');
        for (char& c : bytes)
            c = static_cast<char>(random());
        const std::string text = encode(bytes);
        EXPECT_EQ(text.find_first_not_of(letters + "="), std::string::npos);
        const Decoded back = decode(text);
        ASSERT_EQ(back.count, static_cast<int>(size));
        EXPECT_EQ(std::string(back.bytes.begin(), back.bytes.begin() + back.count), bytes);
    }
}

// Texts long enough for the decoder's wide steps, with each kind of ending.
class Base64AnyByte : public testing::TestWithParam<std::tuple<int, const char*>> {};

TEST_P(Base64AnyByte, AtEveryPosition) {
    const auto [groups, ending] = GetParam();
    std::string text;
    for (int i = 0; i < groups * 4; ++i)
        text += letters[static_cast<std::size_t>(i * 11 + 5) % letters.size()];
    text += ending;
    for (std::size_t position = 0; position < text.size(); ++position) {
        for (int byte = 0; byte < 256; ++byte) {
            std::string changed = text;
            changed[position] = static_cast<char>(byte);
            ASSERT_EQ(decode(changed), expectedDecode(changed)) << "byte " << byte << " at " << position;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Endings, Base64AnyByte,
                         testing::Combine(testing::Values(0, 1, 3, 4, 5, 11), testing::Values("Zm9v", "Zm8=", "Zg==")));

TEST(Base64, RandomTextsFollowTheRule) {
    std::mt19937 random(2);
    const std::string pool = letters + letters + letters + "==*";
    for (int round = 0; round < 20000; ++round) {
        std::string text(4 * (1 + random() % 12), '\0');
        for (char& c : text)
            c = pool[random() % pool.size()];
        ASSERT_EQ(decode(text), expectedDecode(text)) << text;
    }
}

TEST(Base64, RejectedTextLengths) {
    const std::string text = "TWFuTWFu";
    for (int length : {INT_MIN, -8, -4, -1, 0, 1, 2, 3, 5, 6, 7}) {
        unsigned char out[6] = {canary, canary, canary, canary, canary, canary};
        EXPECT_EQ(B64Decode(text.data(), length, out), 0) << length;
        for (unsigned char byte : out)
            EXPECT_EQ(byte, canary) << length;
    }
    unsigned char out[3];
    EXPECT_EQ(B64Decode(nullptr, 4, out), 0);
    EXPECT_EQ(B64Decode(text.data(), 4, nullptr), 0);
}

TEST(Base64, EncodingNeedsRoom) {
    const unsigned char bytes[] = {1, 2, 3, 4};
    for (int length = 0; length <= 4; ++length) {
        const int needed = (length + 2) / 3 * 4;
        for (int room = -1; room <= 9; ++room) {
            std::string out(9, '~');
            EXPECT_EQ(B64Encode(bytes, length, out.data(), room), room < needed ? 0 : needed);
            EXPECT_EQ(out.find('~'), room < needed ? 0U : static_cast<std::size_t>(needed));
        }
    }
    char out[8];
    EXPECT_EQ(B64Encode(bytes, -1, out, 8), 0);
    EXPECT_EQ(B64Encode(bytes, INT_MIN, out, 8), 0);
    EXPECT_EQ(B64Encode(bytes, INT_MAX, out, 8), 0);
    EXPECT_EQ(B64Encode(bytes, INT_MAX, out, INT_MAX), 0) << "the text would not fit an int";
    EXPECT_EQ(B64Encode(nullptr, 1, out, 8), 0);
    EXPECT_EQ(B64Encode(bytes, 1, nullptr, 8), 0);
}

} // namespace
