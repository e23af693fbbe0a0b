#include "alignment.hpp"
#include "error_pictures.hpp"
#include "evaluations.hpp"
#include "library.hpp"
#include "liveness_figures.hpp"
#include "liveness_sources.hpp"
#include "pack_photos.hpp"
#include "photo_source.hpp"
#include "statistics.hpp"
#include "text_table.hpp"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string attacks;
    std::string spoof;
    std::string set = "set2";
    std::string sources;
    std::string review;
    std::string network;
    std::string foldNetworks;
    std::size_t track = 15;
    int threshold = 50;
    int threads = 1;
    std::string dumpFalse;
    bool json = false;
};

/** Photos that are judged together, and their figures. */
struct Section {
    std::string name;
    std::vector<LivenessPhoto> photos;
    /** Of the missed photos, those where the found face lies on its side or upside down. */
    std::size_t turned = 0;
};

/** A source, photo by photo and over tracks. */
struct SourceSection {
    std::string name;
    std::vector<SourcePhoto> photos;
    LivenessFigures figures;
    LivenessFigures tracks;
};

constexpr int cropSide = 320;         // longer side of a tight crop in the frame made for it
constexpr double sameRecording = 0.6; // correlation with the photo before, below which another recording begins
const cv::Size thumbnail(24, 24);

/**
 * A frame for a tight crop, which by itself leaves the detector no room: scenery without detail, the crop's own edges
 * drawn out and blurred. Live faces and attacks get the same.
 */
cv::Mat frameAround(cv::Mat crop) {
    const double scale = static_cast<double>(cropSide) / std::max(crop.cols, crop.rows);
    if (scale < 1)
        cv::resize(crop, crop, {}, scale, scale, cv::INTER_AREA);
    const int room = std::max(crop.cols, crop.rows) / 2;
    cv::Mat frame;
    cv::copyMakeBorder(crop, frame, room, room, room, room, cv::BORDER_REPLICATE);
    cv::blur(frame, frame, cv::Size(room / 2 * 2 + 1, room / 2 * 2 + 1));
    crop.copyTo(frame(cv::Rect(room, room, crop.cols, crop.rows)));
    return frame;
}

/** Grey, small and without mean and contrast, so that the product of two is their correlation. */
cv::Mat outline(const cv::Mat& picture) {
    cv::Mat small;
    cv::resize(picture, small, thumbnail, 0, 0, cv::INTER_AREA);
    cv::cvtColor(small, small, cv::COLOR_BGR2GRAY);
    small.convertTo(small, CV_32F);
    small -= cv::mean(small)[0];
    return small / std::max(cv::norm(small), 1e-6);
}

bool upright(const VDFACEINFOEX& face) {
    const std::optional<CropSquare> square = alignedSquare(pointsOf(face));
    return square && std::abs(square->angle) <= 45;
}

class LivenessEvaluation {
public:
    explicit LivenessEvaluation(const Options& options) : options_(options) {}

    void run() {
        cv::setNumThreads(options_.threads);
        if (!options_.dumpFalse.empty())
            fs::create_directories(options_.dumpFalse);
        if (!options_.network.empty())
            library_.useLivenessNetwork(options_.network);
        if (!options_.attacks.empty())
            evaluateMade();
        if (!options_.spoof.empty()) {
            Section real = {"real photos, " + options_.set,
                            readSpoofPhotos(fs::path(options_.spoof) / "photos.csv", options_.set), 0};
            score(options_.spoof, real, "real");
            sections_.push_back(std::move(real));
        }
        if (!options_.sources.empty())
            evaluateSources();
        for (const Section& section : sections_) {
            if (section.photos.empty())
                throw std::runtime_error("no photos for: " + section.name);
        }
        if (options_.json)
            printJson();
        else
            printTables();
    }

private:
    void evaluateMade() {
        const std::vector<LivenessPhoto> all = readAttackPhotos(fs::path(options_.attacks) / "photos.csv");
        if (all.empty())
            throw std::runtime_error(options_.attacks + ": no photos in the list");
        for (const bool infrared : {false, true}) {
            const std::string light = infrared ? "near-infrared" : "visible light";
            Section section{"made photos, " + light, {}, 0};
            std::copy_if(all.begin(), all.end(), std::back_inserter(section.photos),
                         [&](const LivenessPhoto& photo) { return photo.infrared == infrared; });
            if (section.photos.empty())
                continue;
            score(options_.attacks, section, infrared ? "infrared" : "visible");
            Section unseen{section.name + ", only attacks kept out of training", section.photos, section.turned};
            const auto known = [](const LivenessPhoto& photo) { return photo.attack && !photo.heldOut; };
            unseen.photos.erase(std::remove_if(unseen.photos.begin(), unseen.photos.end(), known), unseen.photos.end());
            const bool anyAttack = std::any_of(unseen.photos.begin(), unseen.photos.end(),
                                               [](const LivenessPhoto& photo) { return photo.attack; });
            sections_.push_back(std::move(section));
            if (anyAttack)
                sections_.push_back(std::move(unseen));
        }
    }

