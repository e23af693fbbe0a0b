#include "evaluations.hpp"
#include "library.hpp"
#include "pack_photos.hpp"
#include "photo_source.hpp"
#include "quality_curves.hpp"
#include "quality_figures.hpp"
#include "text_table.hpp"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <filesystem>
#include <iostream>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string folder;
    int good = 60;
    int threads = 1;
    std::string draw;
    bool json = false;
};

void printCorrelations(const QualityFigures& figures) {
    TextTable table({"damage", "photos", "not found", "correlation: pooled", "not found as 0", "by source: mean",
                     "median", "sources"});
    for (const DamageFigures& kind : figures.damage) {
        table.add({kind.kind, text(kind.photos), text(kind.missed), text(kind.pooled, 3),
                   text(kind.pooledWithMissed, 3), text(kind.bySource, 3), text(kind.bySourceMedian, 3),
                   text(kind.sources)});
    }
    table.print(std::cout);
}

void printLevels(const QualityFigures& figures) {
    std::set<int> places;
    for (const DamageFigures& kind : figures.damage) {
        for (const auto& [place, level] : kind.levels)
            places.insert(place);
    }
    std::vector<std::string> heading = {"mean score at level"};
    for (const int place : places)
        heading.push_back(text(place / 10.0, 1));
    TextTable table(heading);
    for (const DamageFigures& kind : figures.damage) {
        std::vector<std::string> row = {kind.kind};
        for (const int place : places) {
            const auto level = kind.levels.find(place);
            std::string cell;
            if (level != kind.levels.end()) {
                cell = level->second.photos > level->second.missed ? text(level->second.meanScore, 1) : "-";
                if (level->second.missed > 0)
                    cell += " (" + text(level->second.missed) + "/" + text(level->second.photos) + ")";
            }
            row.push_back(cell);
        }
        table.add(row);
    }
    table.print(std::cout);
}

void printTables(const Options& options, const QualityFigures& figures) {
    std::cout
        << "Quality score of the largest face of each photo. Correlation: Spearman's of score and level, sign turned;\n"
           "pooled over all photos of a kind, and within photos made from one source at three levels and more.\n\n";
    printCorrelations(figures);
    std::cout
        << "\nIn brackets, of how many photos the face was not found; these are in no mean and no correlation.\n\n";
    printLevels(figures);
    std::cout << "\nUndamaged faces with a score of " << options.good << " and more\n\n";
    TextTable table({"photos", "number", "not found", "good", "% of all", "mean score"});
    for (const UndamagedFigures& kind : figures.undamaged) {
        table.add({kind.kind, text(kind.photos), text(kind.missed), text(kind.good),
                   percent(static_cast<double>(kind.good) / static_cast<double>(kind.photos), 1),
                   text(kind.meanScore, 1)});
    }
    table.print(std::cout);
}

/** The photos of the list with the scores that the library gives. */
std::vector<DamagedPhoto> scoredPhotos(const Options& options) {
    std::vector<DamagedPhoto> photos = readDamagedPhotos(fs::path(options.folder) / "photos.csv");
    if (photos.empty())
        throw std::runtime_error(options.folder + ": no photos in the list");
    const std::unique_ptr<PhotoSource> source = openListedPhotos(options.folder);
    Library library;
    std::size_t seen = 0;
    for (DamagedPhoto& photo : photos) {
        showProgress("photo", ++seen, photos.size());
        cv::Mat picture = decodePicture(source->read(photo.file), photo.file);
        Library::Answer answer = library.detect(picture);
        if (answer.faces.empty())
            continue;
        library.scoreQuality(picture, answer.faces[0]);
        photo.score = answer.faces[0].quality;
    }
    return photos;
}

void evaluate(const Options& options) {
    cv::setNumThreads(options.threads);
    const QualityFigures figures = qualityFigures(scoredPhotos(options), options.good);
    if (!options.draw.empty())
        drawQualityCurves(options.draw, figures, options.good);
    if (!options.json) {
        printTables(options, figures);
        return;
    }
    nlohmann::ordered_json document = {{"settings", {{"folder", options.folder}, {"good", options.good}}}};
    document.update(figures.toJson());
    std::cout << document.dump(2) << '\n';
}

} // namespace

void addQualityEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("quality", "How the quality score falls as photos are damaged");
    const auto options = std::make_shared<Options>();
    command->add_option("folder", options->folder, "Folder of training/make_validation.py quality, with photos.csv")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("FOLDER");
    command->add_option("--good", options->good, "The score that undamaged faces should reach")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    addThreads(*command, options->threads);
    command->add_option("--draw", options->draw, "Draw the mean score against the level")->type_name("PICTURE");
    command->add_flag("--json", options->json, "Print JSON");
    command->footer(
        "Photos are measured as they are. Undamaged photos have level 0; those of the kind \"none\" are where\n"
        "all kinds of damage start.\n"
        "\n"
        "Example:\n"
        "  veldan_eval quality made/ --draw curves.png\n");
    command->callback([options, &action] { action = [options] { evaluate(*options); }; });
}

} // namespace veldan::eval
