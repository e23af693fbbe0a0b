#include "commands.hpp"
#include "gallery/candidate_search.hpp"
#include "gallery/store.hpp"
#include "gallery/template_file.hpp"
#include "photo/annotate.hpp"
#include "photo/face_api.hpp"
#include "photo/judge.hpp"
#include "photo/largest_face.hpp"
#include "photo_run.hpp"
#include "report/printable.hpp"
#include "report/thresholds.hpp"
#include "similarity_option.hpp"
#include "system/file_bytes.hpp"

#include <CLI/CLI.hpp>

#include <chrono>
#include <cmath>
#include <cstddef>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

namespace veldan::cli {

namespace {

struct IdentifyOptions {
    PhotoOptions photos;
    std::string gallery;
    double threshold = recognitionThreshold;
    double maskThreshold = maskedRecognitionThreshold;
    std::size_t top = 0;
};

/** Who somebody is. */
struct Identity {
    Kind kind = Kind::Bare;
    float similarity = 0; ///< of the most similar person, known or not
    const std::string* name = nullptr;
    std::vector<Candidate> candidates;
};

/** A face and who it is. */
struct IdentifiedFace {
    JudgedFace face;
    Identity identity;
};

constexpr std::size_t shownDigits = 12;

std::string similarityText(float similarity) {
    std::ostringstream text;
    text << "similarity " << std::fixed << std::setprecision(3) << similarity;
    return text.str();
}

std::string scores(const JudgedFace& face) {
    return std::string(face.masked ? "mask (" : "no mask (") + std::to_string(face.record.maskScore) + ")  " +
           (face.live ? "live (" : "not live (") + std::to_string(face.record.liveness) + ")";
}

std::string nameText(const Identity& identity) {
    return identity.name == nullptr ? "unknown" : *identity.name;
}

std::string candidatesText(const Identity& identity, const SearchableGallery& gallery) {
    std::string text;
    std::size_t rank = 0;
    for (const Candidate& candidate : identity.candidates) {
        const PhotoOrigin& origin = gallery.origins[candidate.photo];
        text += "\n      " + std::to_string(++rank) + ". " + printable(gallery.names[candidate.person]) + "  " +
                similarityText(candidate.similarity) + "  to " + printable(origin.source) + " (" +
                printable(origin.digest.substr(0, shownDigits)) + ")";
    }
    return text;
}

std::string identityText(const Identity& identity) {
    return printable(nameText(identity)) + "  " + similarityText(identity.similarity);
}

std::string faceIdentityText(const IdentifiedFace& identified) {
    const VDFACEINFOEX& record = identified.face.record;
    std::ostringstream text;
    text << identityText(identified.identity) << "  quality " << record.quality << "  " << scores(identified.face)
         << "  box (" << record.x << ", " << record.y << ") " << record.width << " x " << record.height;
    return text.str();
}

void putIdentity(Json& json, const Identity& identity) {
    json["name"] = identity.name == nullptr ? Json() : Json(*identity.name);
    json["similarity"] = identity.similarity;
    json["kind"] = kindName(identity.kind);
}

void putCandidates(Json& json, const Identity& identity, const SearchableGallery& gallery) {
    json["candidates"] = Json::array();
    for (const Candidate& candidate : identity.candidates) {
        const PhotoOrigin& origin = gallery.origins[candidate.photo];
        json["candidates"].push_back({{"name", gallery.names[candidate.person]},
                                      {"similarity", candidate.similarity},
                                      {"photo", origin.source},
                                      {"digest", origin.digest}});
    }
}

Json identityJson(const IdentifiedFace& identified) {
    const VDFACEINFOEX& record = identified.face.record;
    Json json = detectionJson(record);
    putIdentity(json, identified.identity);
    json["quality"] = record.quality;
    json["maskScore"] = record.maskScore;
    json["masked"] = identified.face.masked;
    json["liveness"] = record.liveness;
    json["live"] = identified.face.live;
    return json;
}

Photo drawn(Photo& photo, const std::vector<IdentifiedFace>& faces) {
    std::vector<Mark> marks;
    marks.reserve(faces.size());
    for (const IdentifiedFace& identified : faces)
        marks.emplace_back(
            identified.face.record, identified.face.masked,
            std::vector<std::string>{nameText(identified.identity), similarityText(identified.identity.similarity)});
    return annotatedCopy(photo, std::move(marks));
}

SearchableGallery opened(const std::string& path) {
    SearchableGallery gallery = GalleryStore(path, GalleryStore::Access::Read).searchable();
    for (const std::string& damage : gallery.damaged)
        std::cerr << "veldan: " << printable(path) << ": passed over: " << printable(damage) << '\n';
    if (gallery.names.empty())
        std::cerr << "veldan: " << path << ": nobody is enrolled\n";
    return gallery;
}

class Identification {
public:
    explicit Identification(const IdentifyOptions& options)
        : options_(options), photos_(options.photos), gallery_(opened(options.gallery)) {}

