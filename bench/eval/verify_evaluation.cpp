#include "evaluations.hpp"
#include "painted_mask.hpp"
#include "photos.hpp"
#include "plots.hpp"
#include "verify_figures.hpp"

#include <veldan/thresholds.h>

#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

const std::vector<double> falseMatchRates = {1e-1, 1e-2, 1e-3, 1e-4, 1e-5};

struct VerifyOptions : CommonOptions {
    std::string folder;
    std::string draw;
    std::string painted;
    std::vector<std::string> others;
    std::size_t enrolled = 1000;
};

/** What a photo is turned into. */
enum Form { Bare, Masked, MaskedEnrolled, Painted, Forms };

/** Two forms whose similarity is measured: of the first photo of a pair, and of the second. */
struct Comparison {
    std::string name;
    std::string explanation;
    Form first;
    Form second;
};

const std::vector<Comparison> comparisons = {
    {"bare", "bare templates of both photos", Bare, Bare},
    {"masked", "masked templates of both photos, aligned by two points", Masked, Masked},
    {"masked probe", "bare face enrolled as a masked template (five points), the other photo aligned by two points",
     MaskedEnrolled, Masked},
    {"painted mask", "bare face enrolled as a masked template (five points), the other photo with a mask painted on",
     MaskedEnrolled, Painted},
};

using Templates = std::array<std::optional<Template>, Forms>;

/** A photo of MORE/NAME.csv, in the folder MORE/NAME. */
struct OtherPhoto {
    std::filesystem::path folder;
    std::string file;
};

/** Those of the validation split, in an order that mixes the lists and is always the same. */
std::vector<OtherPhoto> readOthers(const std::vector<std::string>& lists) {
    std::vector<OtherPhoto> photos;
    for (const std::string& list : lists)
        readTable(list, 4, [&](const TableRow& row) {
            if (row.text(3) == "val")
                photos.push_back({fs::path(list).replace_extension(), row.text(0)});
        });
    std::mt19937 random(1);
    for (std::size_t i = photos.size(); i > 1; --i)
        std::swap(photos[i - 1], photos[random() % i]);
    return photos;
}

class VerifyEvaluation {
public:
    explicit VerifyEvaluation(const VerifyOptions& options) : options_(options), people_(readPeople(options.folder)) {}

    void run() {
        options_.prepare();
        for (const std::string& folder : {options_.draw, options_.painted}) {
            if (!folder.empty())
                fs::create_directories(folder);
        }
        extractAll();
        extractOthers();
        Json rows = Json::array();
        for (const Comparison& comparison : comparisons) {
            const PairScores listed = scores(comparison, people_.pairs);
            const PairScores all = scores(comparison, allPairs(people_));
            Json row = {{"name", comparison.name},
                        {"same_pairs", listed.genuinePairs()},
                        {"different_pairs", listed.impostorPairs()},
                        {"failed_pairs", listed.genuineFailed + listed.impostorFailed},
                        {"listed", verifyFigures(listed, falseMatchRates)},
                        {"all_pairs", {{"same", all.genuinePairs()}, {"different", all.impostorPairs()}}},
                        {"all", verifyFigures(all, falseMatchRates)}};
            if (!options_.draw.empty())
                drawScoreHistogram(fs::path(options_.draw) / (fileName(comparison.name) + ".png"), all,
                                   "Similarity: " + comparison.name);
            if (!others_.empty())
                row["searches"] = searches(comparison).toJson();
            rows.push_back(row);
        }
        Json document = {{"photos", people_.files.size()},
                         {"photos_without_face", missed_},
                         {"painted_without_face", missedPainted_},
                         {"painted_judged_masked", judgedMasked_},
                         {"comparisons", rows}};
        if (!others_.empty())
            document["enrolled"] = enrolled_;
        if (options_.json)
            std::cout << document.dump(2) << '\n';
        else
            print(document);
    }

private:
    static std::string fileName(std::string name) {
        for (char& letter : name)
            letter = letter == ' ' ? '-' : letter;
        return "similarity-" + name;
    }

    void extractAll() {
        const std::unique_ptr<PhotoSource> source = openListedPhotos(options_.folder);
        std::size_t seen = 0;
        for (const std::string& file : people_.files) {
            showProgress("photos", ++seen, people_.files.size());
            Templates& templates = templates_[file];
            cv::Mat picture = source->picture(file);
            if (!extractBare(picture, templates)) {
                ++missed_;
                continue;
            }
            const std::optional<int> maskScore = extractPainted(picture, templates);
            missedPainted_ += maskScore ? 0U : 1U;
            judgedMasked_ += maskScore.value_or(0) >= VELDAN_MASKED ? 1U : 0U;
            if (maskScore && !options_.painted.empty())
                cv::imwrite((fs::path(options_.painted) / (fs::path(file).stem().string() + ".jpg")).string(), picture);
        }
    }

