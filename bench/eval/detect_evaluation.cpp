#include "detection_figures.hpp"
#include "evaluations.hpp"
#include "photos.hpp"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace veldan::eval {

namespace {

const std::vector<std::pair<std::string, SizeMeasure>> sizeMeasures = {
    {"geometric", SizeMeasure::Geometric}, {"longer", SizeMeasure::Longer}, {"shorter", SizeMeasure::Shorter}};

struct DetectOptions : PackOptions {
    std::string size = "geometric";
    std::string review;
    std::vector<std::string> background{"clothes", "kitchen_hands"};
};

/** The figures of one pack, or of all: one set for each measure of size, in the order of sizeMeasures. */
using FigureSet = std::vector<DetectionFigures>;

void doubtAll(Pack& pack) {
    for (LabelledPhoto& photo : pack.photos)
        for (TeacherFace& face : photo.faces)
            face.score = 0;
}

/**
 * Writes the picture with what went wrong in it: false boxes red, faces that were not found blue, found ones green,
 * ignored ones grey. Writes nothing when nothing went wrong.
 */
void writeErrors(const std::filesystem::path& path, const cv::Mat& picture, const std::vector<FoundFace>& found,
                 const PhotoVerdict& verdict) {
    if (std::count(verdict.found.begin(), verdict.found.end(), Verdict::False) == 0 &&
        std::count(verdict.wantedFound.begin(), verdict.wantedFound.end(), false) == 0)
        return;
    cv::Mat drawn = picture.clone();
    for (std::size_t i = 0; i < found.size(); ++i) {
        const Verdict what = verdict.found[i];
        drawBox(drawn, found[i].box, what == Verdict::False ? red : what == Verdict::True ? green : grey);
    }
    for (std::size_t i = 0; i < verdict.wanted.size(); ++i) {
        if (!verdict.wantedFound[i])
            drawBox(drawn, verdict.wanted[i], blue);
    }
    writePicture(path, drawn);
}

class DetectEvaluation {
public:
    explicit DetectEvaluation(const DetectOptions& options) : options_(options) {
        for (std::size_t i = 0; i < sizeMeasures.size(); ++i) {
            if (sizeMeasures[i].first == options.size)
                chosen_ = i;
        }
    }

    void run() {
        options_.prepare();
        if (!options_.review.empty())
            review_ = LabelReview(options_.review, packNames(options_.folder));
        // The first call does not count.
        detect(library_, cv::Mat(options_.fit > 0 ? options_.fit : 640, 640, CV_8UC3, cv::Scalar(128, 128, 128)));
        Json document = {{"settings", options_.settings()}, {"packs", Json::array()}};
        document["settings"].update(
            {{"size", options_.size}, {"threads", options_.threads}, {"review", options_.review}});
        for (const std::string& name : options_.names()) {
            Pack pack = readPack(options_.folder, name);
            review_.apply(pack);
            if (std::find(options_.background.begin(), options_.background.end(), name) != options_.background.end())
                doubtAll(pack);
            document["packs"].push_back(toJson(name, evaluate(pack)));
        }
        document["total"] = toJson("total", total_);
        if (total_[chosen_].photos() == 0)
            throw std::runtime_error(options_.folder + ": no photo of split " + options_.split);
        if (options_.json)
            std::cout << document.dump(2) << '\n';
        else
            print(document);
    }

private:
    FigureSet evaluate(const Pack& pack) {
        FigureSet figures(sizeMeasures.size());
        const auto all = [](const LabelledPhoto& /*labels*/) { return true; };
        readPhotos(options_, pack, all, [&](const LabelledPhoto& truth, const cv::Mat& picture) {
            const auto start = std::chrono::steady_clock::now();
            const std::vector<VDFACEINFOEX> records = detect(library_, picture);
            const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
            std::vector<FoundFace> faces;
            faces.reserve(records.size());
            for (const VDFACEINFOEX& record : records)
                faces.push_back({boxOf(record), pointsOf(record)});
            for (FigureSet* set : {&figures, &total_})
                for (std::size_t i = 0; i < set->size(); ++i)
                    (*set)[i].add(faces, truth, picture.cols, picture.rows, rules(i), elapsed.count(),
                                  isTooSmall(picture));
            if (!options_.dumpFalse.empty())
                writeErrors(std::filesystem::path(options_.dumpFalse) /
                                (pack.name + "-" + std::filesystem::path(truth.file).stem().string() + ".jpg"),
                            picture, faces, judge(faces, truth, picture.cols, picture.rows, rules(chosen_)));
        });
        return figures;
    }

    DetectionRules rules(std::size_t measure) const {
        DetectionRules rules;
        rules.leastOverlap = options_.leastOverlap;
        rules.leastSize = options_.minFace;
        rules.measure = sizeMeasures[measure].second;
        return rules;
    }