    ExitCode run() {
        return photos_.forEach({[this](PhotoTask& task) { process(task); }, {}}, {}, [this](Json& document) {
            document["gallery"] = {
                {"file", options_.gallery}, {"persons", gallery_.names.size()}, {"damaged", gallery_.damaged}};
            document["thresholds"] = {{"bare", options_.threshold}, {"masked", options_.maskThreshold}};
            // The same in percent, for programs written when there was nothing else.
            document["threshold"] = percent(options_.threshold);
            document["maskThreshold"] = percent(options_.maskThreshold);
        });
    }

private:
    static Json percent(double similarity) {
        const double percent = std::round(similarity * 1e6) / 1e4;
        return percent == std::floor(percent) ? Json(static_cast<int>(percent)) : Json(percent);
    }

    void process(PhotoTask& task) {
        const std::vector<unsigned char> bytes = task.read();
        if (isTemplateFile(bytes))
            processTemplate(task, readTemplate(bytes));
        else
            processPhoto(task, task.decode(bytes));
    }

    void processTemplate(PhotoTask& task, const TemplateOfKind& probe) {
        const Identity identity = identify(task, probe.bytes, probe.kind);
        Json json;
        putIdentity(json, identity);
        task.set("template", kindName(probe.kind));
        task.set("faces", Json::array());
        task.tell(task.path() + ": template of a " + kindName(probe.kind) + " face");
        addFace(task, std::move(json), identityText(identity), identity);
    }

    void processPhoto(PhotoTask& task, Photo photo) {
        const FaceApi::Detection detection = task.api().detect(photo);
        const auto start = std::chrono::steady_clock::now();
        std::vector<IdentifiedFace> faces;
        faces.reserve(detection.faces.size());
        for (const JudgedFace& face : judge(task.api().instance(), photo, detection.faces, Light::Visible)) {
            const Kind kind = face.masked ? Kind::Masked : Kind::Bare;
            faces.push_back({face, identify(task, templateOf(task.api().instance(), photo, face, kind), kind)});
        }
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;

        task.addFaceCount(photo, faces.size(), detection.milliseconds + elapsed.count());
        for (const IdentifiedFace& face : faces)
            addFace(task, identityJson(face), faceIdentityText(face), face.identity);
        task.draw([&] { return drawn(photo, faces); });
        PhotoTask::refuseCrowd(faces.size());
    }

    void addFace(PhotoTask& task, Json json, const std::string& text, const Identity& identity) {
        if (options_.top > 0)
            putCandidates(json, identity, gallery_);
        task.addFace(std::move(json), text + candidatesText(identity, gallery_));
    }

    Identity identify(PhotoTask& task, const Template& probe, Kind kind) {
        Identity result;
        result.kind = kind;
        const double threshold = kind == Kind::Masked ? options_.maskThreshold : options_.threshold;
        try {
            const auto [person, similarity] = task.api().instance().identify(
                kind == Kind::Masked ? gallery_.masked : gallery_.bare, probe, static_cast<float>(threshold));
            result.similarity = similarity;
            if (person >= 0)
                result.name = &gallery_.names[static_cast<std::size_t>(person)];
            if (options_.top > 0)
                result.candidates = nearestCandidates(task.api().instance(), gallery_, probe, kind, options_.top);
        } catch (const Error& error) {
            throw CommandError(ExitCode::Library, error.what());
        }
        return result;
    }

    const IdentifyOptions& options_;
    PhotoRun photos_;
    SearchableGallery gallery_;
};

} // namespace

void addIdentifyCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("identify", "Say who is in photos: the persons of a gallery, or unknown");
    const auto options = std::make_shared<IdentifyOptions>();
    command->add_option("--gallery", options->gallery, "The gallery, made by \"veldan enroll\"")
        ->required()
        ->type_name("FILE");
    addPhotoOptions(*command, options->photos, "Draw boxes with names");
    addSimilarityOption(*command, "--threshold", options->threshold, "Similarity that a bare face needs");
    addSimilarityOption(*command, "--mask-threshold", options->maskThreshold,
                        "Similarity that a face with a mask needs");
    command
        ->add_option("--top", options->top,
                     "Tell so many of the nearest persons as well, each with the enrolled photo that is most similar")
        ->type_name("N")
        ->check(CLI::Range(1, 1000000));
    command->footer(
        "Every face gets the name of the most similar person, or \"unknown\" when that similarity is below the\n"
        "threshold. Faces with masks are compared with what enrolment stored for masked faces. Low quality makes a\n"
        "name doubtful, and \"not live\" may mean a picture of that person. Files written by \"veldan template\" "
        "serve\n"
        "in place of photos.\n"
        "\n" +
        std::string(similarityHelp) + "\n" + std::string(exitCodeHelp) +
        "Nothing is done when the gallery does not exist (3) or cannot be used (10).\n"
        "\n"
        "Examples:\n"
        "  veldan identify --gallery staff.db visitor.jpg\n"
        "  veldan identify --gallery staff.db visitor.jpg --draw named.jpg\n"
        "  veldan identify --gallery staff.db visitor.jpg --threshold 0.76 --top 5\n"
        "  veldan identify --gallery staff.db -r party/ --jobs auto\n"
        "  veldan identify --gallery staff.db *.jpg --json | jq '.photos[] | {photo, names: [.faces[]?.name]}'\n");
    command->callback([options, &action] { action = [options] { return Identification(*options).run(); }; });
}

} // namespace veldan::cli