    void extractOthers() {
        const std::vector<OtherPhoto> photos = readOthers(options_.others);
        std::size_t seen = 0;
        for (const OtherPhoto& photo : photos) {
            showProgress("others", ++seen, photos.size());
            const auto source = openPhotos(photo.folder.parent_path(), photo.folder.filename().string());
            cv::Mat picture = source->picture(photo.file);
            Templates templates;
            if (!extractBare(picture, templates))
                continue;
            extractPainted(picture, templates);
            others_.push_back(templates);
        }
        if (!photos.empty() && others_.empty())
            throw std::runtime_error("no face in any photo of --others");
    }

    /** All templates of the largest face, and a mask painted over it. False when there is none. */
    bool extractBare(cv::Mat& picture, Templates& templates) {
        std::vector<VDFACEINFOEX> faces = detect(library_, picture);
        if (faces.empty())
            return false;
        const ImageView view = viewOf(picture);
        templates[Bare] = library_.extract(view, faces[0]);
        templates[Masked] = library_.extract(view, faces[0], Kind::Masked);
        templates[MaskedEnrolled] = library_.extractForEnrolment(view, faces[0], Kind::Masked);
        paintMask(picture, pointsOf(faces[0]));
        return true;
    }

    /** The mask score, when a face is found under the mask. */
    std::optional<int> extractPainted(cv::Mat& picture, Templates& templates) {
        std::vector<VDFACEINFOEX> faces = detect(library_, picture);
        if (faces.empty())
            return std::nullopt;
        library_.judgeMask(viewOf(picture), {faces.data(), 1});
        templates[Painted] = library_.extract(viewOf(picture), faces[0], Kind::Masked);
        return faces[0].maskScore;
    }

    /** Enrolled are everybody's first photo with a face, then others until there are as many as asked for; searched are
     * all other photos. */
    IdentificationFigures searches(const Comparison& comparison) {
        const Kind kind = comparison.first == Bare ? Kind::Bare : Kind::Masked;
        std::vector<const Template*> gallery;
        std::map<std::string, std::size_t> place;
        std::vector<std::pair<std::optional<std::size_t>, const Templates*>> probes;
        for (const std::string& file : people_.files) {
            const Templates& templates = templates_.at(file);
            const std::string& person = people_.person.at(file);
            if (place.count(person) > 0)
                probes.emplace_back(place.at(person), &templates);
            else if (templates[comparison.first]) {
                place[person] = gallery.size();
                gallery.push_back(&*templates[comparison.first]);
            }
        }
        for (const Templates& other : others_) {
            if (gallery.size() < options_.enrolled)
                gallery.push_back(&*other[comparison.first]);
            else
                probes.emplace_back(std::nullopt, &other);
        }
        IdentificationFigures figures;
        figures.threshold =
            static_cast<float>(kind == Kind::Bare ? VELDAN_SAME_PERSON : VELDAN_SAME_PERSON_MASKED) / 100.0F;
        for (const auto& [own, probe] : probes) {
            std::vector<float> similarities;
            if (const auto& feature = (*probe)[comparison.second]) {
                for (const Template* enrolled : gallery)
                    similarities.push_back(library_.match(*enrolled, *feature, kind));
            }
            figures.add(own, similarities);
        }
        enrolled_ = gallery.size();
        return figures;
    }

    PairScores scores(const Comparison& comparison, const std::vector<PhotoPair>& pairs) {
        PairScores result;
        const Kind kind = comparison.first == Bare ? Kind::Bare : Kind::Masked;
        for (const PhotoPair& pair : pairs) {
            const auto& a = templates_.at(pair.first)[comparison.first];
            const auto& b = templates_.at(pair.second)[comparison.second];
            result.add(pair.same, a && b ? std::optional<float>(library_.match(*a, *b, kind)) : std::nullopt);
        }
        return result;
    }