    void evaluateSources() {
        const fs::path folder = options_.sources;
        for (const std::string& name : sourcesIn(folder)) {
            SourceSection section{name, readSource(folder, name, options_.review), {}, {}};
            if (!options_.foldNetworks.empty())
                library_.useLivenessNetwork(fs::path(options_.foldNetworks) / (name + ".pb"));
            const std::unique_ptr<PhotoSource> source = openPhotos(folder, name);
            cv::Mat before;
            std::size_t seen = 0;
            for (SourcePhoto& one : section.photos) {
                showProgress(name, ++seen, section.photos.size());
                cv::Mat crop = decodePicture(source->read(one.photo.file), one.photo.file);
                if (one.turns > 0)
                    cv::rotate(crop, crop, one.turns - 1);
                const cv::Mat now = outline(crop);
                one.continues = !before.empty() && now.dot(before) >= sameRecording;
                before = now;
                cv::Mat frame = frameAround(crop);
                Library::Answer answer = library_.detect(frame);
                if (answer.faces.empty() || !upright(answer.faces[0]))
                    continue;
                library_.scoreMask(frame, answer.faces[0]);
                library_.scoreLiveness(frame, answer.faces[0]);
                one.photo.score = answer.faces[0].liveness;
                dump(name, one.photo, frame, answer.faces[0]);
            }
            std::vector<LivenessPhoto> photos;
            for (const SourcePhoto& one : section.photos)
                photos.push_back(one.photo);
            section.figures = livenessFigures(photos, options_.threshold);
            section.tracks = livenessFigures(medianOverTracks(section.photos, options_.track), options_.threshold);
            sources_.push_back(std::move(section));
        }
    }

    static std::vector<std::string> rowOf(const std::string& name, const LivenessFigures& figures) {
        std::size_t live = 0;
        std::size_t attacks = 0;
        std::size_t missed = 0;
        for (const KindErrors& kind : figures.kinds) {
            (kind.attack ? attacks : live) += kind.photos;
            missed += kind.missed;
        }
        return {name,
                text(live),
                text(attacks),
                text(missed),
                text(figures.rates.apcer, 3),
                text(figures.rates.bpcer, 3),
                text(figures.rates.acer(), 3),
                text(figures.area, 3)};
    }

    void printSources(const std::string& heading, LivenessFigures SourceSection::*figures) const {
        std::cout << '\n' << heading << "\n\n";
        TextTable table({"source", "live", "attacks", "not found", "APCER", "BPCER", "ACER", "AUC"});
        for (const SourceSection& section : sources_)
            table.add(rowOf(section.name, section.*figures));
        const SourceSummary all = summary(figures);
        table.add({"mean", "", "", "", "", "", text(all.meanAcer, 3), text(all.meanArea, 3)});
        table.add({"worst", "", "", "", "", "", text(all.worstAcer, 3), text(all.worstArea, 3)});
        table.print(std::cout);
    }

    /** Over the sources that have both classes. */
    struct SourceSummary {
        std::optional<double> meanAcer, worstAcer, meanArea, worstArea;
    };

