#include "commands.hpp"
#include "gallery/comparison.hpp"
#include "gallery/template_file.hpp"
#include "options.hpp"
#include "photo/annotate.hpp"
#include "photo/face_api.hpp"
#include "photo/face_text.hpp"
#include "photo/largest_face.hpp"
#include "photo/output_files.hpp"
#include "photo/photo_entry.hpp"
#include "photo_run.hpp"
#include "report/printable.hpp"
#include "report/similarity.hpp"
#include "report/text.hpp"
#include "system/file_bytes.hpp"

#include <veldan/image_tool.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veldan::cli {

namespace {

// Photos side by side get the same height, however different their sizes are, in a picture that a screen can show.
constexpr int leastHeight = 400;
constexpr int mostHeight = 1200;
constexpr int mostWidth = 1600;

struct MatchOptions {
    std::string first;
    std::string second;
    PhotoOptions photos;
    std::string draw;
    double threshold = 0;
    bool judged = false; ///< whether the threshold decides
    bool masked = false;
};

std::string maskText(const JudgedFace& face) {
    return std::string(face.masked ? "masked (" : "no mask (") + std::to_string(face.record.maskScore) + ")";
}

int scaled(int length, double factor) {
    return static_cast<int>(std::lround(length * factor));
}

void drawOn(Photo& canvas, const Photo& picture, int left) {
    const std::size_t row = static_cast<std::size_t>(picture.width) * 3;
    for (int y = 0; y < picture.height; ++y) {
        const std::size_t target = static_cast<std::size_t>(y) * static_cast<std::size_t>(canvas.width);
        std::copy_n(picture.pixels.begin() + static_cast<std::ptrdiff_t>(row * static_cast<std::size_t>(y)), row,
                    canvas.pixels.begin() + static_cast<std::ptrdiff_t>((target + static_cast<std::size_t>(left)) * 3));
    }
}

Photo marked(ComparedSide& side, int height, const std::vector<std::string>& words) {
    Photo& photo = side.photo;
    const double factor =
        std::min(static_cast<double>(height) / photo.height, static_cast<double>(mostWidth) / photo.width);
    Photo picture{std::max(scaled(photo.width, factor), 1), std::max(scaled(photo.height, factor), 1), {}};
    picture.pixels.resize(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height) * 3);
    ImageZoom(photo.pixels.data(), photo.width, photo.height, 3, picture.width, picture.height, picture.pixels.data());
    VDFACEINFOEX record = side.face.record;
    for (std::int32_t* length : {&record.x, &record.y, &record.width, &record.height, &record.eyeDistance})
        *length = scaled(*length, factor);
    for (int k = 0; k < 7; ++k) {
        record.keyPointX[k] = scaled(record.keyPointX[k], factor);
        record.keyPointY[k] = scaled(record.keyPointY[k], factor);
    }
    annotate(picture, {Mark(record, side.face.masked, words)});
    return picture;
}

Photo sideBySide(ComparedSide& first, ComparedSide& second, const std::vector<std::string>& words) {
    const int height = std::clamp(std::max(first.photo.height, second.photo.height), leastHeight, mostHeight);
    const Photo left = marked(first, height, words);
    const Photo right = marked(second, height, words);
    Photo canvas{left.width + right.width, std::max(left.height, right.height), {}};
    canvas.pixels.resize(static_cast<std::size_t>(canvas.width) * static_cast<std::size_t>(canvas.height) * 3);
    drawOn(canvas, left, 0);
    drawOn(canvas, right, left.width);
    return canvas;
}

class Matching {
public:
    explicit Matching(const MatchOptions& options)
        : options_(options), run_(options.photos), target_(options.draw, false) {
        if (options.draw == standardStream)
            throw CommandError(ExitCode::Usage, "--draw: the picture needs a file");
    }

    ExitCode run() {
        const ExitCode code =
            run_.forEach({[this](PhotoTask& task) { find(task); }, {}}, [this](Json& document) { match(document); });
        return code == ExitCode::Success && options_.judged && !same_ ? ExitCode::Different : code;
    }

private:
    void find(PhotoTask& task) {
        const std::vector<unsigned char> bytes = task.read();
        ComparedSide side;
        side.path = task.path();
        if (isTemplateFile(bytes)) {
            side.given = readTemplate(bytes);
            const char* kind = kindName(side.given->kind);
            task.set("template", kind);
            task.tell(task.path() + ": template of a " + kind + " face");
            sides_.at(task.index()) = std::move(side);
            return;
        }
        side.photo = task.decode(bytes);
        const LargestFace largest = largestFace(api_, side.photo);
        side.face = largest.face;
        task.addFaceCount(side.photo, largest.of, largest.milliseconds);
        task.addFace(largestFaceJson(largest), detectionText(side.face.record) + "\n      quality " +
                                                   std::to_string(side.face.record.quality) + "  " +
                                                   maskText(side.face));
        if (largest.of > 1)
            task.note(faceCount(largest.of) + "; the largest one is compared");
        sides_.at(task.index()) = std::move(side);
    }

