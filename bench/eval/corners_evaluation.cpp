#include "alignment.hpp"
#include "corner_figures.hpp"
#include "error_pictures.hpp"
#include "evaluations.hpp"
#include "known_faces.hpp"
#include "library.hpp"
#include "pack_photos.hpp"
#include "statistics.hpp"
#include "text_table.hpp"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

// From this error on --dump-false draws a face: the crop is off by more than the margin about the eyes.
constexpr double largeError = 0.1;

/** Key points 5 and 6 in pixels of the picture, whatever the engine shifted them by. */
CropSquare cornersOf(const VDFACEINFOEX& face, int shift) {
    return {{static_cast<double>(face.keyPointX[5] - shift), static_cast<double>(face.keyPointY[5] - shift)},
            {static_cast<double>(face.keyPointX[6] - shift), static_cast<double>(face.keyPointY[6] - shift)},
            0,
            0};
}

class CornersEvaluation {
public:
    explicit CornersEvaluation(const PackOptions& options) : options_(options) {
        rules_.leastSize = options.minFace;
        rules_.leastOverlap = options.leastOverlap;
    }

    void run() {
        options_.prepare();
        for (const std::string& name : options_.names())
            evaluate(readPack(options_.folder, name));
        if (total_.faces() == 0)
            throw std::runtime_error(options_.folder + ": no face in split " + options_.split);
        packs_.emplace_back("total", total_);
        packs_.emplace_back("with points by people", byPeople_);
        packs_.emplace_back("masked", masked_);
        packs_.emplace_back("known to be bare", bare_);
        if (options_.json)
            printJson();
        else
            printTable();
    }

private:
    void evaluate(const Pack& pack) {
        CornerFigures figures;
        CornerFigures maskedHere;
        const auto hasFaces = [](const LabelledPhoto& labels) { return !labels.faces.empty(); };
        readPhotos(options_, pack, hasFaces, [&](const LabelledPhoto& labels, cv::Mat& picture) {
            const std::vector<PointedFace> faces = facesWithPoints(labels, rules_);
            if (faces.empty())
                return;
            Library::Answer answer = library_.detect(picture);
            std::vector<Box> wanted;
            wanted.reserve(faces.size());
            for (const PointedFace& face : faces)
                wanted.push_back(clipped(face.box, picture.cols, picture.rows));
            const std::vector<VDFACEINFOEX*> match = matchFaces(answer.faces, wanted, rules_.leastOverlap);
            std::vector<CornerFigures*> groups;
            for (std::size_t i = 0; i < faces.size(); ++i) {
                groups = {&figures, &total_};
                if (faces[i].replacedPoints) {
                    groups.push_back(&byPeople_);
                    judgeTeacher(faces[i]);
                }
                if (faces[i].category == withMask)
                    groups.insert(groups.end(), {&masked_, &maskedHere});
                if (faces[i].category == withoutMask)
                    groups.push_back(&bare_);
                const fs::path name = pack.name + "-" + fs::path(labels.file).stem().string() + "-" + std::to_string(i);
                judgeFace(faces[i], match[i], picture, name.string(), groups);
            }
        });
        if (figures.faces() > 0)
            packs_.emplace_back(pack.name, figures);
        if (maskedHere.faces() > 0)
            packs_.emplace_back(pack.name + ", masked", maskedHere);
    }

    /** How far the labels can be trusted where nobody set points. */
    void judgeTeacher(const PointedFace& face) {
        const std::optional<CropSquare> people = alignedSquare(face.points);
        const std::optional<CropSquare> teacher = alignedSquare(*face.replacedPoints);
        if (people && teacher)
            teacherErrors_.push_back(cornerError(teacher->first, teacher->second, *people));
    }

    void judgeFace(const PointedFace& truth, const VDFACEINFOEX* found, const cv::Mat& picture, const std::string& name,
                   const std::vector<CornerFigures*>& groups) const {
        const std::optional<CropSquare> square = alignedSquare(truth.points);
        if (!square)
            throw std::runtime_error(name + ": five points that make no face");
        if (found == nullptr) {
            for (CornerFigures* group : groups)
                group->addMissed();
            return;
        }
        const int shift = shiftOfPoints(found->x, found->y, found->width, found->height, picture.cols, picture.rows);
        const CropSquare corners = cornersOf(*found, shift);
        CornerErrors errors;
        errors.shifted = shift > 0;
        errors.twoPoints = cornerError(corners.first, corners.second, *square);
        // Five points on top of each other make no square at all: as wrong as the whole crop.
        const std::optional<CropSquare> five = alignedSquare(pointsOf(*found));
        errors.againstFive = five ? cornerError(corners.first, corners.second, *five) : 1;
        errors.fivePoints = five ? cornerError(five->first, five->second, *square) : 1;
        for (CornerFigures* group : groups)
            group->add(errors);
        if (!options_.dumpFalse.empty() && errors.twoPoints >= largeError) {
            dump(name, picture, *found, errors, {{*square, green}, {corners, red}, {five.value_or(corners), blue}});
        }
    }

