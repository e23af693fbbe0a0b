#include "detection_figures.hpp"
#include "error_pictures.hpp"
#include "evaluations.hpp"
#include "label_review.hpp"
#include "labels.hpp"
#include "library.hpp"
#include "pack_photos.hpp"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <algorithm>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

const std::vector<std::pair<std::string, SizeMeasure>> sizeMeasures = {
    {"geometric", SizeMeasure::Geometric}, {"longer", SizeMeasure::Longer}, {"shorter", SizeMeasure::Shorter}};

struct Options : PackOptions {
    std::string size = "geometric";
    std::string review;
    std::vector<std::string> background{"clothes", "kitchen_hands"};
};

std::vector<FoundFace> foundFaces(const Library::Answer& answer) {
    std::vector<FoundFace> faces;
    for (const VDFACEINFOEX& record : answer.faces)
        faces.push_back({boxOf(record), pointsOf(record)});
    return faces;
}

/** The figures of one pack, or of all: one set for each measure of size, in the order of sizeMeasures. */
using FigureSet = std::vector<DetectionFigures>;

class DetectEvaluation {
public:
    explicit DetectEvaluation(const Options& options) : options_(options) {
        for (std::size_t i = 0; i < sizeMeasures.size(); ++i) {
            if (sizeMeasures[i].first == options.size)
                chosen_ = i;
        }
    }

    void run() {
        options_.prepare();
        if (!options_.review.empty())
            review_ = LabelReview(options_.review, packNames(options_.folder));
        warmUp();
        FigureSet total(sizeMeasures.size());
        for (const std::string& name : options_.names()) {
            Pack pack = readPack(options_.folder, name);
            review_.apply(pack);
            if (std::find(options_.background.begin(), options_.background.end(), name) != options_.background.end())
                doubtAll(pack);
            const FigureSet figures = evaluate(pack);
            for (std::size_t i = 0; i < total.size(); ++i)
                total[i].add(figures[i]);
            packs_.emplace_back(name, figures);
        }
        packs_.emplace_back("total", total);
        if (total[chosen_].photos() == 0)
            throw std::runtime_error(options_.folder + ": no photo of split " + options_.split);
        if (options_.json)
            printJson();
        else
            printTable();
    }

private:
    static void doubtAll(Pack& pack) {
        for (LabelledPhoto& photo : pack.photos) {
            for (TeacherFace& face : photo.faces)
                face.score = 0;
        }
    }

    void warmUp() {
        cv::Mat picture(options_.fit > 0 ? options_.fit : 640, 640, CV_8UC3, cv::Scalar(128, 128, 128));
        library_.detect(picture);
    }

    FigureSet evaluate(const Pack& pack) {
        FigureSet figures(sizeMeasures.size());
        const auto all = [](const LabelledPhoto& /*labels*/) { return true; };
        readPhotos(options_, pack, all, [&](const LabelledPhoto& truth, cv::Mat& picture) {
            evaluatePhoto(pack.name, truth, picture, figures);
        });
        return figures;
    }

    void evaluatePhoto(const std::string& pack, const LabelledPhoto& truth, cv::Mat& picture, FigureSet& figures) {
        const Library::Answer answer = library_.detect(picture);
        const std::vector<FoundFace> faces = foundFaces(answer);
        for (std::size_t i = 0; i < figures.size(); ++i) {
            figures[i].add(faces, truth, picture.cols, picture.rows, rules(i), answer.milliseconds);
            if (answer.refused)
                figures[i].addRefused();
        }
        if (!options_.dumpFalse.empty()) {
            const fs::path name = pack + "-" + fs::path(truth.file).stem().string() + ".jpg";
            writeErrors(options_.dumpFalse / name, picture, faces,
                        judge(faces, truth, picture.cols, picture.rows, rules(chosen_)));
        }
    }

    DetectionRules rules(std::size_t measure) const {
        DetectionRules rules;
        rules.leastOverlap = options_.leastOverlap;
        rules.leastSize = options_.minFace;
        rules.measure = sizeMeasures[measure].second;
        return rules;
    }

