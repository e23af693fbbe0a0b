#include "gallery/identity.hpp"

#include "gallery/template_file.hpp"
#include "photo/face_text.hpp"
#include "photo/largest_face.hpp"
#include "report/printable.hpp"
#include "report/text.hpp"

#include <chrono>
#include <fmt/format.h>

namespace veldan::kit {

namespace {

void put(Json& json, const Identity& identity) {
    json["name"] = identity.name == nullptr ? Json() : Json(*identity.name);
    json["similarity"] = identity.similarity;
    json["kind"] = kindName(identity.kind);
}

} // namespace

Identity identify(Instance& instance, const SearchableGallery& gallery, const Template& probe, Kind kind,
                  const IdentitySearch& search) {
    Identity result;
    result.kind = kind;
    try {
        const auto [person, similarity] =
            kind == Kind::Masked ? instance.identify(gallery.masked, probe, static_cast<float>(search.maskThreshold))
                                 : instance.identify(gallery.bare, probe, static_cast<float>(search.threshold));
        result.similarity = similarity;
        if (person >= 0)
            result.name = &gallery.names[static_cast<std::size_t>(person)];
        if (search.top > 0)
            result.candidates = nearestCandidates(instance, gallery, probe, kind, search.top);
    } catch (const Error& error) {
        throw CommandError(ExitCode::Library, error.what());
    }
    return result;
}

IdentifiedFaces identifyFaces(FaceApi& api, const SearchableGallery& gallery, Photo& photo,
                              const IdentitySearch& search) {
    const FaceApi::Detection detection = api.detect(photo);
    const auto start = std::chrono::steady_clock::now();
    Instance& instance = api.instance();
    IdentifiedFaces result;
    result.faces.reserve(detection.faces.size());
    for (const JudgedFace& face : judge(instance, photo, detection.faces, Light::Visible)) {
        const Kind kind = face.masked ? Kind::Masked : Kind::Bare;
        result.faces.push_back(
            {face, identify(instance, gallery, templateOf(instance, photo, face, kind), kind, search)});
    }
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    result.milliseconds = detection.milliseconds + elapsed.count();
    return result;
}

std::string nameText(const Identity& identity) {
    return identity.name == nullptr ? "unknown" : *identity.name;
}

std::string identityText(const Identity& identity) {
    return printable(nameText(identity)) + "  " + similarityText(static_cast<double>(identity.similarity));
}

std::string identityText(const IdentifiedFace& identified) {
    const JudgedFace& face = identified.face;
    return fmt::format("{}  quality {}  {} ({})  {} ({})  {}", identityText(identified.identity), face.record.quality,
                       face.masked ? "mask" : "no mask", face.record.maskScore, face.live ? "live" : "not live",
                       face.record.liveness, boxText(face.record));
}

std::string candidatesText(const Identity& identity, const SearchableGallery& gallery) {
    std::string text;
    std::size_t rank = 0;
    for (const Candidate& candidate : identity.candidates) {
        const PhotoOrigin& origin = gallery.origins[candidate.photo];
        text += fmt::format("\n      {}. {}  {}  to {} ({})", ++rank, printable(gallery.names[candidate.person]),
                            similarityText(static_cast<double>(candidate.similarity)), printable(origin.source),
                            printable(shortDigest(origin.digest)));
    }
    return text;
}

Json identityJson(const Identity& identity) {
    Json json;
    put(json, identity);
    return json;
}

Json identityJson(const IdentifiedFace& identified) {
    const VDFACEINFOEX& record = identified.face.record;
    Json json = detectionJson(record);
    put(json, identified.identity);
    json["quality"] = record.quality;
    json["maskScore"] = record.maskScore;
    json["masked"] = identified.face.masked;
    json["liveness"] = record.liveness;
    json["live"] = identified.face.live;
    return json;
}

Json candidatesJson(const Identity& identity, const SearchableGallery& gallery) {
    Json candidates = Json::array();
    for (const Candidate& candidate : identity.candidates) {
        const PhotoOrigin& origin = gallery.origins[candidate.photo];
        candidates.push_back({{"name", gallery.names[candidate.person]},
                              {"similarity", candidate.similarity},
                              {"photo", origin.source},
                              {"digest", origin.digest}});
    }
    return candidates;
}

} // namespace veldan::kit
