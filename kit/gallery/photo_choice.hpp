#ifndef VELDAN_KIT_GALLERY_PHOTO_CHOICE_HPP
#define VELDAN_KIT_GALLERY_PHOTO_CHOICE_HPP

#include "gallery/store.hpp"

#include <string>
#include <vector>

namespace veldan::kit {

/**
 * The digest of the photo that somebody means by its file name, with or without folders, or by at least four digits
 * that its digest begins with. Throws CommandError: Missing when there is none, Usage when several fit, which it lists,
 * and when the words can mean no photo. The messages do not name the person.
 */
std::string chosenPhoto(const std::vector<EnrolledPhoto>& photos, const std::string& wanted);

} // namespace veldan::kit

#endif
