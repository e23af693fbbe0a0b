#include "gallery/records.hpp"

#include "gallery/digest.hpp"
#include "report/exit_codes.hpp"
#include "report/printable.hpp"

#include <veldan/model_store.hpp>

#include <algorithm>
#include <array>
#include <ctime>
#include <string_view>
#include <vector>

namespace veldan::kit {

namespace {

constexpr std::size_t longestName = 200; // bytes

using Accessor = int (*)(unsigned char*);

std::string digestOf(int length, Accessor data) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(std::max(length, 0)));
    if (bytes.empty() || data(bytes.data()) != 0)
        throw CommandError(ExitCode::Library, "an embedded network is damaged");
    return sha256(bytes);
}

std::string flawText(const char* which, const Template& one, Kind kind) {
    const std::string flaw = flawOf(one, kind);
    return flaw.empty() ? flaw : std::string("the template ") + which + " " + flaw;
}

} // namespace

const Recognizers& Recognizers::embedded() {
    // Decoding and digesting two networks takes longer than opening a gallery: once in a process is enough.
    static const Recognizers own{
        digestOf(length_VELDAN_V5_0_0_FaceRecog_Model(), data_VELDAN_V5_0_0_FaceRecog_Model),
        digestOf(length_VELDAN_V5_2_0_FaceMaskRecog_Model(), data_VELDAN_V5_2_0_FaceMaskRecog_Model)};
    return own;
}

std::string refusalOfName(const std::string& name) {
    if (name.empty())
        return "a name cannot be empty";
    if (name.size() > longestName)
        return "a name cannot be longer than " + std::to_string(longestName) + " bytes";
    if (name.front() == ' ' || name.back() == ' ')
        return "a name cannot begin or end with a space";
    // Names are parts of the service's addresses, where clients take these two for folders.
    if (name == "." || name == "..")
        return "a name cannot be . or ..";
    std::string_view rest(name);
    while (!rest.empty()) {
        const Character character = firstCharacter(rest);
        if (character.bytes == 0)
            return "a name must be UTF-8";
        if (character.control)
            return "a name cannot hold control characters";
        if (rest.front() == '/')
            return "a name cannot hold a slash";
        rest.remove_prefix(character.bytes);
    }
    return {};
}

std::string dateNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

std::string damageOf(const EnrolledPhoto& photo) {
    const std::string damage = flawText("of the bare face", photo.bare, Kind::Bare);
    return damage.empty() ? flawText("for a face with a mask", photo.masked, Kind::Masked) : damage;
}

} // namespace veldan::kit
