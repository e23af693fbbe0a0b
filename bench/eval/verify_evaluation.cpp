#include "csv_table.hpp"
#include "evaluations.hpp"
#include "library.hpp"
#include "pack_photos.hpp"
#include "painted_mask.hpp"
#include "photo_source.hpp"
#include "score_histogram.hpp"
#include "text_table.hpp"
#include "verify_figures.hpp"

#include <veldan/thresholds.h>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
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

struct Options {
    std::string folder;
    int threads = 1;
    std::string draw;
    std::string painted;
    std::vector<std::string> others;
    std::size_t enrolled = 1000;
    bool json = false;
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

using Templates = std::array<std::optional<Library::Template>, Forms>;

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
    explicit VerifyEvaluation(const Options& options) : options_(options), people_(readPeople(options.folder)) {}

    void run() {
        cv::setNumThreads(options_.threads);
        for (const std::string& folder : {options_.draw, options_.painted}) {
            if (!folder.empty())
                fs::create_directories(folder);
        }
        extractAll();
        extractOthers();
        for (const Comparison& comparison : comparisons) {
            Measured measured{
                comparison, scores(comparison, people_.pairs), scores(comparison, allPairs(people_)), {}, {}, {}};
            measured.listed = verifyFigures(measured.listedScores, falseMatchRates);
            measured.all = verifyFigures(measured.allScores, falseMatchRates);
            if (!options_.draw.empty())
                drawScoreHistogram(fs::path(options_.draw) / (fileName(comparison.name) + ".png"), measured.allScores,
                                   "Similarity: " + comparison.name);
            if (!others_.empty())
                measured.searched = searches(comparison);
            measured_.push_back(std::move(measured));
        }
        if (options_.json)
            printJson();
        else
            printTables();
    }

private:
    struct Measured {
        Comparison comparison;
        PairScores listedScores;
        PairScores allScores;
        VerifyFigures listed;
        VerifyFigures all;
        std::optional<IdentificationFigures> searched;
    };

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
            cv::Mat picture = decodePicture(source->read(file), file);
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
            cv::Mat picture = decodePicture(source->read(photo.file), photo.file);
            Templates templates;
            if (!extractBare(picture, templates))
                continue;
            extractPainted(picture, templates);
            others_.push_back(std::move(templates));
        }
        if (!photos.empty() && others_.empty())
            throw std::runtime_error("no face in any photo of --others");
    }

    /** All templates of the largest face, and a mask painted over it. False when there is none. */
    bool extractBare(cv::Mat& picture, Templates& templates) {
        Library::Answer answer = library_.detect(picture);
        if (answer.faces.empty())
            return false;
        VDFACEINFOEX& face = answer.faces[0];
        templates[Bare] = library_.extract(picture, face, Library::Extraction::Bare);
        templates[Masked] = library_.extract(picture, face, Library::Extraction::Masked);
        templates[MaskedEnrolled] = library_.extract(picture, face, Library::Extraction::MaskedEnrolment);
        paintMask(picture, pointsOf(face));
        return true;
    }

    /** The mask score, when a face is found under the mask. */
    std::optional<int> extractPainted(cv::Mat& picture, Templates& templates) {
        Library::Answer answer = library_.detect(picture);
        if (answer.faces.empty())
            return std::nullopt;
        library_.scoreMask(picture, answer.faces[0]);
        templates[Painted] = library_.extract(picture, answer.faces[0], Library::Extraction::Masked);
        return answer.faces[0].maskScore;
    }

    /** Enrolled are everybody's first photo with a face, then others until there are as many as asked for; searched are
     * all other photos. */
    IdentificationFigures searches(const Comparison& comparison) {
        const bool bare = comparison.first == Bare;
        std::vector<const Library::Template*> gallery;
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
        figures.threshold = static_cast<float>(bare ? VELDAN_SAME_PERSON : VELDAN_SAME_PERSON_MASKED) / 100.0F;
        for (const auto& [own, probe] : probes) {
            std::vector<float> similarities;
            if (const auto& feature = (*probe)[comparison.second]) {
                for (const Library::Template* enrolled : gallery)
                    similarities.push_back(library_.match(*enrolled, *feature, bare));
            }
            figures.add(own, similarities);
        }
        enrolled_ = gallery.size();
        return figures;
    }

    PairScores scores(const Comparison& comparison, const std::vector<PhotoPair>& pairs) {
        PairScores result;
        const bool bare = comparison.first == Bare;
        for (const PhotoPair& pair : pairs) {
            const auto& a = templates_.at(pair.first)[comparison.first];
            const auto& b = templates_.at(pair.second)[comparison.second];
            result.add(pair.same, a && b ? std::optional<float>(library_.match(*a, *b, bare)) : std::nullopt);
        }
        return result;
    }

    void printTables() const {
        std::cout << people_.files.size() << " photos, " << people_.pairs.size() << " pairs listed. No face found in "
                  << missed_ << " photos; with a mask painted on, in " << missedPainted_ << " more, and "
                  << judgedMasked_
                  << " were judged as masked.\nA pair with a photo without a face counts as different people: a miss "
                     "for the same person. The largest face of a\nphoto is taken. Accuracy is at the threshold that is "
                     "best for these pairs.\n\nListed pairs\n";
        TextTable listed({"templates", "pairs: same", "different", "failed", "accuracy %", "at", "TMR % at FMR 1e-2",
                          "1e-3", "same at 0.80 and more %", "different", "%"});
        for (const Measured& m : measured_)
            listed.add({m.comparison.name, text(m.listedScores.genuinePairs()), text(m.listedScores.impostorPairs()),
                        text(m.listedScores.genuineFailed + m.listedScores.impostorFailed), percent(m.listed.accuracy),
                        text(m.listed.bestThreshold, 3), percent(m.listed.points[1].second.trueMatches, 1),
                        percent(m.listed.points[2].second.trueMatches, 1), percent(m.listed.sure.trueMatches, 1),
                        text(m.listed.sureImpostors), percent(m.listed.sure.falseMatches, 3)});
        listed.print(std::cout);
        std::cout << "\nThresholds, from every two photos (" << measured_[0].allScores.genuinePairs()
                  << " pairs of the same person, " << measured_[0].allScores.impostorPairs()
                  << " of different people)\n";
        TextTable all({"templates", "false match rate", "similarity", "true match rate %"});
        for (const Measured& m : measured_) {
            for (const auto& [rate, point] : m.all.points)
                all.add({m.comparison.name, percent(rate, 3) + " %", text(point.threshold, 3),
                         percent(point.trueMatches, 1)});
            all.add({m.comparison.name, percent(m.all.sure.falseMatches, 4) + " %", "0.800",
                     percent(m.all.sure.trueMatches, 1)});
        }
        all.print(std::cout);
        if (!others_.empty())
            printSearches();
        std::cout << '\n';
        for (const Comparison& comparison : comparisons)
            std::cout << comparison.name << ": " << comparison.explanation << '\n';
    }

    void printSearches() const {
        std::cout << "\nSearches among " << enrolled_
                  << " enrolled people, one photo each. \"Not enrolled\": the same faces, were their own template not "
                     "there.\n";
        TextTable table({"templates", "at", "faces", "rank 1 %", "accepted %", "as another %",
                         "not enrolled: accepted %", "strangers", "accepted %"});
        const auto share = [](std::size_t part, std::size_t all) {
            return percent(all == 0 ? std::nullopt
                                    : std::optional<double>(static_cast<double>(part) / static_cast<double>(all)),
                           1);
        };
        for (const Measured& m : measured_) {
            const IdentificationFigures& f = *m.searched;
            table.add({m.comparison.name, text(f.threshold, 2), text(f.known), share(f.first, f.known),
                       share(f.accepted, f.known), share(f.mistaken, f.known), share(f.acceptedWithoutOwn, f.known),
                       text(f.strangers), share(f.strangersAccepted, f.strangers)});
        }
        table.print(std::cout);
    }

    void printJson() const {
        nlohmann::ordered_json document = {{"photos", people_.files.size()},
                                           {"photos_without_face", missed_},
                                           {"painted_without_face", missedPainted_},
                                           {"painted_judged_masked", judgedMasked_},
                                           {"comparisons", nlohmann::ordered_json::array()}};
        if (!others_.empty())
            document["enrolled"] = enrolled_;
        for (const Measured& m : measured_) {
            nlohmann::ordered_json entry = {{"name", m.comparison.name},
                                            {"same_pairs", m.listedScores.genuinePairs()},
                                            {"different_pairs", m.listedScores.impostorPairs()},
                                            {"listed", m.listed.toJson()},
                                            {"all", m.all.toJson()}};
            if (m.searched)
                entry["searches"] = m.searched->toJson();
            document["comparisons"].push_back(entry);
        }
        std::cout << document.dump(2) << '\n';
    }

    const Options& options_;
    PeoplePhotos people_;
    Library library_;
    std::map<std::string, Templates> templates_;
    std::vector<Templates> others_;
    std::size_t enrolled_ = 0;
    std::size_t missed_ = 0;
    std::size_t missedPainted_ = 0;
    std::size_t judgedMasked_ = 0;
    std::vector<Measured> measured_;
};

} // namespace

void addVerifyEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("verify", "Recognition: are two photos of the same person?");
    const auto options = std::make_shared<Options>();
    command
        ->add_option("folder", options->folder,
                     "Folder with photos.csv (file,person), pairs.csv (file,file,same) and photos.zip or the photos")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("FOLDER");
    addThreads(*command, options->threads);
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
        ->type_name("CSV");
    command->add_option("--enrolled", options->enrolled, "People enrolled for --others")->capture_default_str();
    command->add_flag("--json", options->json, "Print JSON");
    command->footer("Example:\n"
                    "  veldan_eval verify people/ --draw pictures/\n");
    command->callback([options, &action] { action = [options] { VerifyEvaluation(*options).run(); }; });
}

} // namespace veldan::eval
