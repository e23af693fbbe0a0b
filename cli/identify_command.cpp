#include "commands.hpp"
#include "gallery/identity.hpp"
#include "gallery/store.hpp"
#include "gallery/template_file.hpp"
#include "gallery_to_search.hpp"
#include "options.hpp"
#include "photo/annotate.hpp"
#include "photo/face_api.hpp"
#include "photo/photo_entry.hpp"
#include "photo_run.hpp"
#include "report/similarity.hpp"
#include "report/text.hpp"
#include "system/file_bytes.hpp"

#include <CLI/CLI.hpp>

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
    IdentitySearch search;
};

Photo drawn(Photo& photo, const std::vector<IdentifiedFace>& faces) {
    std::vector<Mark> marks;
    marks.reserve(faces.size());
    for (const IdentifiedFace& identified : faces)
        marks.emplace_back(
            identified.face.record, identified.face.masked,
            std::vector<std::string>{nameText(identified.identity),
                                     similarityText(static_cast<double>(identified.identity.similarity))});
    return annotatedCopy(photo, std::move(marks));
}

class Identification {
public:
    explicit Identification(const IdentifyOptions& options)
        : options_(options), photos_(options.photos), gallery_(options.gallery, "nobody is enrolled") {}

    ExitCode run() {
        return photos_.forEach({[this](PhotoTask& task) { process(task); }, {}}, {}, [this](Json& document) {
            document["gallery"] = {
                {"file", gallery_.name()}, {"persons", gallery_.persons()}, {"damaged", gallery_.damaged()}};
            document["thresholds"] = {{"bare", options_.search.threshold}, {"masked", options_.search.maskThreshold}};
            // The same in percent, for programs written when there was nothing else.
            document["threshold"] = percent(options_.search.threshold);
            document["maskThreshold"] = percent(options_.search.maskThreshold);
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
        const Identity identity = gallery_.identify(task.api().instance(), probe.bytes, probe.kind, options_.search);
        task.set("template", kindName(probe.kind));
        task.set("faces", Json::array());
        task.tell(task.path() + ": template of a " + kindName(probe.kind) + " face");
        addFace(task, identityJson(identity), identityText(identity), identity);
    }

    void processPhoto(PhotoTask& task, Photo photo) {
        const auto [faces, milliseconds] = identifyFaces(
            task.api(),
            [this](Instance& instance, const Template& probe, Kind kind) {
                return gallery_.identify(instance, probe, kind, options_.search);
            },
            photo);
        task.addFaceCount(photo, faces.size(), milliseconds);
        for (const IdentifiedFace& face : faces)
            addFace(task, identityJson(face), identityText(face), face.identity);
        task.draw([&, &found = faces] { return drawn(photo, found); });
        refuseCrowd(faces.size());
    }

    void addFace(PhotoTask& task, Json json, const std::string& text, const Identity& identity) {
        if (options_.search.top > 0)
            json["candidates"] = candidatesJson(identity);
        task.addFace(std::move(json), text + candidatesText(identity));
    }

    const IdentifyOptions& options_;
    PhotoRun photos_;
    GalleryToSearch gallery_;
};

} // namespace

void addIdentifyCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("identify", "Say who is in photos: the persons of a gallery, or unknown");
    const auto options = std::make_shared<IdentifyOptions>();
    addGalleryOption(*command, options->gallery);
    addPhotoOptions(*command, options->photos, "Draw boxes with names");
    addSimilarityOption(*command, "--threshold", options->search.threshold, "Similarity that a bare face needs");
    addSimilarityOption(*command, "--mask-threshold", options->search.maskThreshold,
                        "Similarity that a face with a mask needs");
    command
        ->add_option("--top", options->search.top,
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
        std::string(similarityHelp) + "\n" + std::string(exitCodeHelp()) +
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
