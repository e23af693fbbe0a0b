#include "evaluations.hpp"
#include "photos.hpp"
#include "plots.hpp"
#include "quality_figures.hpp"

#include <iostream>
#include <set>
#include <stdexcept>

namespace veldan::eval {

namespace {

struct QualityOptions : CommonOptions {
    std::string folder;
    int good = 60;
    std::string draw;
};

/** A row for each kind of damage, a column for each level that any of them has. */
void printLevels(const Json& damage) {
    std::set<double> levels;
    Json rows = damage;
    for (Json& kind : rows) {
        Json cells;
        for (const Json& level : kind["levels"]) {
            const auto photos = level["photos"].get<std::size_t>();
            const auto missed = level["missed"].get<std::size_t>();
            std::string cell = photos > missed ? text(level["meanScore"].get<double>(), 1) : "-";
            if (missed > 0)
                cell += " (" + std::to_string(missed) + "/" + std::to_string(photos) + ")";
            levels.insert(level["level"].get<double>());
            cells[text(level["level"].get<double>(), 1)] = cell;
        }
        kind["cells"] = cells;
    }
    std::vector<Column> columns = {{"mean score at level", "/kind"}};
    for (const double level : levels)
        columns.push_back({text(level, 1), "/cells/" + text(level, 1)});
    printTable(std::cout, columns, rows);
}

class QualityEvaluation {
public:
    explicit QualityEvaluation(const QualityOptions& options) : options_(options) {}

    void run() {
        options_.prepare();
        const Json figures = qualityFigures(scoredPhotos(), options_.good);
        if (!options_.draw.empty())
            drawQualityCurves(options_.draw, figures, options_.good);
        Json document = {{"settings", {{"folder", options_.folder}, {"good", options_.good}}}};
        document.update(figures);
        if (options_.json)
            std::cout << document.dump(2) << '\n';
        else
            print(figures);
    }

private:
    /** The photos of the list with the scores that the library gives. */
    std::vector<DamagedPhoto> scoredPhotos() {
        std::vector<DamagedPhoto> photos = readDamagedPhotos(std::filesystem::path(options_.folder) / "photos.csv");
        if (photos.empty())
            throw std::runtime_error(options_.folder + ": no photos in the list");
        const std::unique_ptr<PhotoSource> source = openListedPhotos(options_.folder);
        Instance library;
        std::size_t seen = 0;
        for (DamagedPhoto& photo : photos) {
            showProgress("photo", ++seen, photos.size());
            const cv::Mat picture = source->picture(photo.file);
            std::vector<VDFACEINFOEX> faces = detect(library, picture);
            if (faces.empty())
                continue;
            library.judgeQuality(viewOf(picture), {faces.data(), 1});
            photo.score = faces[0].quality;
        }
        return photos;
    }

    void print(const Json& figures) const {
        std::cout << "Quality score of the largest face of each photo. Correlation: Spearman's of score and level, "
                     "sign turned;\npooled over all photos of a kind, and within photos made from one source at three "
                     "levels and more.\n\n";
        printTable(std::cout,
                   {{"damage", "/kind"},
                    {"photos", "/photos"},
                    {"not found", "/missed"},
                    {"correlation: pooled", "/pooled", 3},
                    {"not found as 0", "/pooledWithMissed", 3},
                    {"by source: mean", "/bySource", 3},
                    {"median", "/bySourceMedian", 3},
                    {"sources", "/sources"}},
                   figures["damage"]);
        std::cout << "\nIn brackets, of how many photos the face was not found; these are in no mean and no "
                     "correlation.\n\n";
        printLevels(figures["damage"]);
        std::cout << "\nUndamaged faces with a score of " << options_.good << " and more\n\n";
        Json undamaged = figures["undamaged"];
        for (Json& kind : undamaged)
            kind["share"] = orNull(ratio(kind["good"].get<std::size_t>(), kind["photos"].get<std::size_t>()));
        printTable(std::cout,
                   {{"photos", "/kind"},
                    {"number", "/photos"},
                    {"not found", "/missed"},
                    {"good", "/good"},
                    percentColumn("% of all", "/share", 1),
                    {"mean score", "/meanScore", 1}},
                   undamaged);
    }

    const QualityOptions& options_;
};

} // namespace

void addQualityEvaluation(CLI::App& app, std::function<void()>& action) {
    CLI::App* command = app.add_subcommand("quality", "How the quality score falls as photos are damaged");
    const auto options = std::make_shared<QualityOptions>();
    command->add_option("folder", options->folder, "Folder of training/make_validation.py quality, with photos.csv")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("FOLDER");
    command->add_option("--good", options->good, "The score that undamaged faces should reach")
        ->check(CLI::Range(0, 100));
    command->add_option("--draw", options->draw, "Draw the mean score against the level")->type_name("PICTURE");
    addCommonOptions(*command, *options, nullptr);
    command->footer(
        "Photos are measured as they are. Undamaged photos have level 0; those of the kind \"none\" are where\n"
        "all kinds of damage start.\n"
        "\n"
        "Example:\n"
        "  veldan_eval quality made/ --draw curves.png\n");
    onChoice<QualityEvaluation>(*command, action, options);
}

} // namespace veldan::eval
