#ifndef VELDAN_KIT_GALLERY_LISTING_HPP
#define VELDAN_KIT_GALLERY_LISTING_HPP

#include "gallery/records.hpp"
#include "report/json.hpp"

namespace veldan::kit {

/** Which networks made a gallery, and whether they are the library's. */
Json recognizersJson(const Recognizers& recognizers);

/** A person of a list. */
Json personJson(const PersonSummary& person);

/** A photo of a person, without its templates. */
Json photoJson(const EnrolledPhoto& photo);

} // namespace veldan::kit

#endif
