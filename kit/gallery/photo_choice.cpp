#include "gallery/photo_choice.hpp"

#include "report/exit_codes.hpp"

#include <cstddef>
#include <filesystem>

namespace veldan::kit {

namespace {

constexpr std::size_t leastDigits = 4;
constexpr std::size_t shownDigits = 12;

bool isNamed(const EnrolledPhoto& photo, const std::string& wanted) {
    return photo.source == wanted || std::filesystem::path(photo.source).filename() == wanted;
}

bool isDigits(const std::string& text) {
    return text.find_first_not_of("0123456789abcdef") == std::string::npos;
}

} // namespace

std::string chosenPhoto(const std::vector<EnrolledPhoto>& photos, const std::string& wanted) {
    if (wanted.empty())
        throw CommandError(ExitCode::Usage, "--photo: an empty name means no photo");
    const bool digits = isDigits(wanted) && wanted.size() >= leastDigits;
    std::vector<const EnrolledPhoto*> chosen;
    for (const EnrolledPhoto& photo : photos) {
        if (isNamed(photo, wanted) || (digits && photo.digest.compare(0, wanted.size(), wanted) == 0))
            chosen.push_back(&photo);
    }
    if (chosen.size() == 1)
        return chosen.front()->digest;
    if (chosen.empty() && isDigits(wanted) && !digits)
        throw CommandError(ExitCode::Usage, "--photo: \"" + wanted + "\" is too short for the beginning of a digest; " +
                                                std::to_string(leastDigits) + " digits are needed");
    if (chosen.empty())
        throw CommandError(ExitCode::Missing,
                           "no photo is \"" + wanted + "\"; \"veldan gallery show\" lists photos and digests");
    std::string message = std::to_string(chosen.size()) + " photos are \"" + wanted + "\"; give more of the digest:";
    for (const EnrolledPhoto* photo : chosen)
        message +=
            (photo == chosen.front() ? " " : ", ") + photo->digest.substr(0, shownDigits) + " (" + photo->source + ")";
    throw CommandError(ExitCode::Usage, message);
}

} // namespace veldan::kit
