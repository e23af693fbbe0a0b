#include "commands.hpp"
#include "photo/face_api.hpp"
#include "photo/judge.hpp"
#include "photo/liveness_rates.hpp"
#include "photo/output_files.hpp"
#include "photo_run.hpp"
#include "report/text.hpp"

#include <veldan/image_tool.h>
#include <veldan/thresholds.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <array>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veldan::cli {

namespace {

namespace fs = std::filesystem;

constexpr int standardThreshold = VELDAN_LIVE; // of inspect and of the model card
constexpr std::size_t fewPhotos = 100;         // with fewer, a single photo moves a rate by more than one percent

struct CalibrateOptions {
    std::string live;
    std::string attacks;
    bool nearInfrared = false;
    bool json = false;
    std::string draw;
    std::optional<double> mostLetIn;
};

std::vector<std::string> filesIn(const std::string& folder) {
    std::vector<std::string> files;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
        if (entry.is_regular_file() && entry.path().filename().string().front() != '.')
            files.push_back(entry.path().string());
    }
    if (files.empty())
        throw CommandError(ExitCode::Missing, folder + ": there are no files in this folder");
    std::sort(files.begin(), files.end());
    return files;
}

std::string percent(double share) {
    return fixed(100 * share, 1) + " %";
}

std::string ratesText(const LivenessRates& rates) {
    return "attacks let in " + percent(rates.letIn) + ", live people refused " + percent(rates.refused) + ", mean " +
           percent(rates.mean());
}

Json ratesJson(const LivenessRates& rates) {
    return {{"threshold", rates.threshold},
            {"attacksLetIn", rates.letIn},
            {"liveRefused", rates.refused},
            {"mean", rates.mean()}};
}

/** Both classes' histograms over the scores 0 to 100, live green above the axis and attacks red below it. */
class HistogramPicture {
public:
    HistogramPicture() : picture_{width, height, std::vector<unsigned char>(std::size_t{3} * width * height, 255)} {}

    void bars(const std::vector<int>& scores, bool up, std::array<unsigned char, 3> colour) {
        std::array<std::size_t, bins> counts{};
        for (const int score : scores)
            ++counts[static_cast<std::size_t>(std::min(score / binScores, bins - 1))];
        const double highest = static_cast<double>(*std::max_element(counts.begin(), counts.end()));
        for (int i = 0; i < bins; ++i) {
            const double share = static_cast<double>(counts[static_cast<std::size_t>(i)]) / highest;
            const int length = static_cast<int>(share * tallest);
            const int x = positionOf(i * binScores) + 2;
            fill(x, up ? axis - length : axis + 1, positionOf((i + 1) * binScores) - 2 - x, length, colour);
        }
    }

    void line(int score, std::array<unsigned char, 3> colour) {
        fill(positionOf(score) - 1, axis - tallest - 20, 3, 2 * tallest + 40, colour);
    }

    void text(int x, int y, const std::string& words, int colour) {
        ImageDrawText(picture_.pixels.data(), width, height, x, y, words.c_str(), 1, colour);
    }

    Photo& finished() {
        fill(margin, axis, width - 2 * margin, 1, {0, 0, 0});
        for (const int score : {0, 25, 50, 75, 100})
            text(positionOf(score) - 16, height - 24, std::to_string(score), VD_COLOUR_BLUE);
        return picture_;
    }

    static constexpr int width = 1000;
    static constexpr int height = 640;
    static constexpr int margin = 50;

private:
    static constexpr int bins = 25;
    static constexpr int binScores = 4; // 100 goes into the last one
    static constexpr int axis = 330;
    static constexpr int tallest = 210;

    static int positionOf(int score) { return margin + score * (width - 2 * margin) / 100; }

    void fill(int x, int y, int w, int h, std::array<unsigned char, 3> colour) {
        for (int row = y; row < y + h; ++row) {
            for (int column = x; column < x + w; ++column)
                std::copy(colour.begin(), colour.end(), picture_.pixels.begin() + (row * width + column) * 3);
        }
    }

    Photo picture_;
};

class Calibration {
public:
    explicit Calibration(const CalibrateOptions& options) : options_(options), liveFiles_(0) {
        photos_.json = options.json;
        photos_.photos.named = filesIn(options.live);
        liveFiles_ = photos_.photos.named.size();
        const std::vector<std::string> attacks = filesIn(options.attacks);
        photos_.photos.named.insert(photos_.photos.named.end(), attacks.begin(), attacks.end());
        if (!options.draw.empty() && !canSave(options.draw))
            throw CommandError(ExitCode::Usage,
                               "--draw " + options.draw + ": the name has to end in " + saveableExtensions());
    }

    ExitCode run() {
        PhotoRun run(photos_);
        return run.forEach(
            {[&](PhotoTask& task) {
                 Class& its = task.index() < liveFiles_ ? live_ : attacks_;
                 task.set("class", &its == &live_ ? "live" : "attack");
                 task.set("liveness", nullptr);
                 Photo photo = task.load();
                 const FaceApi::Detection detection = task.api().detect(photo);
                 if (detection.faces.empty()) {
                     ++its.withoutFace;
                     return;
                 }
                 const Light light = options_.nearInfrared ? Light::NearInfrared : Light::Visible;
                 const int score =
                     judge(task.api().instance(), photo, {detection.faces.front()}, light).front().record.liveness;
                 its.scores.push_back(score);
                 task.set("liveness", score);
             },
             {}},
            {}, [&](Json& document) { conclude(document); });
    }

private:
    struct Class {
        std::vector<int> scores;
        std::size_t withoutFace = 0;

