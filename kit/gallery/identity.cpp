#include "gallery/identity.hpp"

#include "gallery/template_file.hpp"
#include "photo/face_text.hpp"
#include "photo/largest_face.hpp"
#include "report/printable.hpp"
#include "report/text.hpp"

#include <algorithm>
#include <chrono>
#include <fmt/format.h>

namespace veldan::kit {

namespace {

void put(Json& json, const Identity& identity) {
    json["name"] = !identity.name ? Json() : Json(*identity.name);
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
            result.name = gallery.names[static_cast<std::size_t>(person)];
        if (search.top > 0)
            for (const Candidate& candidate : nearestCandidates(instance, gallery, probe, kind, search.top))
                result.candidates.push_back(
                    {gallery.names[candidate.person], gallery.origins[candidate.photo], candidate.similarity});
    } catch (const Error& error) {
        throw CommandError(ExitCode::Library, error.what());
    }
    return result;
}

Identity identify(GalleryStore& store, const Template& probe, Kind kind, const IdentitySearch& search) {
    Identity result;
    result.kind = kind;
    std::vector<NearestPerson> nearest = store.nearest(probe, kind, std::max<std::size_t>(search.top, 1));
    // What rounds to nothing is nobody, as the library's search has it.
    if (!nearest.empty() && static_cast<int>(100 * nearest.front().similarity) > 0) {
        result.similarity = nearest.front().similarity;
        const double threshold = kind == Kind::Masked ? search.maskThreshold : search.threshold;
        if (result.similarity >= static_cast<float>(threshold))
            result.name = nearest.front().name;
    }
    if (search.top > 0)
        result.candidates = std::move(nearest);
    return result;
}

IdentifiedFaces identifyFaces(FaceApi& api, const SearchableGallery& gallery, Photo& photo,
                              const IdentitySearch& search) {
    return identifyFaces(
        api,
        [&](Instance& instance, const Template& probe, Kind kind) {
            return identify(instance, gallery, probe, kind, search);
        },
        photo);
}

IdentifiedFaces identifyFaces(FaceApi& api, const Identify& identify, Photo& photo) {
    const FaceApi::Detection detection = api.detect(photo);
    const auto start = std::chrono::steady_clock::now();
    Instance& instance = api.instance();
    IdentifiedFaces result;
    result.faces.reserve(detection.faces.size());
    for (const JudgedFace& face : judge(instance, photo, detection.faces, Light::Visible)) {
        const Kind kind = face.masked ? Kind::Masked : Kind::Bare;
        result.faces.push_back({face, identify(instance, templateOf(instance, photo, face, kind), kind)});
    }
    const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
    result.milliseconds = detection.milliseconds + elapsed.count();
    return result;
}

std::string nameText(const Identity& identity) {
    return identity.name.value_or("unknown");
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

std::string candidatesText(const Identity& identity) {
    std::string text;
    std::size_t rank = 0;
    for (const NearestPerson& candidate : identity.candidates)
        text += fmt::format("\n      {}. {}  {}  to {} ({})", ++rank, printable(candidate.name),
                            similarityText(static_cast<double>(candidate.similarity)),
                            printable(candidate.photo.source), printable(shortDigest(candidate.photo.digest)));
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

Json candidatesJson(const Identity& identity) {
    Json candidates = Json::array();
    for (const NearestPerson& candidate : identity.candidates)
        candidates.push_back({{"name", candidate.name},
                              {"similarity", candidate.similarity},
                              {"photo", candidate.photo.source},
                              {"digest", candidate.photo.digest}});
    return candidates;
}

} // namespace veldan::kit
