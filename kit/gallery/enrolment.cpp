#include "gallery/enrolment.hpp"

#include "report/text.hpp"

namespace veldan::kit {

void takeFace(FaceApi& api, Photo& picture, const EnrolmentRules& rules, EnrolledPhoto& photo,
              const std::function<void(int quality)>& judged) {
    const FaceApi::Detection detection = api.detect(picture);
    if (detection.faces.empty())
        throw enrolmentRefusal("no face was found");
    if (detection.faces.size() > 1 && !rules.largest)
        throw enrolmentRefusal(faceCount(detection.faces.size()) + " in the photo; --largest takes the largest one");
    VDFACEINFOEX face = detection.faces.front();
    const ImageView view = viewOf(picture);
    Instance& instance = api.instance();
    try {
        instance.judgeMask(view, {&face, 1});
        if (face.maskScore >= maskedFrom)
            throw enrolmentRefusal("the face wears a mask (" + std::to_string(face.maskScore) +
                                   "); a bare face serves both");
        photo.quality = instance.enrolmentQuality(view, face);
        judged(photo.quality);
        if (photo.quality < rules.leastQuality)
            throw enrolmentRefusal("quality " + std::to_string(photo.quality) + ", at least " +
                                   std::to_string(rules.leastQuality) + " is wanted");
        photo.bare = instance.extractForEnrolment(view, face, Kind::Bare);
        photo.masked = instance.extractForEnrolment(view, face, Kind::Masked);
    } catch (const Error& error) {
        throw CommandError(ExitCode::Library, error.what());
    }
}

} // namespace veldan::kit
