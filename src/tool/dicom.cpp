#include "tool/dicom.hpp"

#include <array>
#include <cstring>
#include <fstream>

namespace veldan {

namespace {

constexpr std::size_t preambleBytes = 128;
constexpr std::size_t markBytes = 4;

} // namespace

bool isDicom(const unsigned char* data, std::size_t size) {
    return size >= preambleBytes + markBytes && std::memcmp(data + preambleBytes, "DICM", markBytes) == 0;
}

bool isDicomFile(const char* path) {
    std::array<char, preambleBytes + markBytes> begin{};
    std::ifstream file(path, std::ios::binary);
    file.read(begin.data(), begin.size());
    return isDicom(reinterpret_cast<const unsigned char*>(begin.data()), static_cast<std::size_t>(file.gcount()));
}

} // namespace veldan
