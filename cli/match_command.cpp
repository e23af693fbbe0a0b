#include "annotate.hpp"
#include "commands.hpp"
#include "face_api.hpp"
#include "largest_face.hpp"
#include "output_files.hpp"
#include "photo_run.hpp"
#include "similarity_words.hpp"

#include <veldan/image_tool.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <memory>
#include <sstream>
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
    bool masked = false;
};

/** A photo with the face that is compared. */
struct Side {
    std::string path;
    Photo photo;
    JudgedFace face;
};

std::string maskText(const JudgedFace& face) {
    return std::string(face.masked ? "masked (" : "no mask (") + std::to_string(face.record.maskScore) + ")";
}

std::string threeDecimals(double number) {
    std::ostringstream text;
    text << std::fixed << std::setprecision(3) << number;
    return text.str();
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

Photo marked(Side& side, int height, const std::vector<std::string>& words) {
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

Photo sideBySide(Side& first, Side& second, const std::vector<std::string>& words) {
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
        : options_(options), run_(options.photos), target_(options.draw, 1) {}

    ExitCode run() {
        return run_.forEach([this](const std::string& path) { find(path); },
                            [this](Json& document) { match(document); });
    }

private:
    void find(const std::string& path) {
        Side side{path, run_.load(path), {}};
        const LargestFace largest = largestFace(api_, side.photo);
        side.face = largest.face;
        run_.addFaceCount(side.photo, largest.of, largest.milliseconds);
        Json json = detectionJson(side.face.record);
        json["quality"] = side.face.record.quality;
        json["maskScore"] = side.face.record.maskScore;
        json["masked"] = side.face.masked;
        json["largestOf"] = largest.of;
        run_.addFace(std::move(json), detectionText(side.face.record) + "\n      quality " +
                                          std::to_string(side.face.record.quality) + "  " + maskText(side.face));
        if (largest.of > 1)
            run_.note(faceCount(largest.of) + "; the largest one is compared");
        sides_.push_back(std::move(side));
    }

    void match(Json& document) {
        Side& first = sides_.at(0);
        Side& second = sides_.at(1);
        const bool maskWorn = first.face.masked || second.face.masked;
        const Kind kind = options_.masked || maskWorn ? Kind::Masked : Kind::Bare;
        const double similarity = static_cast<double>(compare(first, second, kind));
        const std::string verdict = verdictOn(similarity, kind);

        document["kind"] = kindName(kind);
        document["similarity"] = similarity;
        document["verdict"] = verdict;
        document["steps"] = Json::array();
        for (const SimilarityStep& step : similaritySteps(kind))
            document["steps"].push_back({{"similarity", step.similarity},
                                         {"falseMatchRate", step.falseMatchRate},
                                         {"reached", similarity >= step.similarity}});
        if (!options_.photos.json)
            print(similarity, verdict, kind, maskWorn);
        draw(document, {"similarity " + threeDecimals(similarity), verdict});
    }

    float compare(Side& first, Side& second, Kind kind) {
        const Template a = templateOf(api_.instance(), first.photo, first.face, kind);
        const Template b = templateOf(api_.instance(), second.photo, second.face, kind);
        try {
            return api_.instance().match(a, b, kind);
        } catch (const Error& error) {
            throw CommandError(ExitCode::Library, error.what());
        }
    }

    static void print(double similarity, const std::string& verdict, Kind kind, bool maskWorn) {
        std::cout << "similarity " << threeDecimals(similarity) << ": " << verdict << '\n';
        if (kind == Kind::Masked)
            std::cout << "      compared as masked faces" << (maskWorn ? ", since a mask is worn" : "") << '\n';
        for (const SimilarityStep& step : similaritySteps(kind))
            std::cout << "      at least " << std::fixed << std::setprecision(2) << step.similarity
                      << (similarity >= step.similarity ? ": yes" : ": no ") << "  (as " << oneIn(step)
                      << " pairs of different people)\n";
    }

    void draw(Json& document, const std::vector<std::string>& words) {
        if (!target_.wanted())
            return;
        const std::filesystem::path path = target_.pathFor(options_.first);
        Photo picture = sideBySide(sides_[0], sides_[1], words);
        PhotoFiles(options_.photos.photos).save(picture, path);
        document["drawn"] = path.string();
        if (!options_.photos.json)
            std::cout << "      drawn in " << path.string() << '\n';
    }

    const MatchOptions& options_;
    PhotoRun run_;
    DrawTarget target_;
    FaceApi api_{0};
    std::vector<Side> sides_;
};

} // namespace

void addMatchCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("match", "Compare the largest faces of two photos: the same person or not");
    const auto options = std::make_shared<MatchOptions>();
    command->add_option("A", options->first, "A photo: jpg, png, webp, bmp, tiff and what else OpenCV reads")
        ->required()
        ->type_name("");
    command->add_option("B", options->second, "The other one")->required()->type_name("");
    command->add_flag("--mask", options->masked,
                      "Compare as masked faces; happens by itself when one of them wears a mask");
    command->add_flag("--json", options->photos.json, "Print one JSON document instead of text");
    command->add_option("--draw", options->draw, "Draw both photos side by side with the faces and the similarity")
        ->type_name("OUT");
    command->footer(
        "The similarity is 1 for the same picture and about 0.5 for people who have nothing in common. How often\n"
        "different people are that similar was measured: see docs/thresholds.md.\n"
        "\n"
        "Exit codes: 0 compared, whatever the verdict; 3 a photo does not exist; 4 a photo cannot be read, or is\n"
        "not a picture; 5 a photo is too small; 7 the picture could not be written; 8 the library did not start;\n"
        "9 a photo without a face.\n"
        "\n"
        "Examples:\n"
        "  veldan match passport.jpg visitor.jpg\n"
        "  veldan match passport.jpg visitor.jpg --draw compared.jpg\n"
        "  veldan match passport.jpg visitor.jpg --json | jq .similarity\n");
    command->callback([options, &action] {
        action = [options] {
            options->photos.photos = {options->first, options->second};
            return Matching(*options).run();
        };
    });
}

} // namespace veldan::cli