    SourceSummary summary(LivenessFigures SourceSection::*figures) const {
        std::vector<double> errors;
        std::vector<double> areas;
        for (const SourceSection& section : sources_) {
            if (const std::optional<double> error = (section.*figures).rates.acer()) {
                errors.push_back(*error);
                areas.push_back((section.*figures).area.value_or(0));
            }
        }
        if (errors.empty())
            return {};
        return {mean(errors), *std::max_element(errors.begin(), errors.end()), mean(areas),
                *std::min_element(areas.begin(), areas.end())};
    }

    nlohmann::ordered_json sourcesJson(LivenessFigures SourceSection::*figures) const {
        nlohmann::ordered_json rows = nlohmann::ordered_json::array();
        for (const SourceSection& section : sources_) {
            nlohmann::ordered_json row = {{"source", section.name}};
            row.update((section.*figures).toJson());
            rows.push_back(row);
        }
        return rows;
    }

    void score(const std::string& folder, Section& section, const std::string& prefix) {
        const std::unique_ptr<PhotoSource> source = openListedPhotos(folder);
        std::size_t seen = 0;
        for (LivenessPhoto& photo : section.photos) {
            showProgress(section.name, ++seen, section.photos.size());
            cv::Mat picture = decodePicture(source->read(photo.file), photo.file);
            Library::Answer answer = library_.detect(picture);
            if (answer.faces.empty())
                continue;
            VDFACEINFOEX& face = answer.faces[0];
            if (!upright(face)) {
                ++section.turned;
                continue;
            }
            library_.scoreMask(picture, face); // it decides how the face is aligned
            if (photo.infrared)
                library_.scoreInfraredLiveness(picture, face);
            else
                library_.scoreLiveness(picture, face);
            photo.score = face.liveness;
            dump(prefix, photo, picture, face);
        }
    }

    void dump(const std::string& prefix, const LivenessPhoto& photo, const cv::Mat& picture,
              const VDFACEINFOEX& face) const {
        if (options_.dumpFalse.empty() || (face.liveness >= options_.threshold) != photo.attack)
            return;
        const std::string name = prefix + "-" + fs::path(photo.file).stem().string() + ".jpg";
        writeJudged(fs::path(options_.dumpFalse) / name, picture, boxOf(face),
                    (photo.attack ? "attack, " : "live, ") + photo.kind + ": " + std::to_string(face.liveness) +
                        (face.maskScore >= 40 ? ", aligned as masked" : ""));
    }

    void printTables() const {
        std::cout
            << "Live from a score of " << options_.threshold
            << " on. APCER: share of attacks taken as live, over all kinds; BPCER: share of live faces taken as\n"
               "attacks; ACER: their mean; AUC: how often a live face scores higher than an attack. The largest face\n"
               "of a photo is judged, aligned by its mask score. Photos without an upright face are in no rate.\n";
        for (const Section& section : sections_)
            printSection(section, livenessFigures(section.photos, options_.threshold));
        if (!sources_.empty()) {
            printSources("Sources, each photo by itself", &SourceSection::figures);
            printSources("Sources, the median over up to " + std::to_string(options_.track) + " consecutive frames",
                         &SourceSection::tracks);
        }
    }

    void printSection(const Section& section, const LivenessFigures& figures) const {
        std::size_t missed = 0;
        for (const KindErrors& kind : figures.kinds)
            missed += kind.missed;
        std::cout << '\n'
                  << section.name << ": " << section.photos.size() << " photos, without an upright face " << missed
                  << " (of them with a turned one " << section.turned << ")\n"
                  << "APCER " << percent(figures.rates.apcer) << " %, worst kind " << percent(figures.apcerOfWorst)
                  << " %" << (figures.worstKind.empty() ? "" : " (" + figures.worstKind + ")") << ", BPCER "
                  << percent(figures.rates.bpcer) << " %, ACER " << percent(figures.rates.acer()) << " %, AUC "
                  << text(figures.area, 4) << "\n\n";
        TextTable kinds({"kind", "class", "training", "judged", "not found", "wrong", "%"});
        for (const KindErrors& kind : figures.kinds) {
            kinds.add({kind.kind, kind.attack ? "attack" : "live", kind.heldOut ? "kept out" : "", text(kind.photos),
                       text(kind.missed), text(kind.wrong), percent(kind.rate())});
        }
        kinds.print(std::cout);
        std::cout << '\n';
        TextTable table({"threshold", "APCER %", "BPCER %", "ACER %"});
        for (const LivenessRates& rates : figures.table) {
            table.add(
                {std::to_string(rates.threshold), percent(rates.apcer), percent(rates.bpcer), percent(rates.acer())});
        }
        table.print(std::cout);
    }