    void match(Json& document) {
        const bool maskWorn = sides_[0].face.masked || sides_[1].face.masked;
        const Kind kind = kindToCompare(sides_, options_.masked);
        const double similarity = similarityOf(api_.instance(), sides_, kind);
        const std::string verdict = verdictOn(similarity, kind);
        same_ = similarity >= options_.threshold;
        putComparison(document, similarity, kind,
                      options_.judged ? std::optional<double>(options_.threshold) : std::nullopt);
        if (!options_.photos.json)
            print(similarity, verdict, kind, maskWorn);
        draw(document, {similarityText(similarity), verdict});
    }

    void print(double similarity, const std::string& verdict, Kind kind, bool maskWorn) const {
        std::cout << similarityText(similarity) << ": " << verdict << '\n';
        if (kind == Kind::Masked)
            std::cout << "      compared as masked faces" << (maskWorn ? ", since a mask is worn" : "") << '\n';
        if (options_.judged)
            std::cout << "      " << (same_ ? "the same person" : "different people") << " by the threshold of "
                      << fixed(options_.threshold, 3) << '\n';
        for (const SimilarityStep& step : similaritySteps(kind))
            std::cout << "      at least " << fixed(step.similarity, 2)
                      << (similarity >= step.similarity ? ": yes" : ": no ") << "  (as " << oneIn(step)
                      << " pairs of different people)\n";
    }

    void draw(Json& document, const std::vector<std::string>& words) {
        if (!target_.wanted())
            return;
        if (sides_[0].given || sides_[1].given)
            throw CommandError(ExitCode::Usage, "--draw: needs two photos; a template shows nothing");
        const std::filesystem::path path = target_.pathFor(options_.first);
        Photo picture = sideBySide(sides_[0], sides_[1], words);
        PhotoFiles(options_.photos.photos.named).save(picture, path);
        document["drawn"] = path.string();
        if (!options_.photos.json)
            std::cout << "      drawn in " << printable(path.string()) << '\n';
    }

    const MatchOptions& options_;
    PhotoRun run_;
    DrawTarget target_;
    FaceApi api_{0};
    ComparedSides sides_;
    bool same_ = false;
};

} // namespace

void addMatchCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("match", "Compare the largest faces of two photos: the same person or not");
    const auto options = std::make_shared<MatchOptions>();
    command->add_option("A", options->first, "A photo, or a file that \"veldan template\" wrote")
        ->required()
        ->type_name("");
    command->add_option("B", options->second, "The other one")->required()->type_name("");
    command->add_flag("--mask", options->masked,
                      "Compare as masked faces; happens by itself when one of them wears a mask");
    const CLI::Option* threshold =
        addSimilarityOption(*command, "--threshold", options->threshold,
                            "Similarity of the same person: the exit code says whether it is reached")
            ->default_str("");
    addJsonFlag(*command, options->photos.json);
    command->add_option("--draw", options->draw, "Draw both photos side by side with the faces and the similarity")
        ->type_name("OUT");
    command->footer(
        "The similarity is 1 for the same picture and about 0.5 for people who have nothing in common. How often\n"
        "different people are that similar was measured: see docs/thresholds.md.\n"
        "\n" +
        std::string(similarityHelp) +
        "\n"
        "Exit codes: 0 compared, whatever the verdict; with --threshold as those of cmp, 0 the same person, 1 "
        "different\n"
        "people, and 2 or more trouble: 2 wrong usage; 3 a photo does not exist; 4 a photo cannot be read, or is not "
        "a\n"
        "picture; 5 a photo is too small; 7 the picture could not be written; 8 the library did not start; 9 a photo\n"
        "without a face, or templates of different kinds; 11 unexpected failure.\n"
        "\n"
        "Examples:\n"
        "  veldan match passport.jpg visitor.jpg\n"
        "  veldan match passport.jpg visitor.jpg --draw compared.jpg\n"
        "  veldan match passport.jpg visitor.jpg --threshold 0.74 > /dev/null && echo welcome\n"
        "  veldan match passport.tpl visitor.jpg\n"
        "  veldan match passport.jpg visitor.jpg --json | jq .similarity\n");
    command->callback([options, threshold, &action] {
        options->judged = threshold->count() > 0;
        action = [options] {
            options->photos.photos.named = {options->first, options->second};
            return Matching(*options).run();
        };
    });
}

} // namespace veldan::cli
