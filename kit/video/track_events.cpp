#include "video/track_events.hpp"

#include <veldan/instance.hpp>

#include <algorithm>

namespace veldan::kit {

namespace {

// Overlap of the boxes from which a face that is found again counts as the one that was lost there.
constexpr double samePlace = 0.3;

// A face seen less often than this, and without a verdict, may be none: detectors see faces in walls for a moment.
constexpr int glimpses = 3;

double sameTrack(const VDFACEINFOEX& before, const VDFACEINFOEX& face) {
    return before.trackId == face.trackId ? 1 : 0;
}

// Intersection over union of the boxes; 0 when it is too little to mean anything.
double nearness(const VDFACEINFOEX& a, const VDFACEINFOEX& b) {
    const double share = VdFaceAPI::vdIou(a.x, a.y, a.width, a.height, b.x, b.y, b.width, b.height);
    return share >= samePlace ? share : 0;
}

bool isRecognised(const VDFACEINFOEX& face) {
    return face.searchFlag >= 1;
}

bool isStranger(const VDFACEINFOEX& face) {
    return !isRecognised(face) && face.strangerFlag >= 1;
}

} // namespace

std::vector<TrackEvent> TrackEvents::next(const Moment& moment, const std::vector<VDFACEINFOEX>& faces) {
    std::vector<TrackEvent> events;
    assign(moment, faces);
    for (Visit& visit : visits_)
        if (visit.missed == 0)
            judge(visit, events);
    for (Visit& visit : visits_)
        if (visit.missed > grace_)
            leave(visit, events);
    visits_.erase(std::remove_if(visits_.begin(), visits_.end(), [](const Visit& visit) { return visit.over; }),
                  visits_.end());
    if (!somebodyIsLost())
        for (Visit& visit : visits_)
            if (visit.sightings >= glimpses)
                announce(visit, events);
    return events;
}

std::vector<TrackEvent> TrackEvents::finish() {
    std::vector<TrackEvent> events;
    for (Visit& visit : visits_)
        leave(visit, events);
    visits_.clear();
    return events;
}

TrackedPerson TrackEvents::personOf(std::size_t i) const {
    for (const Visit& visit : visits_)
        if (visit.missed == 0 && visit.faceIndex == i)
            return {visit.person, visit.searchId, visit.stranger};
    return {};
}

void TrackEvents::assign(const Moment& moment, const std::vector<VDFACEINFOEX>& faces) {
    for (Visit& visit : visits_)
        ++visit.missed;
    // All tracks first, so that none of them loses its person to a face that was lost nearby.
    std::vector<bool> assigned(faces.size());
    for (const auto likeness : {sameTrack, nearness})
        for (std::size_t i = 0; i < faces.size(); ++i)
            if (Visit* const visit = assigned[i] ? nullptr : visitOf(faces[i], likeness)) {
                visit->missed = 0;
                ++visit->sightings;
                visit->moment = moment;
                visit->face = faces[i];
                visit->faceIndex = i;
                assigned[i] = true;
            }
    for (std::size_t i = 0; i < faces.size(); ++i)
        if (!assigned[i]) {
            Visit visit;
            visit.sightings = 1;
            visit.moment = moment;
            visit.face = faces[i];
            visit.faceIndex = i;
            visits_.push_back(visit);
        }
}

// The visit, of those not seen in this frame yet, that the face is most like; null when there is none.
TrackEvents::Visit* TrackEvents::visitOf(const VDFACEINFOEX& face,
                                         double (*likeness)(const VDFACEINFOEX&, const VDFACEINFOEX&)) {
    Visit* best = nullptr;
    double bestLikeness = 0;
    for (Visit& visit : visits_)
        if (const double found = visit.missed > 0 ? likeness(visit.face, face) : 0; found > bestLikeness) {
            bestLikeness = found;
            best = &visit;
        }
    return best;
}

void TrackEvents::judge(Visit& visit, std::vector<TrackEvent>& events) {
    const bool recognised = isRecognised(visit.face);
    if (!recognised && !isStranger(visit.face))
        return;
    if (visit.searchId >= 0 && (!recognised || visit.face.searchId != visit.searchId)) {
        // Somebody else has come to the place where the person was lost.
        leave(visit, events);
        visit.over = false;
        visit.person = 0;
        visit.searchId = -1;
        visit.stranger = false;
    }
    if (recognised ? visit.searchId >= 0 : visit.stranger)
        return;
    visit.searchId = recognised ? visit.face.searchId : -1;
    visit.stranger = !recognised;
    if (visit.person == 0 && resume(visit))
        return;
    announce(visit, events);
    events.push_back({recognised ? TrackEvent::Kind::Recognised : TrackEvent::Kind::Stranger, visit.person,
                      visit.moment, visit.face});
}

// Strangers are all alike: one who comes while another is lost is taken for that one.
bool TrackEvents::resume(Visit& visit) {
    for (Visit& lost : visits_)
        if (!lost.over && lost.missed > 0 && lost.person > 0 && lost.searchId == visit.searchId &&
            lost.stranger == visit.stranger) {
            visit.person = lost.person;
            lost.over = true;
            return true;
        }
    return false;
}

bool TrackEvents::somebodyIsLost() const {
    return std::any_of(visits_.begin(), visits_.end(),
                       [](const Visit& visit) { return visit.missed > 0 && visit.person > 0; });
}

void TrackEvents::announce(Visit& visit, std::vector<TrackEvent>& events) {
    if (visit.person > 0)
        return;
    visit.person = ++people_;
    events.push_back({TrackEvent::Kind::Appeared, visit.person, visit.moment, visit.face});
}

void TrackEvents::leave(Visit& visit, std::vector<TrackEvent>& events) {
    if (visit.over)
        return;
    visit.over = true;
    if (visit.person == 0 && visit.sightings < glimpses)
        return;
    announce(visit, events);
    events.push_back({TrackEvent::Kind::Left, visit.person, visit.moment, visit.face});
}

} // namespace veldan::kit
