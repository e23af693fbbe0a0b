#include "annotate.hpp"
#include "commands.hpp"
#include "face_api.hpp"
#include "gallery_store.hpp"
#include "judge.hpp"
#include "largest_face.hpp"
#include "photo_run.hpp"
#include "printable.hpp"
#include "thresholds.hpp"

#include <CLI/CLI.hpp>

#include <chrono>
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
    int threshold = recognitionThreshold;
    int maskThreshold = maskedRecognitionThreshold;
};

/** A face and who it is. */
struct IdentifiedFace {
    JudgedFace face;
    Kind kind = Kind::Bare;
    float similarity = 0; ///< of the most similar person, known or not
    const std::string* name = nullptr;
};

std::string similarityText(float similarity) {
    std::ostringstream text;
    text << "similarity " << std::fixed << std::setprecision(3) << similarity;
    return text.str();
}

std::string scores(const JudgedFace& face) {
    return std::string(face.masked ? "mask (" : "no mask (") + std::to_string(face.record.maskScore) + ")  " +
           (face.live ? "live (" : "not live (") + std::to_string(face.record.liveness) + ")";
}

std::string identityText(const IdentifiedFace& identified) {
    const VDFACEINFOEX& record = identified.face.record;
    std::ostringstream text;
    text << (identified.name == nullptr ? "unknown" : printable(*identified.name)) << "  "
         << similarityText(identified.similarity) << "  quality " << record.quality << "  " << scores(identified.face)
         << "  box (" << record.x << ", " << record.y << ") " << record.width << " x " << record.height;
    return text.str();
}

Json identityJson(const IdentifiedFace& identified) {
    const VDFACEINFOEX& record = identified.face.record;
    Json json = detectionJson(record);
    json["name"] = identified.name == nullptr ? Json() : Json(*identified.name);
    json["similarity"] = identified.similarity;
    json["kind"] = kindName(identified.kind);
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
        marks.emplace_back(identified.face.record, identified.face.masked,
                           std::vector<std::string>{identified.name == nullptr ? "unknown" : *identified.name,
                                                    similarityText(identified.similarity)});
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
        return photos_.forEach([this](const std::string& path) { process(path); }, {},
                               [this](Json& document) {
                                   document["gallery"] = {{"file", options_.gallery},
                                                          {"persons", gallery_.names.size()},
                                                          {"damaged", gallery_.damaged}};
                                   document["threshold"] = options_.threshold;
                                   document["maskThreshold"] = options_.maskThreshold;
                               });
    }

private:
    void process(const std::string& path) {
        Photo photo = photos_.load(path);
        const FaceApi::Detection detection = api_.detect(photo);
        const auto start = std::chrono::steady_clock::now();
        std::vector<IdentifiedFace> faces;
        faces.reserve(detection.faces.size());
        for (const JudgedFace& face : judge(api_.handle(), photo, detection.faces, Light::Visible))
            faces.push_back(identify(photo, face));
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;

        photos_.addFaceCount(photo, faces.size(), detection.milliseconds + elapsed.count());
        for (const IdentifiedFace& face : faces)
            photos_.addFace(identityJson(face), identityText(face));
        photos_.draw([&] { return drawn(photo, faces); });
        PhotoRun::refuseCrowd(faces.size());
    }

    IdentifiedFace identify(Photo& photo, const JudgedFace& face) {
        IdentifiedFace result;
        result.face = face;
        result.kind = face.masked ? Kind::Masked : Kind::Bare;
        const int percent = face.masked ? options_.maskThreshold : options_.threshold;
        const Template probe = templateOf(api_.instance(), photo, face, result.kind);
        try {
            const auto [person, similarity] = api_.instance().identify(face.masked ? gallery_.masked : gallery_.bare,
                                                                       probe, static_cast<float>(percent) / 100.0F);
            result.similarity = similarity;
            if (person >= 0)
                result.name = &gallery_.names[static_cast<std::size_t>(person)];
        } catch (const Error& error) {
            throw CommandError(ExitCode::Library, error.what());
        }
        return result;
    }

    const IdentifyOptions& options_;
    PhotoRun photos_;
    SearchableGallery gallery_;
    FaceApi api_{0};
};

} // namespace

void addIdentifyCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("identify", "Say who is in photos: the persons of a gallery, or unknown");
    const auto options = std::make_shared<IdentifyOptions>();
    command->add_option("--gallery", options->gallery, "The gallery, made by \"veldan enroll\"")
        ->required()
        ->type_name("FILE");
    addPhotoOptions(*command, options->photos, "Draw boxes with names");
    command->add_option("--threshold", options->threshold, "Similarity that a bare face needs, in percent")
        ->type_name("N")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    command->add_option("--mask-threshold", options->maskThreshold, "Similarity that a face with a mask needs")
        ->type_name("N")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    command->footer(
        "Every face gets the name of the most similar person, or \"unknown\" when that similarity is below the\n"
        "threshold. Faces with masks are compared with what enrolment stored for masked faces. Low quality makes a\n"
        "name doubtful, and \"not live\" may mean a picture of that person.\n"
        "\n" +
        std::string(exitCodeHelp) +
        "Nothing is done when the gallery does not exist (3) or cannot be used (10).\n"
        "\n"
        "Examples:\n"
        "  veldan identify --gallery staff.db visitor.jpg\n"
        "  veldan identify --gallery staff.db visitor.jpg --draw named.jpg\n"
        "  veldan identify --gallery staff.db *.jpg --json | jq '.photos[] | {photo, names: [.faces[]?.name]}'\n");
    command->callback([options, &action] { action = [options] { return Identification(*options).run(); }; });
}

} // namespace veldan::cli
