#include "detection_figures.hpp"
#include "error_pictures.hpp"
#include "evaluations.hpp"
#include "labels.hpp"
#include "photo_source.hpp"

#include <veldan/face_api.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

const std::vector<std::pair<std::string, SizeMeasure>> sizeMeasures = {
    {"geometric", SizeMeasure::Geometric}, {"longer", SizeMeasure::Longer}, {"shorter", SizeMeasure::Shorter}};

struct Options {
    std::string folder;
    std::vector<std::string> packs;
    std::string split = "val";
    int fit = 640;
    double minFace = 45;
    std::string size = "geometric";
    double leastOverlap = 0.5;
    int threads = 1;
    std::string dumpFalse;
    bool json = false;
};

struct Answer {
    std::vector<FoundFace> faces;
    bool refused = false;
    double milliseconds = 0;
};

/** The library as an application sees it. */
class Detector {
public:
    Detector() : records_(VELDAN_DETECT_CAPACITY) {
        int code = 0;
        handle_ = zzInitAlgThread(nullptr, &code);
        if (handle_ == nullptr)
            throw std::runtime_error("the library did not start: code " + std::to_string(code));
    }
    ~Detector() { zzFreeAlgThread(handle_); }
    Detector(const Detector&) = delete;
    Detector& operator=(const Detector&) = delete;

    Answer detect(cv::Mat& picture) {
        int count = 0;
        const auto start = std::chrono::steady_clock::now();
        const int code = zzDetectFaceThread(handle_, picture.data, picture.cols, picture.rows, &count, records_.data());
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        Answer answer;
        answer.milliseconds = elapsed.count();
        if (code == VD_ERR_IMAGE_TOO_SMALL) {
            answer.refused = true;
            return answer;
        }
        if (code == VD_ERR_NO_FACE)
            return answer;
        if (code != VD_OK && code != VD_ERR_TOO_MANY_FACES)
            throw std::runtime_error("detection failed with code " + std::to_string(code));
        for (int i = 0; i < count; ++i) {
            const VDFACEINFOEX& record = records_[static_cast<std::size_t>(i)];
            FoundFace face;
            face.box = {static_cast<double>(record.x), static_cast<double>(record.y), static_cast<double>(record.width),
                        static_cast<double>(record.height)};
            for (std::size_t k = 0; k < face.points.size(); ++k)
                face.points[k] = {static_cast<double>(record.keyPointX[k]), static_cast<double>(record.keyPointY[k])};
            answer.faces.push_back(face);
        }
        return answer;
    }

private:
    void* handle_ = nullptr;
    std::vector<VDFACEINFOEX> records_;
};

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
        cv::setNumThreads(options_.threads);
        if (!options_.dumpFalse.empty())
            fs::create_directories(options_.dumpFalse);
        warmUp();
        FigureSet total(sizeMeasures.size());
        for (const std::string& name : options_.packs.empty() ? packNames(options_.folder) : options_.packs) {
            const FigureSet figures = evaluate(readPack(options_.folder, name));
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
    void warmUp() {
        cv::Mat picture(options_.fit > 0 ? options_.fit : 640, 640, CV_8UC3, cv::Scalar(128, 128, 128));
        detector_.detect(picture);
    }

    FigureSet evaluate(const Pack& pack) {
        const std::unique_ptr<PhotoSource> source = openPhotos(options_.folder, pack.name);
        FigureSet figures(sizeMeasures.size());
        std::size_t seen = 0;
        for (const LabelledPhoto& labels : pack.photos) {
            ++seen;
            if (options_.split != "all" && labels.split != options_.split)
                continue;
            showProgress(pack, seen);
            evaluatePhoto(pack.name, labels, source->read(labels.file), figures);
        }
        if (::isatty(STDERR_FILENO) == 1)
            std::cerr << "\r\033[K" << std::flush;
        return figures;
    }

    void evaluatePhoto(const std::string& pack, const LabelledPhoto& labels, const std::vector<unsigned char>& bytes,
                       FigureSet& figures) {
        cv::Mat picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
        if (picture.cols != labels.width || picture.rows != labels.height) {
            throw std::runtime_error(pack + "/" + labels.file + ": not a picture of " + std::to_string(labels.width) +
                                     " x " + std::to_string(labels.height) + " pixels");
        }
        picture = fitted(picture);
        const LabelledPhoto truth = scaled(labels, static_cast<double>(picture.cols) / labels.width,
                                           static_cast<double>(picture.rows) / labels.height);
        const Answer answer = detector_.detect(picture);
        for (std::size_t i = 0; i < figures.size(); ++i) {
            figures[i].add(answer.faces, truth, picture.cols, picture.rows, rules(i), answer.milliseconds);
            if (answer.refused)
                figures[i].addRefused();
        }
        if (!options_.dumpFalse.empty()) {
            const fs::path name = pack + "-" + fs::path(labels.file).stem().string() + ".jpg";
            writeErrors(options_.dumpFalse / name, picture, answer.faces,
                        judge(answer.faces, truth, picture.cols, picture.rows, rules(chosen_)));
        }
    }

    cv::Mat fitted(const cv::Mat& picture) const {
        const int longer = std::max(picture.cols, picture.rows);
        if (options_.fit == 0 || longer == options_.fit)
            return picture;
        const double factor = static_cast<double>(options_.fit) / longer;
        const cv::Size size(std::max(1, static_cast<int>(std::lround(picture.cols * factor))),
                            std::max(1, static_cast<int>(std::lround(picture.rows * factor))));
        cv::Mat result;
        cv::resize(picture, result, size, 0, 0, factor < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
        return result;
    }

    DetectionRules rules(std::size_t measure) const {
        DetectionRules rules;
        rules.leastOverlap = options_.leastOverlap;
        rules.leastSize = options_.minFace;
        rules.measure = sizeMeasures[measure].second;
        return rules;
    }

    static void showProgress(const Pack& pack, std::size_t seen) {
        if (::isatty(STDERR_FILENO) == 1)
            std::cerr << "\r\033[K" << pack.name << ' ' << seen << '/' << pack.photos.size() << std::flush;
    }

    void printTable() const {
        std::cout << "Split " << options_.split << ", photos "
                  << (options_.fit > 0 ? "fitted to " + std::to_string(options_.fit) + " pixels" : "as they are")
                  << ", faces of " << options_.minFace << " pixels and more (" << options_.size << " side), IoU "
                  << options_.leastOverlap << ", " << options_.threads << " thread(s)\n\n";
        std::cout << "pack          photos   faces  recall  false  per photo  small  ignored  points  missed  error %"
                     "  median %  ms mean  median\n";
        for (const auto& [name, set] : packs_)
            printRow(name, set[chosen_]);

        const DetectionFigures& total = packs_.back().second[chosen_];
        const std::array<double, 5> each = total.pointErrorOfEach();
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
                                             {"threads", options_.threads}}},
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
    Detector detector_;
    std::vector<std::pair<std::string, FigureSet>> packs_;
};

} // namespace

void addDetectEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command =
        app.add_subcommand("detect", "Recall, false positives a photo, error of the five points, milliseconds a photo");
    const auto options = std::make_shared<Options>();
    command->add_option("folder", options->folder, "Folder with NAME.images.csv, NAME.labels.csv and NAME/ or NAME.zip")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("DATA");
    command->add_option("--pack", options->packs, "Names of packs; all of the folder when left out");
    command->add_option("--split", options->split, "val, train or all")
        ->check(CLI::IsMember({"val", "train", "all"}))
        ->capture_default_str();
    command->add_option("--fit", options->fit, "Scale each photo, up or down, to this longer side; 0: as it is")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    command
        ->add_option("--min-face", options->minFace, "Smallest face that must be found, in pixels of the fitted photo")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command->add_option("--size", options->size, "What --min-face measures: root of width x height, or one side")
        ->check(CLI::IsMember({"geometric", "longer", "shorter"}))
        ->capture_default_str();
    command->add_option("--iou", options->leastOverlap, "Least intersection over union of a found face and its label")
        ->check(CLI::Range(0.01, 1.0))
        ->capture_default_str();
    command->add_option("--threads", options->threads, "Threads of OpenCV")
        ->check(CLI::Range(1, 256))
        ->capture_default_str();
    command
        ->add_option("--dump-false", options->dumpFalse,
                     "Folder for pictures of the errors: false boxes red, missed faces blue, found green, ignored grey")
        ->type_name("DIR");
    command->add_flag("--json", options->json, "Print JSON");
    command->footer(
        "A label with a score of 0.6 or more is a face. Uncertain labels, too small faces and boxes set by people\n"
        "are neither required nor held against the library. Milliseconds are those of the detection call.\n"
        "\n"
        "Examples:\n"
        "  veldan_eval detect photos/\n"
        "  veldan_eval detect photos/ --pack groups helen --json > figures.json\n"
        "  veldan_eval detect photos/ --split train --dump-false errors/\n");
    command->callback([options, &action] { action = [options] { DetectEvaluation(*options).run(); }; });
}

} // namespace veldan::eval