        Json json() const { return {{"judged", scores.size()}, {"withoutFace", withoutFace}}; }
        std::string text() const {
            return std::to_string(scores.size()) + " photos judged, " + std::to_string(withoutFace) + " without a face";
        }
    };

    void conclude(Json& document) {
        document["light"] = options_.nearInfrared ? "near-infrared" : "visible";
        document["live"] = live_.json();
        document["attack"] = attacks_.json();
        if (live_.scores.empty() || attacks_.scores.empty())
            throw CommandError(ExitCode::Unsuitable, "a face was found in no photo of " +
                                                         (live_.scores.empty() ? options_.live : options_.attacks));
        const LivenessRates standard = livenessRates(live_.scores, attacks_.scores, standardThreshold);
        const std::optional<LivenessRates> chosen = chooseThreshold(live_.scores, attacks_.scores, options_.mostLetIn);
        const double area = separation(live_.scores, attacks_.scores);
        document["separation"] = area;
        document["standard"] = ratesJson(standard);
        document["chosen"] = chosen ? ratesJson(*chosen) : Json();
        document["rates"] = Json::array();
        for (int threshold = 5; threshold <= 100; threshold += 5)
            document["rates"].push_back(ratesJson(livenessRates(live_.scores, attacks_.scores, threshold)));
        if (!options_.json)
            print(standard, chosen, area);
        if (!options_.draw.empty())
            draw(standard, chosen);
        if (!chosen)
            throw CommandError(ExitCode::Unsuitable, "no threshold lets in as few attacks as that");
    }

    void print(const LivenessRates& standard, const std::optional<LivenessRates>& chosen, double area) const {
        std::cout << "live:    " << live_.text() << "\nattacks: " << attacks_.text() << "\n\n";
        for (int threshold = 10; threshold <= 90; threshold += 10)
            std::cout << "  from " << threshold << ": "
                      << ratesText(livenessRates(live_.scores, attacks_.scores, threshold)) << '\n';
        std::cout << "\nat the usual " << standard.threshold << ": " << ratesText(standard) << '\n';
        if (chosen)
            std::cout << "threshold to use: " << chosen->threshold << " (" << ratesText(*chosen) << ")\n";
        std::cout << "a live face scores higher than an attack in " << percent(area) << " of the pairs"
                  << (area < 0.8 ? ": too rarely to rely on with these photos, whatever the threshold" : "") << '\n';
        if (std::min(live_.scores.size(), attacks_.scores.size()) < fewPhotos)
            std::cout
                << "few photos: the rates are rough. Take some hundred, of several people, as your camera sees them\n";
    }

    void draw(const LivenessRates& standard, const std::optional<LivenessRates>& chosen) const {
        HistogramPicture picture;
        picture.bars(live_.scores, true, {60, 160, 60});
        picture.bars(attacks_.scores, false, {60, 60, 210});
        picture.line(standard.threshold, {190, 190, 190});
        if (chosen)
            picture.line(chosen->threshold, {220, 60, 0});
        picture.text(HistogramPicture::margin, 40, "live: " + std::to_string(live_.scores.size()), VD_COLOUR_GREEN);
        picture.text(HistogramPicture::margin + 220, 40, "attacks: " + std::to_string(attacks_.scores.size()),
                     VD_COLOUR_RED);
        picture.text(HistogramPicture::margin + 500, 40,
                     chosen ? "threshold " + std::to_string(chosen->threshold) : "no threshold", VD_COLOUR_BLUE);
        PhotoFiles(photos_.photos.named).save(picture.finished(), options_.draw);
        if (!options_.json)
            std::cout << "drawn in " << options_.draw << '\n';
    }

    const CalibrateOptions& options_;
    PhotoOptions photos_;
    std::size_t liveFiles_;
    Class live_;
    Class attacks_;
};

} // namespace

void addCalibrateCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("calibrate", "Measure on your own photos which threshold to use");
    command->require_subcommand(1);
    CLI::App* liveness = command->add_subcommand("liveness", "Live faces against attacks, as your camera sees them");
    const auto options = std::make_shared<CalibrateOptions>();
    liveness->add_option("--live", options->live, "Folder with photos of people in front of the camera")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("DIR");
    liveness->add_option("--attack", options->attacks, "Folder with photos of prints and screens held before it")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("DIR");
    liveness->add_flag("--nir", options->nearInfrared, "Judge them as near-infrared frames");
    liveness
        ->add_option_function<double>(
            "--let-in", [options](const double& percentage) { options->mostLetIn = percentage / 100; },
            "Choose the threshold that lets in at most this many percent of the attacks, instead of the one with\n"
            "the fewest errors of both kinds")
        ->check(CLI::Range(0, 100))
        ->type_name("PERCENT");
    addJsonFlag(*liveness, options->json);
    liveness->add_option("--draw", options->draw, "Draw the scores of both folders as histograms")->type_name("FILE");
    liveness->footer(std::string("Judges the largest face of each photo in the two folders and in those below them. A "
                                 "face counts as live from\n"
                                 "the threshold on. Rates are over the photos in which a face was found.\n"
                                 "\n") +
                     exitCodeHelp() +
                     "  9  no face in all of one folder, or no threshold that --let-in allows\n"
                     "\n"
                     "Examples:\n"
                     "  veldan calibrate liveness --live people/ --attack phones/ --draw scores.png\n"
                     "  veldan calibrate liveness --live people/ --attack phones/ --let-in 2 --json | jq .chosen\n");
    liveness->callback([options, &action] { action = [options] { return Calibration(*options).run(); }; });
}

} // namespace veldan::cli
