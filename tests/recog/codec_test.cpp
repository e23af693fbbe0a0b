// Properties of templates, for random features of every kind.

#include <veldan/feature_template.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <random>
#include <string>
#include <sys/mman.h>
#include <ucontext.h>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

constexpr int featureBytes = 512;
constexpr int templateBytes = 520;

Bytes randomBytes(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    Bytes bytes(count);
    for (unsigned char& byte : bytes)
        byte = static_cast<unsigned char>(random());
    return bytes;
}

Bytes encode(int kind, const Bytes& feature) {
    Bytes data(feature.size() + 8, 0xA5);
    EXPECT_EQ(TzEncode(kind, feature.data(), static_cast<int>(feature.size()), data.data()), 0);
    return data;
}

// Decodes, and expects that a refused template leaves the output alone.
int decode(int kind, const Bytes& data, Bytes* feature = nullptr) {
    const Bytes before = randomBytes(data.size(), 99);
    Bytes out = before;
    const int code = TzDecode(kind, data.data(), static_cast<int>(data.size()), out.data());
    if (code != 0)
        EXPECT_EQ(out, before);
    else if (feature != nullptr)
        feature->assign(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(data.size()) - 8);
    return code;
}

class Codec : public testing::TestWithParam<int> {
protected:
    int kind = GetParam();
    std::string tag = kind == 1 ? "VD_V5.0" : "VD_V5.4";
};

TEST_P(Codec, LayoutAndWayBack) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{featureBytes}}) {
        const Bytes feature = randomBytes(size, static_cast<unsigned>(size) + 1);
        const Bytes data = encode(kind, feature);
        EXPECT_EQ(std::string(data.begin(), data.begin() + 7), tag);
        EXPECT_EQ(Bytes(data.begin() + 8, data.end()), feature);
        unsigned sum = 0;
        for (const unsigned char byte : data)
            sum ^= byte;
        EXPECT_EQ(sum, 0U) << "the checksum makes all bytes cancel out";
        Bytes back;
        EXPECT_EQ(decode(kind, data, &back), 0);
        EXPECT_EQ(back, feature);
    }
}

TEST_P(Codec, EverySingleBitCounts) {
    Bytes data = encode(kind, randomBytes(featureBytes, 5));
    for (int bit = 0; bit < templateBytes * 8; ++bit) {
        const auto byte = static_cast<std::size_t>(bit / 8);
        data[byte] = static_cast<unsigned char>(data[byte] ^ (1U << (bit % 8)));
        ASSERT_EQ(decode(kind, data), -1) << bit;
        data[byte] = static_cast<unsigned char>(data[byte] ^ (1U << (bit % 8)));
    }
    EXPECT_EQ(decode(kind, data), 0);
}

TEST_P(Codec, OrderIsNotSeen) {
    const Bytes data = encode(kind, randomBytes(featureBytes, 6));
    std::mt19937 random(7);
    for (int i = 0; i < 50; ++i) {
        const std::size_t a = 8 + random() % featureBytes;
        const std::size_t b = 8 + random() % featureBytes;
        Bytes swapped = data;
        std::swap(swapped[a], swapped[b]);
        EXPECT_EQ(decode(kind, swapped), 0);
        Bytes flipped = data;
        flipped[a] = static_cast<unsigned char>(flipped[a] ^ 4U);
        flipped[b] = static_cast<unsigned char>(flipped[b] ^ 4U);
        EXPECT_EQ(decode(kind, flipped), 0);
    }
}

TEST_P(Codec, KindsStayApart) {
    Bytes data = encode(kind, randomBytes(featureBytes, 8));
    for (const int asked : {-1, 0, 1, 2, 3})
        EXPECT_EQ(decode(asked, data), (asked == 1) == (kind == 1) ? 0 : -2) << asked;
    // Damage is seen before the kind.
    data[100] = static_cast<unsigned char>(data[100] ^ 1U);
    for (const int asked : {1, 2})
        EXPECT_EQ(decode(asked, data), -1) << asked;
}

INSTANTIATE_TEST_SUITE_P(Kinds, Codec, testing::Values(-1, 0, 1, 2, 3));

TEST(CodecChecksum, AtAnyPosition) {
    Bytes data = randomBytes(33, 4);
    for (const int position : {0, 7, 31}) {
        const Bytes before = data;
        ASSERT_EQ(AddSum(data.data(), 32, position), 0);
        unsigned sum = 0;
        for (int i = 0; i < 32; ++i)
            sum ^= i == position ? 0U : before[static_cast<std::size_t>(i)];
        EXPECT_EQ(data[static_cast<std::size_t>(position)], sum);
        EXPECT_EQ(data[32], before[32]);
        EXPECT_EQ(CheckSum(data.data(), 32, position), 0);
        data[20] = static_cast<unsigned char>(data[20] ^ 8U);
        EXPECT_EQ(CheckSum(data.data(), 32, position), -1);
    }
}

#if defined(__x86_64__) // elsewhere the signal does not tell reading from writing
// The byte may never have been written, so that it must not be read before it is zeroed: here it stands on a page of
// its own, and the first touch of that page tells what it was.
struct FirstTouch {
    static constexpr std::size_t page = 4096;
    static unsigned char* memory;
    static bool wasWrite;

    static void open(int /*signal*/, siginfo_t* /*info*/, void* context) {
        constexpr greg_t writing = 2; // of the processor's page fault code
        wasWrite = (static_cast<ucontext_t*>(context)->uc_mcontext.gregs[REG_ERR] & writing) != 0;
        mprotect(memory + page, page, PROT_READ | PROT_WRITE);
    }
};
unsigned char* FirstTouch::memory = nullptr;
bool FirstTouch::wasWrite = false;

TEST(CodecChecksum, WritesItsByteBeforeItReadsIt) {
    constexpr std::size_t page = FirstTouch::page;
    FirstTouch::memory = static_cast<unsigned char*>(
        mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    ASSERT_EQ(mprotect(FirstTouch::memory + page, page, PROT_NONE), 0);
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_sigaction = FirstTouch::open;
    action.sa_flags = SA_SIGINFO;
    ASSERT_EQ(sigaction(SIGSEGV, &action, &before), 0);
    AddSum(FirstTouch::memory + page - 7, 8, 7);
    sigaction(SIGSEGV, &before, nullptr);
    munmap(FirstTouch::memory, 2 * page);
    EXPECT_TRUE(FirstTouch::wasWrite);
}
#endif

TEST(CodecArguments, ThatMakeNoSense) {
    Bytes data = encode(1, randomBytes(featureBytes, 8));
    Bytes out(templateBytes);
    EXPECT_EQ(TzDecode(1, nullptr, templateBytes, out.data()), -1);
    EXPECT_EQ(TzDecode(1, data.data(), templateBytes, nullptr), -1);
    for (const int length : {7, 1, 0, -1})
        EXPECT_EQ(TzDecode(1, data.data(), length, out.data()), -1) << length;
    EXPECT_EQ(TzEncode(1, nullptr, featureBytes, out.data()), -1);
    EXPECT_EQ(TzEncode(1, data.data(), -1, out.data()), -1);
    EXPECT_EQ(TzEncode(1, data.data(), featureBytes, nullptr), -1);
    EXPECT_EQ(CheckSum(nullptr, templateBytes, 7), -1);
}

} // namespace
