#include "report/text.hpp"

#include <fmt/format.h>

namespace veldan::kit {

std::string faceCount(std::size_t count) {
    return count == 0 ? "no face" : counted(count, "face");
}

std::string counted(std::size_t count, const std::string& what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

std::string fixed(double number, int decimals) {
    return fmt::format("{:.{}f}", number, decimals);
}

std::string similarityText(double similarity) {
    return "similarity " + fixed(similarity, 3);
}

std::string shortDigest(const std::string& digest) {
    return digest.substr(0, 12);
}

} // namespace veldan::kit