    void print(const Json& document) const {
        std::cout << people_.files.size() << " photos, " << people_.pairs.size() << " pairs listed. No face found in "
                  << missed_ << " photos; with a mask painted on, in " << missedPainted_ << " more, and "
                  << judgedMasked_
                  << " were judged as masked.\nA pair with a photo without a face counts as different people: a miss "
                     "for the same person. The largest face of a\nphoto is taken. Accuracy is at the threshold that is "
                     "best for these pairs.\n\nListed pairs\n";
        const Json& rows = document["comparisons"];
        printTable(std::cout,
                   {{"templates", "/name"},
                    {"pairs: same", "/same_pairs"},
                    {"different", "/different_pairs"},
                    {"failed", "/failed_pairs"},
                    percentColumn("accuracy %", "/listed/accuracy"),
                    {"at", "/listed/best_threshold", 3},
                    percentColumn("TMR % at FMR 1e-2", "/listed/operating_points/1/true_match_rate", 1),
                    percentColumn("1e-3", "/listed/operating_points/2/true_match_rate", 1),
                    percentColumn("same at 0.80 and more %", "/listed/at_0.80/true_match_rate", 1),
                    {"different", "/listed/impostors_at_0.80"},
                    percentColumn("%", "/listed/at_0.80/false_match_rate", 3)},
                   rows);
        std::cout << "\nThresholds, from every two photos (" << rows[0]["all_pairs"]["same"]
                  << " pairs of the same person, " << rows[0]["all_pairs"]["different"] << " of different people)\n";
        Json thresholds = Json::array();
        for (const Json& row : rows) {
            for (Json point : row["all"]["operating_points"]) {
                point["rate"] = percent(point["asked"].get<double>(), 3) + " %";
                thresholds.push_back(named(row["name"], point));
            }
            Json sure = row["all"]["at_0.80"];
            sure["rate"] = percent(sure["false_match_rate"].get<double>(), 4) + " %";
            thresholds.push_back(named(row["name"], sure));
        }
        printTable(std::cout,
                   {{"templates", "/name"},
                    {"false match rate", "/rate"},
                    {"similarity", "/threshold", 3},
                    percentColumn("true match rate %", "/true_match_rate", 1)},
                   thresholds);
        if (!others_.empty())
            printSearches(rows);
        std::cout << '\n';
        for (const Comparison& comparison : comparisons)
            std::cout << comparison.name << ": " << comparison.explanation << '\n';
    }

    void printSearches(Json rows) const {
        std::cout << "\nSearches among " << enrolled_
                  << " enrolled people, one photo each. \"Not enrolled\": the same faces, were their own template not "
                     "there.\n";
        for (Json& row : rows) {
            Json& searches = row["searches"];
            for (const auto& [figure, whole] : {std::pair{"rank_1", "known"},
                                                {"accepted", "known"},
                                                {"accepted_as_another", "known"},
                                                {"accepted_without_own", "known"},
                                                {"strangers_accepted", "strangers"}})
                searches[figure] =
                    orNull(ratio(searches[figure].get<std::size_t>(), searches[whole].get<std::size_t>()));
        }
        printTable(std::cout,
                   {{"templates", "/name"},
                    {"at", "/searches/threshold", 2},
                    {"faces", "/searches/known"},
                    percentColumn("rank 1 %", "/searches/rank_1", 1),
                    percentColumn("accepted %", "/searches/accepted", 1),
                    percentColumn("as another %", "/searches/accepted_as_another", 1),
                    percentColumn("not enrolled: accepted %", "/searches/accepted_without_own", 1),
                    {"strangers", "/searches/strangers"},
                    percentColumn("accepted %", "/searches/strangers_accepted", 1)},
                   rows);
    }

    const VerifyOptions& options_;
    PeoplePhotos people_;
    Instance library_;
    std::map<std::string, Templates> templates_;
    std::vector<Templates> others_;
    std::size_t enrolled_ = 0;
    std::size_t missed_ = 0;
    std::size_t missedPainted_ = 0;
    std::size_t judgedMasked_ = 0;
};

} // namespace

void addVerifyEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("verify", "Recognition: are two photos of the same person?");
    const auto options = std::make_shared<VerifyOptions>();
    command
        ->add_option("folder", options->folder,
                     "Folder with photos.csv (file,person), pairs.csv (file,file,same) and photos.zip or the photos")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("FOLDER");
    command->add_option("--draw", options->draw, "Folder for pictures of the two histograms of similarities")
        ->type_name("DIR");
    command->add_option("--painted", options->painted, "Folder for the photos with masks painted on")->type_name("DIR");
    command
        ->add_option(
            "--others", options->others,
            "Lists of other people's photos, one each: file,source,class,split; the photos of NAME.csv are in the "
            "folder NAME beside it. Those of the split val are enrolled beside everybody's first photo, the rest "
            "are strangers, and all other photos are searched")
        ->check(CLI::ExistingFile)
        ->type_name("CSV")
        ->default_str("");
    command->add_option("--enrolled", options->enrolled, "People enrolled for --others");
    addCommonOptions(*command, *options, nullptr);
    command->footer("Example:\n"
                    "  veldan_eval verify people/ --draw pictures/\n");
    onChoice<VerifyEvaluation>(*command, action, options);
}

} // namespace veldan::eval
