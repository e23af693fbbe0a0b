#ifndef VELDAN_KIT_GALLERY_TEMPLATE_FILE_HPP
#define VELDAN_KIT_GALLERY_TEMPLATE_FILE_HPP

#include <veldan/template.hpp>

#include <cstddef>
#include <string>
#include <vector>

namespace veldan::kit {

/** Floats of a feature. */
inline constexpr std::size_t featureLength = 128;

/** What a template file is, and what is wrong with it. */
struct TemplateReport {
    std::size_t bytes = 0;
    std::string kind; ///< empty when the first bytes are no kind's
    bool checksumHolds = false;
    double norm = 0;    ///< length of the feature as a vector
    std::string damage; ///< empty when nothing is wrong
};

TemplateReport examineTemplate(const std::vector<unsigned char>& bytes);

/** Whether the file wants to be a template, whole or damaged, of these networks or of others. No picture begins so. */
bool isTemplateFile(const std::vector<unsigned char>& bytes);

/** A template that a file holds. */
struct TemplateOfKind {
    Kind kind = Kind::Bare;
    Template bytes{};
};

/** Throws CommandError (Unreadable) with what is wrong; the message does not name the file. */
TemplateOfKind readTemplate(const std::vector<unsigned char>& bytes);

/** "bare" or "masked". */
const char* kindName(Kind kind);

} // namespace veldan::kit

#endif
