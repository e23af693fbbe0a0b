#ifndef VELDAN_TESTS_TOOL_GUARDED_BUFFER_HPP
#define VELDAN_TESTS_TOOL_GUARDED_BUFFER_HPP

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace veldan_tests {

// An output buffer between two strips that nobody may write to. OpenCV is not built with sanitizers: they would not see
// it write past an end.
class GuardedBuffer {
public:
    static constexpr std::size_t guard = 4096;
    static constexpr unsigned char mark = 0xA5;

    explicit GuardedBuffer(std::size_t size) : bytes_(size + 2 * guard, mark) {}
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;
    ~GuardedBuffer() {
        const auto marked = [](unsigned char byte) { return byte == mark; };
        EXPECT_TRUE(std::all_of(bytes_.begin(), bytes_.begin() + guard, marked)) << "written before the buffer";
        EXPECT_TRUE(std::all_of(bytes_.end() - guard, bytes_.end(), marked)) << "written past the buffer";
    }

    unsigned char* data() { return bytes_.data() + guard; }
    std::size_t size() const { return bytes_.size() - 2 * guard; }
    unsigned char& operator[](std::size_t i) { return data()[i]; }
    std::vector<unsigned char> bytes() { return {data(), data() + size()}; }
    bool untouched() {
        return std::all_of(data(), data() + size(), [](unsigned char byte) { return byte == mark; });
    }

private:
    std::vector<unsigned char> bytes_;
};

} // namespace veldan_tests

#endif
