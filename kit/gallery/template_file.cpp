#include "gallery/template_file.hpp"

#include "report/exit_codes.hpp"
#include "report/printable.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>

namespace veldan::kit {

namespace {

constexpr std::size_t tagBytes = 7;
constexpr int checksumPosition = 7;
constexpr std::size_t headBytes = 8;
constexpr std::string_view family = "VD_V"; // every tag begins with it, whatever the network

static_assert(headBytes + featureLength * sizeof(float) == templateBytes);

std::optional<Kind> kindOf(std::vector<unsigned char> bytes) {
    std::array<float, featureLength> feature{};
    // Whatever the damage, the kind can be told when the checksum is put right on this copy.
    AddSum(bytes.data(), static_cast<int>(bytes.size()), checksumPosition);
    for (const Kind kind : {Kind::Bare, Kind::Masked})
        if (TzDecode(static_cast<int>(kind), bytes.data(), static_cast<int>(bytes.size()),
                     reinterpret_cast<unsigned char*>(feature.data())) == 0)
            return kind;
    return std::nullopt;
}

Template copyOf(const std::vector<unsigned char>& bytes) {
    Template copy{};
    std::copy_n(bytes.begin(), copy.size(), copy.begin());
    return copy;
}

std::string damageOf(const std::vector<unsigned char>& bytes, const std::optional<Kind>& kind) {
    if (kind)
        return flawOf(copyOf(bytes), *kind);
    if (!isTemplateFile(bytes))
        return "not a template: the first bytes name no kind";
    return "a template of another network (" + printable({reinterpret_cast<const char*>(bytes.data()), tagBytes}) +
           "), which cannot be compared with those of this version";
}

} // namespace

TemplateReport examineTemplate(const std::vector<unsigned char>& bytes) {
    TemplateReport report;
    report.bytes = bytes.size();
    if (bytes.size() != templateBytes) {
        report.damage = std::to_string(bytes.size()) + " bytes long; a template has " + std::to_string(templateBytes);
        return report;
    }
    const std::optional<Kind> kind = kindOf(bytes);
    report.kind = kind ? kindName(*kind) : "";
    report.checksumHolds = CheckSum(bytes.data(), static_cast<int>(bytes.size()), checksumPosition) == 0;
    std::array<float, featureLength> feature{};
    std::memcpy(feature.data(), bytes.data() + headBytes, sizeof(feature));
    double sum = 0;
    for (const float value : feature)
        sum += static_cast<double>(value) * static_cast<double>(value);
    report.norm = std::sqrt(sum);
    report.damage = damageOf(bytes, kind);
    if (kind && !report.damage.empty())
        report.damage = "the template " + report.damage;
    return report;
}

bool isTemplateFile(const std::vector<unsigned char>& bytes) {
    return bytes.size() >= family.size() && std::equal(family.begin(), family.end(), bytes.begin());
}

TemplateOfKind readTemplate(const std::vector<unsigned char>& bytes) {
    if (const TemplateReport report = examineTemplate(bytes); !report.damage.empty())
        throw CommandError(ExitCode::Unreadable, report.damage);
    return {*kindOf(bytes), copyOf(bytes)};
}

const char* kindName(Kind kind) {
    return kind == Kind::Bare ? "bare" : "masked";
}

} // namespace veldan::kit
