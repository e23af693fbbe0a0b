#include "evaluations.hpp"
#include "face_figures.hpp"
#include "photos.hpp"

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

// From this error on --dump-false draws a face: the crop is off by more than the margin about the eyes.
constexpr double largeError = 0.1;

/** Key points 5 and 6 in pixels of the picture, whatever the engine shifted them by. */
CropSquare cornersOf(const VDFACEINFOEX& face, int shift) {
    const auto point = [&](int k) -> Point {
        return {static_cast<double>(face.keyPointX[k] - shift), static_cast<double>(face.keyPointY[k] - shift)};
    };
    return {point(5), point(6), 0, 0};
}

class CornersEvaluation {
public:
    explicit CornersEvaluation(const PackOptions& options) : options_(options), rules_(options.rules()) {}

    void run() {
        options_.prepare();
        for (const std::string& name : options_.names())
            evaluate(readPack(options_.folder, name));
        if (total_.faces.empty())
            throw std::runtime_error(options_.folder + ": no face in split " + options_.split);
        groups_.push_back(named("total", total_.toJson()));
        groups_.push_back(named("with points by people", byPeople_.toJson()));
        groups_.push_back(named("masked", masked_.toJson()));
        groups_.push_back(named("known to be bare", bare_.toJson()));
        Json document = {{"settings", options_.settings()}, {"groups", groups_}};
        document["teacherToPeople"] = {{"faces", teacherErrors_.size()}};
        document["teacherToPeople"].update(spreadOf(teacherErrors_));
        if (options_.json)
            std::cout << document.dump(2) << '\n';
        else
            print(document);
    }

private:
    void evaluate(const Pack& pack) {
        CornerFigures figures;
        CornerFigures maskedHere;
        const auto hasFaces = [](const LabelledPhoto& labels) { return !labels.faces.empty(); };
        readPhotos(options_, pack, hasFaces, [&](const LabelledPhoto& labels, const cv::Mat& picture) {
            const std::vector<PointedFace> faces = facesWithPoints(labels, rules_);
            if (faces.empty())
                return;
            std::vector<VDFACEINFOEX> found = detect(library_, picture);
            const auto match = matchFaces(found, boxesOf(faces), picture, rules_.leastOverlap);
            for (std::size_t i = 0; i < faces.size(); ++i) {
                std::vector<CornerFigures*> groups = {&figures, &total_};
                if (faces[i].replacedPoints) {
                    groups.push_back(&byPeople_);
                    judgeTeacher(faces[i]);
                }
                if (faces[i].category == withMask)
                    groups.insert(groups.end(), {&masked_, &maskedHere});
                if (faces[i].category == withoutMask)
                    groups.push_back(&bare_);
                const fs::path name = pack.name + "-" + fs::path(labels.file).stem().string() + "-" + std::to_string(i);
                const auto errors = errorsOf(faces[i], match[i], picture, name.string());
                for (CornerFigures* group : groups)
                    group->faces.push_back(errors);
            }
        });
        if (!figures.faces.empty())
            groups_.push_back(named(pack.name, figures.toJson()));
        if (!maskedHere.faces.empty())
            groups_.push_back(named(pack.name + ", masked", maskedHere.toJson()));
    }

    /** How far the labels can be trusted where nobody set points. */
    void judgeTeacher(const PointedFace& face) {
        const std::optional<CropSquare> people = alignedSquare(face.points);
        const std::optional<CropSquare> teacher = alignedSquare(*face.replacedPoints);
        if (people && teacher)
            teacherErrors_.push_back(cornerError(teacher->first, teacher->second, *people));
    }

    std::optional<CornerErrors> errorsOf(const PointedFace& truth, const VDFACEINFOEX* found, const cv::Mat& picture,
                                         const std::string& name) const {
        const std::optional<CropSquare> square = alignedSquare(truth.points);
        if (!square)
            throw std::runtime_error(name + ": five points that make no face");
        if (found == nullptr)
            return std::nullopt;
        const int shift = shiftOfPoints(found->x, found->y, found->width, found->height, picture.cols, picture.rows);
        const CropSquare corners = cornersOf(*found, shift);
        CornerErrors errors;
        errors.shifted = shift > 0;
        errors.twoPoints = cornerError(corners.first, corners.second, *square);
        // Five points on top of each other make no square at all: as wrong as the whole crop.
        const std::optional<CropSquare> five = alignedSquare(pointsOf(*found));
        errors.againstFive = five ? cornerError(corners.first, corners.second, *five) : 1;
        errors.fivePoints = five ? cornerError(five->first, five->second, *square) : 1;
        if (!options_.dumpFalse.empty() && errors.twoPoints >= largeError)
            dump(name, picture, *found, errors, {{*square, green}, {corners, red}, {five.value_or(corners), blue}});
        return errors;
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

    void print(const Json& document) const {
        std::cout << options_.description() << " (geometric side)\n"
                  << "Distance of the two points from the corners of the crop, mean of the two, in % of its side.\n"
                     "labels: corners by the labels' five points (people's where they agree with the teacher's, else\n"
                     "the teacher's); found five: corners by the five points that the library found.\n\n";
        std::vector<Column> columns = {
            {"pack", "/name"}, {"faces", "/faces"}, {"missed", "/missed"}, {"shifted", "/shifted"}};
        for (const auto& [heading, path] : {std::pair{"to labels", "/twoPoints"},
                                            {"to found five", "/twoPointsAgainstFoundFive"},
                                            {"found five to labels", "/foundFive"}}) {
            columns.push_back(percentColumn(std::string(heading) + ": median", std::string(path) + "/median"));
            columns.push_back(percentColumn("mean", std::string(path) + "/mean"));
            columns.push_back(percentColumn("90th", std::string(path) + "/percentile90"));
        }
        printTable(std::cout, columns, groups_);
        if (const Json& teacher = document["teacherToPeople"]; !teacherErrors_.empty())
            std::cout << "\nThe teacher's own error, its points against people's, on " << teacher["faces"]
                      << " faces: median " << percent(teacher["median"].get<double>()) << " %, mean "
                      << percent(teacher["mean"].get<double>()) << " %, 90th percentile "
                      << percent(teacher["percentile90"].get<double>()) << " %\n";
        std::cout
            << "\nFaces that were not found (missed) are in none of the errors. shifted: the square about the box\n"
               "leaves the picture, where the engine gives its points moved right and down by what is missing;\n"
               "the errors are those with this taken back.\n";
    }

    const PackOptions& options_;
    FaceRules rules_;
    Instance library_;
    CornerFigures total_;
    CornerFigures byPeople_;
    CornerFigures masked_;
    CornerFigures bare_;
    std::vector<double> teacherErrors_;
    Json groups_ = Json::array();
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
    onChoice<CornersEvaluation>(*command, action, options);
}

} // namespace veldan::eval