    /** With room about the picture, since crops reach out of it. */
    void dump(const std::string& name, const cv::Mat& picture, const VDFACEINFOEX& face, const CornerErrors& errors,
              const std::vector<std::pair<CropSquare, cv::Scalar>>& squares) const {
        const int margin = std::max(picture.cols, picture.rows) / 4;
        const auto moved = [&](Point p) -> Point { return {p.x + margin, p.y + margin}; };
        cv::Mat drawn;
        cv::copyMakeBorder(picture, drawn, margin, margin, margin, margin, cv::BORDER_CONSTANT, cv::Scalar(90, 90, 90));
        for (const auto& [square, colour] : squares)
            drawSquare(drawn, moved(square.first), moved(square.second), colour);
        Box box = boxOf(face);
        box.x += margin;
        box.y += margin;
        writeJudged(fs::path(options_.dumpFalse) / (name + ".jpg"), drawn, box,
                    "error " + percent(errors.twoPoints, 1) + " %");
    }

    void printTable() const {
        std::cout << options_.description() << " (geometric side)\n"
                  << "Distance of the two points from the corners of the crop, mean of the two, in % of its side.\n"
                     "labels: corners by the labels' five points (people's where they agree with the teacher's, else\n"
                     "the teacher's); found five: corners by the five points that the library found.\n\n";
        TextTable table({"pack", "faces", "missed", "shifted", "to labels: median", "mean", "90th",
                         "to found five: median", "mean", "90th", "found five to labels: median", "mean", "90th"});
        for (const auto& [name, figures] : packs_) {
            std::vector<std::string> row = {name, text(figures.faces()), text(figures.missed()),
                                            text(figures.shifted())};
            for (const CornerFigures::Summary& summary :
                 {figures.twoPoints(), figures.againstFive(), figures.fivePoints()}) {
                row.insert(row.end(), {percent(summary.median), percent(summary.mean), percent(summary.ninetieth)});
            }
            table.add(row);
        }
        table.print(std::cout);
        if (!teacherErrors_.empty()) {
            std::cout << "\nThe teacher's own error, its points against people's, on " << teacherErrors_.size()
                      << " faces: median " << percent(median(teacherErrors_)) << " %, mean "
                      << percent(mean(teacherErrors_)) << " %, 90th percentile "
                      << percent(quantile(teacherErrors_, 0.9)) << " %\n";
        }
        std::cout
            << "\nFaces that were not found (missed) are in none of the errors. shifted: the square about the box\n"
               "leaves the picture, where the engine gives its points moved right and down by what is missing;\n"
               "the errors are those with this taken back.\n";
    }

    void printJson() const {
        nlohmann::ordered_json document = {{"settings", options_.settings()},
                                           {"groups", nlohmann::ordered_json::array()}};
        for (const auto& [name, figures] : packs_) {
            nlohmann::ordered_json entry = {{"name", name}};
            entry.update(figures.toJson());
            document["groups"].push_back(entry);
        }
        document["teacherToPeople"] = {{"faces", teacherErrors_.size()},
                                       {"median", median(teacherErrors_)},
                                       {"mean", mean(teacherErrors_)},
                                       {"percentile90", quantile(teacherErrors_, 0.9)}};
        std::cout << document.dump(2) << '\n';
    }

    const PackOptions& options_;
    FaceRules rules_;
    Library library_;
    CornerFigures total_;
    CornerFigures byPeople_;
    CornerFigures masked_;
    CornerFigures bare_;
    std::vector<double> teacherErrors_;
    std::vector<std::pair<std::string, CornerFigures>> packs_;
};

} // namespace

void addCornersEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command =
        app.add_subcommand("corners", "Where the two points for masked faces put the corners of the crop");
    const auto options = std::make_shared<PackOptions>();
    options->minFace = 40;
    addPackOptions(*command, *options,
                   "Folder for pictures of faces off by a tenth and more: crop by the labels green, by the two points "
                   "red, by the found five points blue");
    command->footer(
        "A label with a score of 0.6 or more is a face. A face is masked where people boxed it so, or where\n"
        "it is the largest of a photo whose name begins with with_mask.\n"
        "\n"
        "Example:\n"
        "  veldan_eval corners photos/ --split val --dump-false errors/\n");
    command->callback([options, &action] { action = [options] { CornersEvaluation(*options).run(); }; });
}

} // namespace veldan::eval
