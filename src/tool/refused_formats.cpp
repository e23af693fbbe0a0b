#include "tool/refused_formats.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>
#include <string_view>

namespace veldan {

namespace {

struct Mark {
    std::size_t offset;
    std::string_view bytes;
};

constexpr Mark marks[] = {{128, "DICM"}, {0, "#?RGBE"}, {0, "#?RADIANCE"}};
constexpr std::size_t longestBeginning = 132;

} // namespace

bool isRefused(const unsigned char* data, std::size_t size) {
    return std::any_of(std::begin(marks), std::end(marks), [data, size](const Mark& mark) {
        return size >= mark.offset + mark.bytes.size() &&
               std::memcmp(data + mark.offset, mark.bytes.data(), mark.bytes.size()) == 0;
    });
}

bool isRefusedFile(const char* path) {
    std::array<char, longestBeginning> begin{};
    std::ifstream file(path, std::ios::binary);
    file.read(begin.data(), begin.size());
    return isRefused(reinterpret_cast<const unsigned char*>(begin.data()), static_cast<std::size_t>(file.gcount()));
}

} // namespace veldan
