#ifndef VELDAN_TESTS_FUZZ_INPUT_HPP
#define VELDAN_TESTS_FUZZ_INPUT_HPP

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace veldan_fuzz {

inline void require(bool promise) {
    if (!promise)
        std::abort();
}

// Exactly as long as what is copied: AddressSanitizer sees the first byte read past it.
inline std::unique_ptr<unsigned char[]> exactCopy(const std::uint8_t* data, std::size_t size) {
    std::unique_ptr<unsigned char[]> copy(new unsigned char[size]);
    if (size > 0)
        std::memcpy(copy.get(), data, size);
    return copy;
}

// An input taken apart from front to back; zeros follow its end.
class Input {
public:
    Input(const std::uint8_t* data, std::size_t size) : data_(data), left_(size) {}

    template <class T>
    T take() {
        T value{};
        take(&value, sizeof value);
        return value;
    }
    void take(void* out, std::size_t size) {
        const std::size_t given = std::min(size, left_);
        std::memset(out, 0, size);
        if (given > 0)
            std::memcpy(out, data_, given);
        data_ += given;
        left_ -= given;
    }
    int byte() { return take<std::uint8_t>(); }
    int signedByte() { return (byte() ^ 128) - 128; }

    const std::uint8_t* rest() const { return data_; }
    std::size_t left() const { return left_; }

private:
    const std::uint8_t* data_;
    std::size_t left_;
};

} // namespace veldan_fuzz

#endif
