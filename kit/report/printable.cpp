#include "report/printable.hpp"

#include <algorithm>

namespace veldan::kit {

Character firstCharacter(std::string_view text) {
    const auto byte = [&](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U; };
    const unsigned lead = byte(0);
    if (lead < 0x80)
        return {1, lead < 0x20 || lead == 0x7f};
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4)
        return {};
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80)
            return {};
    }
    // Spellings that are too long, halves of surrogate pairs, and what lies beyond the last character.
    const unsigned second = byte(1);
    const bool outside = (lead == 0xe0 && second < 0xa0) || (lead == 0xed && second > 0x9f) ||
                         (lead == 0xf0 && second < 0x90) || (lead == 0xf4 && second > 0x8f);
    if (outside)
        return {};
    return {length, lead == 0xc2 && second < 0xa0};
}

std::string printable(std::string_view line) {
    std::string text;
    while (!line.empty()) {
        const Character character = firstCharacter(line);
        const bool shown = character.bytes > 0 && !character.control;
        const std::size_t bytes = std::max<std::size_t>(character.bytes, 1);
        text += shown ? line.substr(0, bytes) : "?";
        line.remove_prefix(bytes);
    }
    return text;
}

} // namespace veldan::kit
