#include "error_pictures.hpp"
#include "evaluations.hpp"
#include "known_faces.hpp"
#include "library.hpp"
#include "mask_figures.hpp"
#include "pack_photos.hpp"
#include "text_table.hpp"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

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

struct Options : PackOptions {
    int threshold = 41; // that of the combined flows
};

class MaskEvaluation {
public:
    explicit MaskEvaluation(const Options& options) : options_(options) {
        rules_.leastSize = options.minFace;
        rules_.leastOverlap = options.leastOverlap;
    }

    void run() {
        options_.prepare();
        MaskFigures total;
        for (const std::string& name : options_.names()) {
            const MaskFigures figures = evaluate(readPack(options_.folder, name));
            if (figures.faces() == 0)
                continue;
            total.add(figures);
            packs_.emplace_back(name, figures);
        }
        if (total.faces() == 0)
            throw std::runtime_error(options_.folder + ": no face with a class of mask in split " + options_.split);
        packs_.emplace_back("total", total);
        if (options_.json)
            printJson();
        else
            printTable();
    }

private:
    MaskFigures evaluate(const Pack& pack) {
        MaskFigures figures;
        FaceRules anySize = rules_; // sizes count in the fitted photo only
        anySize.leastSize = 0;
        const auto hasClass = [&](const LabelledPhoto& labels) { return !facesWithClass(labels, anySize).empty(); };
        readPhotos(options_, pack, hasClass, [&](const LabelledPhoto& labels, cv::Mat& picture) {
            const std::vector<ClassedFace> faces = facesWithClass(labels, rules_);
            Library::Answer answer = library_.detect(picture);
            const std::vector<VDFACEINFOEX*> match = matches(faces, answer.faces, picture);
            for (std::size_t i = 0; i < faces.size(); ++i) {
                std::optional<int> score;
                if (match[i] != nullptr) {
                    library_.scoreMask(picture, *match[i]);
                    score = match[i]->maskScore;
                }
                figures.add(faces[i].category, score, options_.threshold);
                const fs::path name = pack.name + "-" + fs::path(labels.file).stem().string() + "-" + std::to_string(i);
                dump(name.string(), picture, faces[i], match[i]);
            }
        });
        return figures;
    }

    /** The found face for each known one; the largest that is left for one whose place is not known. */
    std::vector<VDFACEINFOEX*> matches(const std::vector<ClassedFace>& faces, std::vector<VDFACEINFOEX>& found,
                                       const cv::Mat& picture) const {
        if (faces.size() == 1 && !faces[0].box)
            return {found.empty() ? nullptr : found.data()};
        std::vector<Box> wanted;
        wanted.reserve(faces.size());
        for (const ClassedFace& face : faces)
            wanted.push_back(clipped(*face.box, picture.cols, picture.rows));
        return matchFaces(found, wanted, rules_.leastOverlap);
    }

    void dump(const std::string& name, const cv::Mat& picture, const ClassedFace& face,
              const VDFACEINFOEX* found) const {
        if (options_.dumpFalse.empty())
            return;
        const bool masked = face.category != withoutMask;
        if (found != nullptr && (found->maskScore >= options_.threshold) == masked)
            return;
        writeJudged(fs::path(options_.dumpFalse) / (name + ".jpg"), picture, found ? boxOf(*found) : face.box,
                    face.category + (found ? ", score " + std::to_string(found->maskScore) : ", not found"));
    }

    void printTable() const {
        std::cout << options_.description() << " (geometric side), masked from a score of " << options_.threshold
                  << " on\n\n";
        TextTable table({"pack", "faces", "accuracy %", "with mask: found", "missed", "wrong", "%",
                         "without mask: found", "missed", "wrong", "%", "worn wrong: found", "missed", "judged masked",
                         "%"});
        for (const auto& [name, figures] : packs_) {
            const MaskFigures::Count with = figures.count(withMask);
            const MaskFigures::Count without = figures.count(withoutMask);
            const MaskFigures::Count wrong = figures.count(maskWornWrong);
            const std::optional<double> right = figures.maskedShare(withMask);
            table.add({name, text(figures.faces()), percent(figures.accuracy()), text(with.judged()), text(with.missed),
                       text(with.bare), percent(right ? std::optional<double>(1 - *right) : std::nullopt),
                       text(without.judged()), text(without.missed), text(without.masked),
                       percent(figures.maskedShare(withoutMask)), text(wrong.judged()), text(wrong.missed),
                       text(wrong.masked), percent(figures.maskedShare(maskWornWrong))});
        }
        table.print(std::cout);
        std::cout
            << "\nFaces that the detector missed are in no share. Accuracy is over the found faces with a mask and\n"
               "without; masks worn the wrong way are apart.\n";
    }

    void printJson() const {
        nlohmann::ordered_json document = {{"settings", options_.settings()},
                                           {"groups", nlohmann::ordered_json::array()}};
        document["settings"]["threshold"] = options_.threshold;
        for (const auto& [name, figures] : packs_) {
            nlohmann::ordered_json entry = {{"name", name}};
            entry.update(figures.toJson());
            document["groups"].push_back(entry);
        }
        std::cout << document.dump(2) << '\n';
    }

    const Options& options_;
    FaceRules rules_;
    Library library_;
    std::vector<std::pair<std::string, MaskFigures>> packs_;
};

} // namespace

void addMaskEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("mask", "Accuracy of the mask score, and its errors per class");
    const auto options = std::make_shared<Options>();
    options->minFace = 40;
    addPackOptions(*command, *options, "Folder for pictures of the faces that were judged wrong or not found");
    command->add_option("--threshold", options->threshold, "From this score on a face counts as masked")
        ->check(CLI::Range(0, 101))
        ->capture_default_str();
    command->footer("Judged are the boxes of NAME.masks.csv, and the largest face of photos whose name begins with\n"
                    "with_mask_ or without_mask_; where no label tells its place, the largest that the library finds.\n"
                    "\n"
                    "Example:\n"
                    "  veldan_eval mask photos/ --split val --dump-false errors/\n");
    command->callback([options, &action] { action = [options] { MaskEvaluation(*options).run(); }; });
}

} // namespace veldan::eval
