#include "evaluations.hpp"
#include "liveness_figures.hpp"
#include "photos.hpp"
#include "statistics.hpp"

#include <veldan/spoof_detection.hpp>
#include <veldan/thresholds.h>

#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <stdexcept>

namespace veldan {

/** The engine's friend: lets a measurement put another network in. */
struct EngineAccess {
    static cv::dnn::Net& visible(vdSpoofDetection& engine) { return engine.rgbNet; }
};

} // namespace veldan

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

struct LivenessOptions : CommonOptions {
    std::string attacks;
    std::string spoof;
    std::string set = "set2";
    std::string sources;
    std::string review;
    std::string network;
    std::string foldNetworks;
    std::size_t track = 15;
    int threshold = VELDAN_LIVE;
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
    explicit LivenessEvaluation(const LivenessOptions& options) : options_(options) {}

    void run() {
        options_.prepare();
        if (!options_.network.empty())
            useNetwork(options_.network);
        document_ = {{"settings",
                      {{"attacks", options_.attacks},
                       {"spoof", options_.spoof},
                       {"set", options_.set},
                       {"threshold", options_.threshold}}},
                     {"sections", Json::array()}};
        if (!options_.attacks.empty())
            evaluateMade();
        if (!options_.spoof.empty()) {
            std::vector<LivenessPhoto> photos = readSpoofPhotos(fs::path(options_.spoof) / "photos.csv", options_.set);
            const std::string name = "real photos, " + options_.set;
            addSection(name, photos, score(options_.spoof, name, photos, "real"));
        }
        if (!options_.sources.empty())
            evaluateSources();
        if (options_.json)
            std::cout << document_.dump(2) << '\n';
        else
            print();
    }

private:
    /** From now on visible light is judged by the network in this file instead of the library's own. */
    void useNetwork(const fs::path& file) {
        if (!other_) {
            other_ = std::make_unique<vdSpoofDetection>();
            if (const int code = other_->vdSpoofInitAlg(nullptr); code != 0)
                throw Error("liveness", code);
        }
        try {
            EngineAccess::visible(*other_) = cv::dnn::readNetFromTensorflow(file.string());
        } catch (const cv::Exception& error) {
            throw std::runtime_error(file.string() + ": " + error.what());
        }
    }

    /** Writes liveness; the mask's score decides how the face is aligned. */
    void judge(cv::Mat& picture, VDFACEINFOEX& face, bool infrared) {
        library_.judgeMask(viewOf(picture), {&face, 1});
        if (infrared)
            library_.judgeNearInfraredLiveness(viewOf(picture), {&face, 1});
        else if (!other_)
            library_.judgeLiveness(viewOf(picture), {&face, 1});
        else if (const int code = other_->vdSpoofRGBEvaluation(picture.data, picture.cols, picture.rows, 1, &face);
                 code != 0)
            throw Error("liveness", code);
    }

    /** turned: of the missed photos, those where the found face lies on its side or upside down. */
    void addSection(const std::string& name, const std::vector<LivenessPhoto>& photos, std::size_t turned) {
        if (photos.empty())
            throw std::runtime_error("no photos for: " + name);
        Json section = {{"name", name}, {"photos", photos.size()}, {"turned", turned}};
        section.update(livenessFigures(photos, options_.threshold));
        document_["sections"].push_back(section);
    }

    void evaluateMade() {
        const std::vector<LivenessPhoto> all = readAttackPhotos(fs::path(options_.attacks) / "photos.csv");
        if (all.empty())
            throw std::runtime_error(options_.attacks + ": no photos in the list");
        for (const bool infrared : {false, true}) {
            const std::string name = infrared ? "made photos, near-infrared" : "made photos, visible light";
            std::vector<LivenessPhoto> photos;
            std::copy_if(all.begin(), all.end(), std::back_inserter(photos),
                         [&](const LivenessPhoto& photo) { return photo.infrared == infrared; });
            if (photos.empty())
                continue;
            const std::size_t turned = score(options_.attacks, name, photos, infrared ? "infrared" : "visible");
            addSection(name, photos, turned);
            const auto known = [](const LivenessPhoto& photo) { return photo.attack && !photo.heldOut; };
            photos.erase(std::remove_if(photos.begin(), photos.end(), known), photos.end());
            if (std::any_of(photos.begin(), photos.end(), [](const LivenessPhoto& photo) { return photo.attack; }))
                addSection(name + ", only attacks kept out of training", photos, turned);
        }
    }

