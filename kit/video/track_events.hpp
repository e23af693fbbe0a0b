#ifndef VELDAN_KIT_VIDEO_TRACK_EVENTS_HPP
#define VELDAN_KIT_VIDEO_TRACK_EVENTS_HPP

#include <veldan/face_record.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace veldan::kit {

/** Where in a video something happens. */
struct Moment {
    std::int64_t frame = 0; ///< counted from 1
    double seconds = 0;     ///< since the beginning
};

/** Something that happens to a person in front of the camera. */
struct TrackEvent {
    enum class Kind { Appeared, Recognised, Stranger, Left };

    Kind kind;
    int person;        ///< counted from 1 in the order of appearance
    Moment moment;     ///< for Left: when the person was last seen
    VDFACEINFOEX face; ///< the record then
};

/** What is known about a face of the current frame. */
struct TrackedPerson {
    int person = 0;    ///< 0 while it is not announced
    int searchId = -1; ///< who it is, when recognised
    bool stranger = false;
};

/**
 * Turns the records of successive frames into events. A person who is lost for some frames and found again is still the
 * same one: by the place of the face, or by the verdict. While somebody is lost, a new face is therefore announced only
 * when its verdict has come, or when the lost one is given up; and a face is never announced for a glimpse of it alone.
 */
class TrackEvents {
public:
    /** @param grace  frames for which a person may be lost before it counts as having left */
    explicit TrackEvents(int grace) : grace_(grace) {}

    /** @param faces  as veldan::Tracker and the tracked search gave them */
    std::vector<TrackEvent> next(const Moment& moment, const std::vector<VDFACEINFOEX>& faces);

    /** At the end of the video: everybody leaves. */
    std::vector<TrackEvent> finish();

    /** What is known about face i of the last frame. */
    TrackedPerson personOf(std::size_t i) const;

private:
    struct Visit {
        int person = 0;
        int searchId = -1;
        bool stranger = false;
        Moment moment;
        VDFACEINFOEX face{};
        std::size_t faceIndex = 0;
        int sightings = 0;
        int missed = 0; // frames since the person was seen
        bool over = false;
    };

    void assign(const Moment& moment, const std::vector<VDFACEINFOEX>& faces);
    Visit* visitOf(const VDFACEINFOEX& face, double (*likeness)(const VDFACEINFOEX&, const VDFACEINFOEX&));
    void judge(Visit& visit, std::vector<TrackEvent>& events);
    bool resume(Visit& visit);
    bool somebodyIsLost() const;
    void announce(Visit& visit, std::vector<TrackEvent>& events);
    void leave(Visit& visit, std::vector<TrackEvent>& events);

    int grace_;
    int people_ = 0;
    std::vector<Visit> visits_;
};

} // namespace veldan::kit

#endif
