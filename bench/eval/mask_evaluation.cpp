#include "evaluations.hpp"
#include "face_figures.hpp"
#include "photos.hpp"

#include <veldan/thresholds.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

struct MaskOptions : PackOptions {
    int threshold = VELDAN_MASKED;
};

class MaskEvaluation {
public:
    explicit MaskEvaluation(const MaskOptions& options) : options_(options), rules_(options.rules()) {}

    void run() {
        options_.prepare();
        for (const std::string& name : options_.names()) {
            const MaskFigures figures = evaluate(readPack(options_.folder, name));
            if (figures.faces() > 0)
                groups_.push_back(named(name, figures.toJson()));
        }
        if (total_.faces() == 0)
            throw std::runtime_error(options_.folder + ": no face with a class of mask in split " + options_.split);
        groups_.push_back(named("total", total_.toJson()));
        Json document = {{"settings", options_.settings()}, {"groups", groups_}};
        document["settings"]["threshold"] = options_.threshold;
        if (options_.json)
            std::cout << document.dump(2) << '\n';
        else
            print();
    }

private:
    MaskFigures evaluate(const Pack& pack) {
        MaskFigures figures;
        FaceRules anySize = rules_; // sizes count in the fitted photo only
        anySize.leastSize = 0;
        const auto hasClass = [&](const LabelledPhoto& labels) { return !facesWithClass(labels, anySize).empty(); };
        readPhotos(options_, pack, hasClass, [&](const LabelledPhoto& labels, const cv::Mat& picture) {
            const std::vector<ClassedFace> faces = facesWithClass(labels, rules_);
            std::vector<VDFACEINFOEX> found = detect(library_, picture);
            const std::vector<VDFACEINFOEX*> match = matches(faces, found, picture);
            for (std::size_t i = 0; i < faces.size(); ++i) {
                std::optional<int> score;
                if (match[i] != nullptr) {
                    library_.judgeMask(viewOf(picture), {match[i], 1});
                    score = match[i]->maskScore;
                }
                figures.add(faces[i].category, score, options_.threshold);
                total_.add(faces[i].category, score, options_.threshold);
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
            wanted.push_back(*face.box);
        return matchFaces(found, wanted, picture, rules_.leastOverlap);
    }

    void dump(const std::string& name, const cv::Mat& picture, const ClassedFace& face,
              const VDFACEINFOEX* found) const {
        const bool masked = face.category != withoutMask;
        if (options_.dumpFalse.empty() || (found != nullptr && (found->maskScore >= options_.threshold) == masked))
            return;
        writeJudged(fs::path(options_.dumpFalse) / (name + ".jpg"), picture, found ? boxOf(*found) : face.box,
                    face.category + (found ? ", score " + std::to_string(found->maskScore) : ", not found"));
    }

    void print() const {
        std::cout << options_.description() << " (geometric side), masked from a score of " << options_.threshold
                  << " on\n\n";
        std::vector<Column> columns = {
            {"pack", "/name"}, {"faces", "/faces"}, percentColumn("accuracy %", "/accuracy")};
        Json rows = groups_;
        for (const auto& [category, heading, wrong] : {std::tuple{withMask, "with mask", "wrong"},
                                                       {withoutMask, "without mask", "wrong"},
                                                       {maskWornWrong, "worn wrong", "judged masked"}}) {
            const std::string path = "/" + category + "/";
            columns.push_back({std::string(heading) + ": found", path + "found"});
            columns.push_back({"missed", path + "missed"});
            columns.push_back({wrong, path + "wrong"});
            columns.push_back(percentColumn("%", path + "share"));
            for (Json& row : rows) {
                const Json count = row["classes"].value(category, Json::object());
                const auto judgedMasked = count.value("judgedMasked", std::size_t{0});
                const auto judgedBare = count.value("judgedBare", std::size_t{0});
                const std::size_t wrongHere = category == withMask ? judgedBare : judgedMasked;
                row[category] = {{"found", judgedMasked + judgedBare},
                                 {"missed", count.value("missed", std::size_t{0})},
                                 {"wrong", wrongHere},
                                 {"share", orNull(ratio(wrongHere, judgedMasked + judgedBare))}};
            }
        }
        printTable(std::cout, columns, rows);
        std::cout
            << "\nFaces that the detector missed are in no share. Accuracy is over the found faces with a mask and\n"
               "without; masks worn the wrong way are apart.\n";
    }

    const MaskOptions& options_;
    FaceRules rules_;
    Instance library_;
    MaskFigures total_;
    Json groups_ = Json::array();
};

} // namespace

void addMaskEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("mask", "Accuracy of the mask score, and its errors per class");
    const auto options = std::make_shared<MaskOptions>();
    options->minFace = 40;
    addPackOptions(*command, *options, "Folder for pictures of the faces that were judged wrong or not found");
    command->add_option("--threshold", options->threshold, "From this score on a face counts as masked")
        ->check(CLI::Range(0, 101));
    command->footer("Judged are the boxes of NAME.masks.csv, and the largest face of photos whose name begins with\n"
                    "with_mask_ or without_mask_; where no label tells its place, the largest that the library finds.\n"
                    "\n"
                    "Example:\n"
                    "  veldan_eval mask photos/ --split val --dump-false errors/\n");
    onChoice<MaskEvaluation>(*command, action, options);
}

} // namespace veldan::eval
