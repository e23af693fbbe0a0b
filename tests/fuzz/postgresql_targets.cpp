// What the PostgreSQL extension takes in, against the library's judgement of templates.

#include "../../postgresql/template_text.h"
#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"

#include <veldan/template.hpp>

#include <algorithm>
#include <string>

namespace veldan_fuzz {

void templateText(const std::uint8_t* data, std::size_t size) {
    const auto bytes = exactCopy(data, size);
    // As a client hands it in without text.
    veldan_template_flaw(bytes.get(), size);

    veldan::Template taken;
    taken.fill(0xA5);
    if (veldan_template_from_text(reinterpret_cast<const char*>(bytes.get()), size, taken.data()) != nullptr)
        return;
    const auto kind = static_cast<veldan::Kind>(veldan_template_kind(taken.data()));
    require(veldan::plausible(taken, kind));
    require(veldan_template_flaw(taken.data(), taken.size()) == nullptr);
    std::string hex(VELDAN_HEX_LENGTH, '?');
    veldan_template_to_hex(taken.data(), hex.data());
    std::string base64(VELDAN_BASE64_LENGTH, '?');
    veldan_template_to_base64(taken.data(), base64.data());
    // The text itself, but for capital digits and the bits that base64 leaves over.
    const auto same = [&](const std::string& text) {
        veldan::Template back;
        return veldan_template_from_text(text.data(), text.size(), back.data()) == nullptr && back == taken;
    };
    require(same(hex) && same(base64));
    const std::string given(data, data + size);
    const auto lower = [](char c) { return c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c; };
    std::string digits = given;
    std::transform(digits.begin(), digits.end(), digits.begin(), lower);
    require(digits == hex || given.compare(0, 693, base64, 0, 693) == 0);
}

} // namespace veldan_fuzz
