#include "video/event_text.hpp"

#include "photo/face_text.hpp"
#include "photo/judge.hpp"
#include "report/similarity.hpp"

#include <fmt/format.h>

namespace veldan::kit {

namespace {

const char* nameOf(TrackEvent::Kind kind) {
    switch (kind) {
    case TrackEvent::Kind::Appeared:
        return "appeared";
    case TrackEvent::Kind::Recognised:
        return "recognised";
    case TrackEvent::Kind::Stranger:
        return "stranger";
    case TrackEvent::Kind::Left:
        return "left";
    }
    return "";
}

} // namespace

std::string eventText(const TrackEvent& event, const std::string& name, bool liveness) {
    std::string text =
        fmt::format("frame {}  {:.2f} s  person {} {}{}", event.moment.frame, event.moment.seconds, event.person,
                    event.kind == TrackEvent::Kind::Stranger ? "is a " : "", nameOf(event.kind));
    if (event.kind == TrackEvent::Kind::Recognised)
        text += fmt::format(": {}  (similarity {:.2f}{})", name, similarityOf(event.face),
                            event.face.maskScore >= maskedFrom ? ", masked" : "");
    if (liveness)
        text += fmt::format("  {} ({})", isLive(event.face) ? "live" : "not live", event.face.liveness);
    return text;
}

Json eventJson(const TrackEvent& event, const std::string& name, bool liveness) {
    Json json = {{"event", nameOf(event.kind)},
                 {"frame", event.moment.frame},
                 {"seconds", event.moment.seconds},
                 {"person", event.person}};
    if (event.kind == TrackEvent::Kind::Recognised) {
        json["name"] = name;
        json["similarity"] = similarityOf(event.face);
        json["masked"] = event.face.maskScore >= maskedFrom;
    }
    if (liveness) {
        json["liveness"] = event.face.liveness;
        json["live"] = isLive(event.face);
    }
    json["box"] = detectionJson(event.face)["box"];
    return json;
}

double similarityOf(const VDFACEINFOEX& face) {
    return face.searchScore / 100.0;
}

} // namespace veldan::kit