    void evaluateSources() {
        const fs::path folder = options_.sources;
        for (const std::string& name : sourcesIn(folder)) {
            std::vector<SourcePhoto> photos = readSource(folder, name, options_.review);
            if (!options_.foldNetworks.empty())
                useNetwork(fs::path(options_.foldNetworks) / (name + ".pb"));
            const std::unique_ptr<PhotoSource> source = openPhotos(folder, name);
            cv::Mat before;
            std::size_t seen = 0;
            std::vector<LivenessPhoto> single;
            for (SourcePhoto& one : photos) {
                showProgress(name, ++seen, photos.size());
                cv::Mat crop = source->picture(one.photo.file);
                if (one.turns > 0)
                    cv::rotate(crop, crop, one.turns - 1);
                const cv::Mat now = outline(crop);
                one.continues = !before.empty() && now.dot(before) >= sameRecording;
                before = now;
                cv::Mat frame = frameAround(crop);
                std::vector<VDFACEINFOEX> faces = detect(library_, frame);
                if (!faces.empty() && upright(faces[0])) {
                    judge(frame, faces[0], false);
                    one.photo.score = faces[0].liveness;
                    dump(name, one.photo, frame, faces[0]);
                }
                single.push_back(one.photo);
            }
            const std::vector<LivenessPhoto> tracks = medianOverTracks(photos, options_.track);
            document_["sources"].push_back(named(name, livenessFigures(single, options_.threshold), "source"));
            document_["tracks"].push_back(named(name, livenessFigures(tracks, options_.threshold), "source"));
        }
    }

