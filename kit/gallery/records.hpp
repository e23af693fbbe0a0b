#ifndef VELDAN_KIT_GALLERY_RECORDS_HPP
#define VELDAN_KIT_GALLERY_RECORDS_HPP

#include <veldan/template.hpp>

#include <cstddef>
#include <string>

namespace veldan::kit {

/** Which networks made a template: SHA-256 digests of the weights of the two recognizers. */
struct Recognizers {
    std::string bare;
    std::string masked;

    /** Those that the library embeds. Throws CommandError (Library) when one is damaged. Safe in threads. */
    static const Recognizers& embedded();

    bool operator==(const Recognizers& other) const { return bare == other.bare && masked == other.masked; }
    bool operator!=(const Recognizers& other) const { return !(*this == other); }
};

/** What a gallery keeps of a photo. */
struct EnrolledPhoto {
    std::string source; ///< the file's name when it was enrolled
    std::string digest; ///< SHA-256 of the file
    std::string date;   ///< when it was enrolled: UTC, such as 2024-05-31T12:00:00Z
    int quality = 0;
    Template bare{};
    Template masked{};
};

struct PersonPhoto {
    std::string person;
    EnrolledPhoto photo;
};

/** A person as lists show it. */
struct PersonSummary {
    std::string name;
    std::size_t photos = 0;
    std::string firstDate;
    std::string lastDate;
};

/** How many a gallery holds. */
struct GallerySize {
    std::size_t persons = 0;
    std::size_t photos = 0;
};

/** Where a template comes from. */
struct PhotoOrigin {
    std::string source;
    std::string digest;
};

/** A person whom a search has found, with the photo that speaks most for it. */
struct NearestPerson {
    std::string name;
    PhotoOrigin photo;
    float similarity = 0;
};

/** What a gallery is opened for. */
enum class GalleryAccess {
    Read,   ///< an existing one, which is not changed
    Change, ///< an existing one
    Create  ///< one that is created when there is none
};

/** Why a text cannot be the name of a person; empty when it can. */
std::string refusalOfName(const std::string& name);

/** The time now as EnrolledPhoto has it. */
std::string dateNow();

/** Empty when both templates are whole, of their kinds and plausible; otherwise what is wrong with which, in words. */
std::string damageOf(const EnrolledPhoto& photo);

} // namespace veldan::kit

#endif