    void printJson() const {
        nlohmann::ordered_json document = {{"settings",
                                            {{"attacks", options_.attacks},
                                             {"spoof", options_.spoof},
                                             {"set", options_.set},
                                             {"threshold", options_.threshold}}},
                                           {"sections", nlohmann::ordered_json::array()}};
        for (const Section& section : sections_) {
            nlohmann::ordered_json entry = {
                {"name", section.name}, {"photos", section.photos.size()}, {"turned", section.turned}};
            entry.update(livenessFigures(section.photos, options_.threshold).toJson());
            document["sections"].push_back(entry);
        }
        if (!sources_.empty()) {
            document["sources"] = sourcesJson(&SourceSection::figures);
            document["tracks"] = sourcesJson(&SourceSection::tracks);
        }
        std::cout << document.dump(2) << '\n';
    }

    const Options& options_;
    Library library_;
    std::vector<Section> sections_;
    std::vector<SourceSection> sources_;
};

} // namespace

void addLivenessEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("liveness", "Error rates of the liveness scores, per kind of attack");
    const auto options = std::make_shared<Options>();
    CLI::Option* attacks = command->add_option("--attacks", options->attacks,
                                               "Folder of training/make_validation.py liveness, with photos.csv");
    attacks->check(CLI::ExistingDirectory)->type_name("FOLDER");
    CLI::Option* spoof = command->add_option(
        "--spoof", options->spoof, "Folder with real photos of attacks: photos.csv (file,set,class) and photos.zip");
    spoof->check(CLI::ExistingDirectory)->type_name("FOLDER");
    command->add_option("--set", options->set, "The set of --spoof; set1 is for training")->capture_default_str();
    CLI::Option* sources = command->add_option(
        "--sources", options->sources,
        "Folder with collections of tight crops, attack_*.csv (file,source,class,split) and a folder of photos each");
    sources->check(CLI::ExistingDirectory)->type_name("FOLDER");
    command
        ->add_option("--review", options->review,
                     "Photos of --sources to leave out or to turn, such as training/liveness_review.csv")
        ->check(CLI::ExistingFile)
        ->type_name("FILE");
    command->add_option("--track", options->track, "Frames of --sources that are judged together by their median")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    CLI::Option* network = command->add_option("--network", options->network,
                                               "A network file for visible light in place of the library's own");
    network->check(CLI::ExistingFile)->type_name("FILE");
    command
        ->add_option("--fold-networks", options->foldNetworks,
                     "Judge each source of --sources by FOLDER/SOURCE.pb, a network that was trained without it")
        ->check(CLI::ExistingDirectory)
        ->needs(sources)
        ->excludes(network)
        ->type_name("FOLDER");
    command->add_option("--threshold", options->threshold, "From this score on a face counts as live")
        ->check(CLI::Range(0, 101))
        ->capture_default_str();
    addThreads(*command, options->threads);
    command->add_option("--dump-false", options->dumpFalse, "Folder for pictures of the faces that were judged wrong")
        ->type_name("DIR");
    command->add_flag("--json", options->json, "Print JSON");
    command->footer("Photos are measured as they are, those of near-infrared light with the engine for it.\n"
                    "\n"
                    "Example:\n"
                    "  veldan_eval liveness --attacks made/ --spoof spoof/ --dump-false errors/\n");
    command->callback([options, attacks, spoof, sources, &action] {
        if (attacks->empty() && spoof->empty() && sources->empty())
            throw CLI::RequiredError("--attacks, --spoof or --sources");
        action = [options] { LivenessEvaluation(*options).run(); };
    });
}

} // namespace veldan::eval