    void printTable() const {
        std::cout << options_.description() << " (" << options_.size << " side), IoU " << options_.leastOverlap << ", "
                  << options_.threads << " thread(s)\n\n";
        std::cout << "pack          photos   faces  recall  false  per photo  small  ignored  points  missed  error %"
                     "  median %  ms mean  median\n";
        for (const auto& [name, set] : packs_)
            printRow(name, set[chosen_]);

        const DetectionFigures& total = packs_.back().second[chosen_];
        const std::array<double, 5> each = total.pointErrorOfEach();
        if (!options_.review.empty())
            std::cout << "\nLabels at fault (" << options_.review << "): " << review_.noFaces()
                      << " without a face are background, " << review_.parts() << " of a part of one uncertain";
        if (total.profiles().boxes > 0)
            std::cout << "\nFaces turned by about 60 degrees and more: " << total.profiles().found << " of "
                      << total.profiles().boxes << " found";
        std::cout << "\nPhotos without labels: " << total.emptyPhotos()
                  << ", false positives on them: " << total.emptyFalsePositives()
                  << "; refused as too small: " << total.refused() << '\n';
        std::cout << std::fixed << std::setprecision(2)
                  << "Error of eyes, nose, mouth corners (% of the eye distance): ";
        for (const double value : each)
            std::cout << 100 * value << ' ';
        std::cout << '\n';
        std::cout << "Faces whose points by people contradict the boxes, not judged: " << total.pointFacesContradicted()
                  << "; with them the mean error is " << 100 * total.pointErrorMeanOfAll() << " %\n";
        for (const auto& [category, count] : total.personBoxes())
            std::cout << "Boxes set by people, " << category << ": " << count.found << " of " << count.boxes
                      << " found\n";
        std::cout << std::setprecision(4);
        for (std::size_t i = 0; i < sizeMeasures.size(); ++i) {
            if (i != chosen_)
                std::cout << "With the " << sizeMeasures[i].first << " side as the size: recall "
                          << packs_.back().second[i].recall() << " of " << packs_.back().second[i].faces()
                          << " faces, false positives a photo " << packs_.back().second[i].falsePositivesPerPhoto()
                          << '\n';
        }
    }

    static void printRow(const std::string& name, const DetectionFigures& figures) {
        std::cout << std::left << std::setw(12) << name << std::right << std::fixed << std::setw(8) << figures.photos()
                  << std::setw(8) << figures.faces() << std::setw(8) << std::setprecision(4) << figures.recall()
                  << std::setw(7) << figures.falsePositives() << std::setw(11) << figures.falsePositivesPerPhoto()
                  << std::setw(7) << figures.smallFalsePositives() << std::setw(9) << figures.ignored() << std::setw(8)
                  << figures.pointFaces() << std::setw(8) << figures.pointFacesMissed() << std::setprecision(2)
                  << std::setw(9) << 100 * figures.pointErrorMean() << std::setw(10) << 100 * figures.pointErrorMedian()
                  << std::setw(9) << figures.millisecondsMean() << std::setw(8) << figures.millisecondsMedian() << '\n'
                  << std::defaultfloat << std::setprecision(6);
    }

    void printJson() const {
        nlohmann::ordered_json document = {{"settings",
                                            {{"folder", options_.folder},
                                             {"split", options_.split},
                                             {"fit", options_.fit},
                                             {"minFace", options_.minFace},
                                             {"size", options_.size},
                                             {"iou", options_.leastOverlap},
                                             {"threads", options_.threads},
                                             {"review", options_.review}}},
                                           {"packs", nlohmann::ordered_json::array()}};
        for (const auto& [name, set] : packs_) {
            nlohmann::ordered_json entry = {{"name", name}};
            entry.update(set[chosen_].toJson());
            for (std::size_t i = 0; i < sizeMeasures.size(); ++i) {
                if (i != chosen_)
                    entry["otherSizes"][sizeMeasures[i].first] = {
                        {"faces", set[i].faces()},
                        {"recall", set[i].recall()},
                        {"falsePositivesPerPhoto", set[i].falsePositivesPerPhoto()}};
            }
            if (name == "total")
                document["total"] = entry;
            else
                document["packs"].push_back(entry);
        }
        std::cout << document.dump(2) << '\n';
    }

    const Options& options_;
    std::size_t chosen_ = 0;
    Library library_;
    LabelReview review_;
    std::vector<std::pair<std::string, FigureSet>> packs_;
};

} // namespace

void addDetectEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command =
        app.add_subcommand("detect", "Recall, false positives a photo, error of the five points, milliseconds a photo");
    const auto options = std::make_shared<Options>();
    addPackOptions(*command, *options,
                   "Folder for pictures of the errors: false boxes red, missed faces blue, found green, ignored grey");
    command->add_option("--size", options->size, "What --min-face measures: root of width x height, or one side")
        ->check(CLI::IsMember({"geometric", "longer", "shorter"}))
        ->capture_default_str();
    command
        ->add_option("--review", options->review,
                     "Table of labels at fault (file,pack,x,y,w,h,verdict): no_face, background; part, uncertain")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    command->add_option("--background", options->background, "Packs whose labels are all uncertain")
        ->capture_default_str();
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
    command->callback([options, &action] { action = [options] { DetectEvaluation(*options).run(); }; });
}

} // namespace veldan::eval
