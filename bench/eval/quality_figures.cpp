#include "quality_figures.hpp"

#include "statistics.hpp"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

namespace veldan::eval {

namespace {

using Photos = std::vector<const DamagedPhoto*>;

int tenth(double level) {
    return level > 0 ? std::max(1, static_cast<int>(std::lround(level * 10))) : 0;
}

/** Photos without a score count with this one, or not at all. */
double fallOfScore(const Photos& photos, std::optional<int> ofMissed = std::nullopt) {
    std::vector<double> levels;
    std::vector<double> scores;
    for (const DamagedPhoto* photo : photos) {
        if (photo->score || ofMissed) {
            levels.push_back(photo->level);
            scores.push_back(photo->score ? *photo->score : *ofMissed);
        }
    }
    return 0 - rankCorrelation(levels, scores).value_or(0);
}

std::vector<double> fallsBySource(const Photos& photos) {
    std::map<std::string, Photos> sources;
    for (const DamagedPhoto* photo : photos) {
        if (photo->score)
            sources[photo->source].push_back(photo);
    }
    std::vector<double> falls;
    for (const auto& [source, group] : sources) {
        std::set<double> levels;
        for (const DamagedPhoto* photo : group)
            levels.insert(photo->level);
        if (levels.size() >= 3)
            falls.push_back(fallOfScore(group));
    }
    return falls;
}

std::vector<double> scoresOf(const Photos& photos) {
    std::vector<double> scores;
    for (const DamagedPhoto* photo : photos) {
        if (photo->score)
            scores.push_back(*photo->score);
    }
    return scores;
}

std::map<int, Photos> byTenths(const Photos& photos) {
    std::map<int, Photos> levels;
    for (const DamagedPhoto* photo : photos)
        levels[tenth(photo->level)].push_back(photo);
    return levels;
}

/** What all groups of photos tell. */
Json groupJson(const char* key, const Json& name, const Photos& photos) {
    const std::vector<double> scores = scoresOf(photos);
    return {
        {key, name}, {"photos", photos.size()}, {"missed", photos.size() - scores.size()}, {"meanScore", mean(scores)}};
}

/** Not more than count of them, evenly over the list. */
Photos thinned(const Photos& photos, std::size_t count) {
    if (photos.size() <= count)
        return photos;
    Photos result;
    for (std::size_t i = 0; i < count; ++i)
        result.push_back(photos[i * photos.size() / count]);
    return result;
}

void setBySource(Json& figures, const std::vector<double>& falls) {
    const bool any = !falls.empty();
    figures["bySource"] = any ? Json(mean(falls)) : Json();
    figures["bySourceMedian"] = any ? Json(median(falls)) : Json();
    figures["sources"] = falls.size();
}

/** The photos of a kind with the undamaged ones that it starts from; the correlations of its sources are added to
 * falls. */
Json figuresOf(const std::string& kind, Photos photos, const Photos& undamaged, std::vector<double>& falls) {
    const bool ownStart =
        std::any_of(photos.begin(), photos.end(), [](const DamagedPhoto* photo) { return photo->level == 0; });
    Photos compared = photos;
    if (!ownStart) {
        std::size_t largest = 0;
        for (const auto& [place, level] : byTenths(photos))
            largest = std::max(largest, level.size());
        const Photos start = thinned(undamaged, largest);
        compared.insert(compared.end(), start.begin(), start.end());
        photos.insert(photos.end(), undamaged.begin(), undamaged.end());
    }
    Json figures = {{"kind", kind},
                    {"photos", compared.size()},
                    {"missed", compared.size() - scoresOf(compared).size()},
                    {"pooled", fallOfScore(compared)},
                    {"pooledWithMissed", fallOfScore(compared, 0)}};
    const std::vector<double> here = fallsBySource(photos);
    falls.insert(falls.end(), here.begin(), here.end());
    setBySource(figures, here);
    figures["levels"] = Json::array();
    for (const auto& [place, level] : byTenths(photos))
        figures["levels"].push_back(groupJson("level", place / 10.0, level));
    return figures;
}

Json undamagedFigures(const std::string& kind, const Photos& photos, int good) {
    Json figures = groupJson("kind", kind, photos);
    const std::vector<double> scores = scoresOf(photos);
    figures["good"] = std::count_if(scores.begin(), scores.end(), [&](double score) { return score >= good; });
    return figures;
}

} // namespace

std::vector<DamagedPhoto> readDamagedPhotos(const std::filesystem::path& path) {
    std::vector<DamagedPhoto> photos;
    readTable(path, 4, [&](const TableRow& row) {
        const double level = row.number(3);
        if (!(level >= 0 && level <= 1))
            row.fail("a level of " + row.text(3) + " is not between 0 and 1");
        photos.push_back({row.text(0), row.text(1), row.text(2), level, std::nullopt});
    });
    return photos;
}

Json qualityFigures(const std::vector<DamagedPhoto>& photos, int good) {
    std::vector<std::string> kinds;
    std::map<std::string, Photos> byKind;
    std::map<std::string, Photos> undamagedByKind;
    Photos all;
    Photos undamaged;
    for (const DamagedPhoto& photo : photos) {
        if (byKind.count(photo.kind) == 0)
            kinds.push_back(photo.kind);
        byKind[photo.kind].push_back(&photo);
        all.push_back(&photo);
        if (photo.level == 0) {
            undamagedByKind[photo.kind].push_back(&photo);
            undamaged.push_back(&photo);
        }
    }

    Json figures = {{"damage", Json::array()}, {"undamaged", Json::array()}};
    std::vector<double> falls;
    for (const std::string& kind : kinds) {
        if (undamagedByKind.count(kind) > 0)
            figures["undamaged"].push_back(undamagedFigures(kind, undamagedByKind[kind], good));
        if (undamagedByKind[kind].size() != byKind[kind].size())
            figures["damage"].push_back(figuresOf(kind, byKind[kind], undamagedByKind[noDamage], falls));
    }
    // Each source with each kind by itself, though several were made from one photo.
    const std::vector<double> series = falls;
    Json total = figuresOf("all", all, {}, falls);
    setBySource(total, series);
    figures["damage"].push_back(total);
    figures["undamaged"].push_back(undamagedFigures("all", undamaged, good));
    return figures;
}

} // namespace veldan::eval
