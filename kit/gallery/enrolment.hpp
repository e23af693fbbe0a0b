#ifndef VELDAN_KIT_GALLERY_ENROLMENT_HPP
#define VELDAN_KIT_GALLERY_ENROLMENT_HPP

#include "gallery/records.hpp"
#include "photo/face_api.hpp"
#include "report/exit_codes.hpp"
#include "report/similarity.hpp"

#include <functional>
#include <string>

namespace veldan::kit {

/** Which faces are let into a gallery. */
struct EnrolmentRules {
    int leastQuality = enrolmentQuality;
    bool largest = false; ///< take the largest face of a photo that shows several
};

/** What keeps a photo out of a gallery. */
inline CommandError enrolmentRefusal(const std::string& reason) {
    return {ExitCode::Unsuitable, "not enrolled: " + reason};
}

/**
 * Fills in quality and templates, as the face of the picture gives them. Throws CommandError: Unsuitable when the rules
 * refuse the picture, otherwise as FaceApi::detect().
 * @param judged  told the quality before the rules decide about it
 */
void takeFace(FaceApi& api, Photo& picture, const EnrolmentRules& rules, EnrolledPhoto& photo,
              const std::function<void(int quality)>& judged);

} // namespace veldan::kit

#endif
