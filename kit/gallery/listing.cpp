#include "gallery/listing.hpp"

namespace veldan::kit {

Json recognizersJson(const Recognizers& recognizers) {
    return {{"bare", recognizers.bare},
            {"masked", recognizers.masked},
            {"embedded", recognizers == Recognizers::embedded()}};
}

Json personJson(const PersonSummary& person) {
    return {{"name", person.name}, {"photos", person.photos}, {"first", person.firstDate}, {"last", person.lastDate}};
}

Json photoJson(const EnrolledPhoto& photo) {
    return {{"photo", photo.source},
            {"digest", photo.digest},
            {"date", photo.date},
            {"quality", photo.quality},
            {"damaged", !damageOf(photo).empty()}};
}

} // namespace veldan::kit