    /** @return how many faces are turned and so without a score */
    std::size_t score(const std::string& folder, const std::string& what, std::vector<LivenessPhoto>& photos,
                      const std::string& prefix) {
        const std::unique_ptr<PhotoSource> source = openListedPhotos(folder);
        std::size_t seen = 0;
        std::size_t turned = 0;
        for (LivenessPhoto& photo : photos) {
            showProgress(what, ++seen, photos.size());
            cv::Mat picture = source->picture(photo.file);
            std::vector<VDFACEINFOEX> faces = detect(library_, picture);
            if (faces.empty())
                continue;
            if (!upright(faces[0])) {
                ++turned;
                continue;
            }
            judge(picture, faces[0], photo.infrared);
            photo.score = faces[0].liveness;
            dump(prefix, photo, picture, faces[0]);
        }
        return turned;
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

    void print() const {
        std::cout
            << "Live from a score of " << options_.threshold
            << " on. APCER: share of attacks taken as live, over all kinds; BPCER: share of live faces taken as\n"
               "attacks; ACER: their mean; AUC: how often a live face scores higher than an attack. The largest face\n"
               "of a photo is judged, aligned by its mask score. Photos without an upright face are in no rate.\n";
        for (const Json& section : document_["sections"])
            printSection(section);
        if (document_.contains("sources")) {
            printSources("Sources, each photo by itself", document_["sources"]);
            printSources("Sources, the median over up to " + std::to_string(options_.track) + " consecutive frames",
                         document_["tracks"]);
        }
    }

    static void printSection(const Json& section) {
        Json kinds = section["kinds"];
        std::size_t missed = 0;
        for (Json& kind : kinds) {
            missed += kind["missed"].get<std::size_t>();
            kind["training"] = kind["heldOut"] == true ? "kept out" : "";
        }
        const auto rate = [&](const char* name) {
            const Json& value = section[name];
            return percent(value.is_null() ? std::nullopt : std::optional<double>(value.get<double>()));
        };
        const auto worst = section["worstKind"].get<std::string>();
        std::cout << '\n'
                  << section["name"].get<std::string>() << ": " << section["photos"]
                  << " photos, without an upright face " << missed << " (of them with a turned one "
                  << section["turned"] << ")\n"
                  << "APCER " << rate("apcer") << " %, worst kind " << rate("apcerOfWorst") << " %"
                  << (worst.empty() ? "" : " (" + worst + ")") << ", BPCER " << rate("bpcer") << " %, ACER "
                  << rate("acer") << " %, AUC "
                  << (section["auc"].is_null() ? "-" : text(section["auc"].get<double>(), 4)) << "\n\n";
        printTable(std::cout,
                   {{"kind", "/kind"},
                    {"class", "/class"},
                    {"training", "/training"},
                    {"judged", "/photos"},
                    {"not found", "/missed"},
                    {"wrong", "/wrong"},
                    percentColumn("%", "/rate")},
                   kinds);
        std::cout << '\n';
        printTable(std::cout,
                   {{"threshold", "/threshold"},
                    percentColumn("APCER %", "/apcer"),
                    percentColumn("BPCER %", "/bpcer"),
                    percentColumn("ACER %", "/acer")},
                   section["thresholds"]);
    }

    /** With the mean and the worst of the sources that have both classes. */
    static void printSources(const std::string& heading, const Json& sources) {
        Json rows = sources;
        std::vector<double> errors;
        std::vector<double> areas;
        for (Json& row : rows) {
            const Json kinds = row["kinds"]; // a copy: the row grows
            for (const Json& kind : kinds) {
                const std::string group = kind["class"].get<std::string>();
                row[group] = row.value(group, std::size_t{0}) + kind["photos"].get<std::size_t>();
                row["missed"] = row.value("missed", std::size_t{0}) + kind["missed"].get<std::size_t>();
            }
            for (const char* group : {"live", "attack"})
                row[group] = row.value(group, std::size_t{0});
            if (row["acer"].is_null())
                continue;
            errors.push_back(row["acer"].get<double>());
            areas.push_back(row["auc"].is_null() ? 0 : row["auc"].get<double>());
        }
        const bool any = !errors.empty();
        rows.push_back({{"source", "mean"},
                        {"acer", any ? Json(mean(errors)) : Json()},
                        {"auc", any ? Json(mean(areas)) : Json()}});
        rows.push_back({{"source", "worst"},
                        {"acer", any ? Json(*std::max_element(errors.begin(), errors.end())) : Json()},
                        {"auc", any ? Json(*std::min_element(areas.begin(), areas.end())) : Json()}});
        std::cout << '\n' << heading << "\n\n";
        printTable(std::cout,
                   {{"source", "/source"},
                    {"live", "/live"},
                    {"attacks", "/attack"},
                    {"not found", "/missed"},
                    {"APCER", "/apcer", 3},
                    {"BPCER", "/bpcer", 3},
                    {"ACER", "/acer", 3},
                    {"AUC", "/auc", 3}},
                   rows);
    }

    const LivenessOptions& options_;
    Instance library_;
    std::unique_ptr<vdSpoofDetection> other_;
    Json document_;
};

} // namespace

void addLivenessEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("liveness", "Error rates of the liveness scores, per kind of attack");
    const auto options = std::make_shared<LivenessOptions>();
    CLI::Option* attacks = command->add_option("--attacks", options->attacks,
                                               "Folder of training/make_validation.py liveness, with photos.csv");
    attacks->check(CLI::ExistingDirectory)->type_name("FOLDER");
    CLI::Option* spoof = command->add_option(
        "--spoof", options->spoof, "Folder with real photos of attacks: photos.csv (file,set,class) and photos.zip");
    spoof->check(CLI::ExistingDirectory)->type_name("FOLDER");
    command->add_option("--set", options->set, "The set of --spoof; set1 is for training");
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
        ->check(CLI::PositiveNumber);
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
        ->check(CLI::Range(0, 101));
    addCommonOptions(*command, *options, "Folder for pictures of the faces that were judged wrong");
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