    Json toJson(const std::string& name, const FigureSet& set) const {
        Json entry = named(name, set[chosen_].toJson());
        for (std::size_t i = 0; i < sizeMeasures.size(); ++i) {
            const Json other = set[i].toJson();
            if (i != chosen_)
                for (const char* figure : {"faces", "recall", "falsePositivesPerPhoto"})
                    entry["otherSizes"][sizeMeasures[i].first][figure] = other[figure];
        }
        return entry;
    }

    void print(const Json& document) const {
        const Json& total = document["total"];
        Json rows = document["packs"];
        rows.push_back(total);
        std::cout << options_.description() << " (" << options_.size << " side), IoU " << options_.leastOverlap << ", "
                  << options_.threads << " thread(s)\n\n";
        printTable(std::cout,
                   {{"pack", "/name"},
                    {"photos", "/photos"},
                    {"faces", "/faces"},
                    {"recall", "/recall", 4},
                    {"false", "/falsePositives"},
                    {"per photo", "/falsePositivesPerPhoto", 4},
                    {"small", "/smallFalsePositives"},
                    {"ignored", "/ignored"},
                    {"points", "/pointFaces"},
                    {"missed", "/pointFacesMissed"},
                    percentColumn("error %", "/pointErrorMean"),
                    percentColumn("median %", "/pointErrorMedian"),
                    {"ms mean", "/millisecondsMean", 2},
                    {"median", "/millisecondsMedian", 2}},
                   rows);
        if (!options_.review.empty())
            std::cout << "\nLabels at fault (" << options_.review << "): " << review_.noFaces()
                      << " without a face are background, " << review_.parts() << " of a part of one uncertain";
        if (total["profiles"]["faces"] > 0)
            std::cout << "\nFaces turned by about 60 degrees and more: " << total["profiles"]["found"] << " of "
                      << total["profiles"]["faces"] << " found";
        std::cout << "\nPhotos without labels: " << total["emptyPhotos"]
                  << ", false positives on them: " << total["emptyFalsePositives"]
                  << "; refused as too small: " << total["refused"]
                  << "\nError of eyes, nose, mouth corners (% of the eye distance): ";
        for (const double value : total["pointErrorOfEach"])
            std::cout << percent(value) << ' ';
        std::cout << "\nFaces whose points by people contradict the boxes, not judged: "
                  << total["pointFacesContradicted"] << "; with them the mean error is "
                  << percent(total["pointErrorMeanOfAll"].get<double>()) << " %\n";
        for (const auto& [category, count] : total["personBoxes"].items())
            std::cout << "Boxes set by people, " << category << ": " << count["found"] << " of " << count["boxes"]
                      << " found\n";
        for (const auto& [size, figures] : total["otherSizes"].items())
            std::cout << "With the " << size << " side as the size: recall " << text(figures["recall"].get<double>(), 4)
                      << " of " << figures["faces"] << " faces, false positives a photo "
                      << text(figures["falsePositivesPerPhoto"].get<double>(), 4) << '\n';
    }

    const DetectOptions& options_;
    std::size_t chosen_ = 0;
    Instance library_;
    LabelReview review_;
    FigureSet total_{sizeMeasures.size()};
};

} // namespace

void addDetectEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command =
        app.add_subcommand("detect", "Recall, false positives a photo, error of the five points, milliseconds a photo");
    const auto options = std::make_shared<DetectOptions>();
    addPackOptions(*command, *options,
                   "Folder for pictures of the errors: false boxes red, missed faces blue, found green, ignored grey");
    command->add_option("--size", options->size, "What --min-face measures: root of width x height, or one side")
        ->check(CLI::IsMember({"geometric", "longer", "shorter"}));
    command
        ->add_option("--review", options->review,
                     "Table of labels at fault (file,pack,x,y,w,h,verdict): no_face, background; part, uncertain")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    command->add_option("--background", options->background, "Packs whose labels are all uncertain");
    command->footer(
        "A label with a score of 0.6 or more is a face. Uncertain labels, too small faces and boxes set by people\n"
        "are neither required nor held against the library. Milliseconds are those of the detection call.\n"
        "\n"
        "Examples:\n"
        "  veldan_eval detect photos/\n"
        "  veldan_eval detect photos/ --pack groups helen --json > figures.json\n"
        "  veldan_eval detect photos/ --review bench/eval/reviewed_labels.csv\n"
        "  veldan_eval detect photos/ --split train --dump-false errors/\n"
        "  veldan_eval detect more/ --pack people sports fashion weapons babies\n"
        "  veldan_eval detect more/ --pack clothes kitchen_hands\n");
    onChoice<DetectEvaluation>(*command, action, options);
}

} // namespace veldan::eval
