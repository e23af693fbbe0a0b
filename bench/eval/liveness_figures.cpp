#include "liveness_figures.hpp"

#include "statistics.hpp"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <tuple>
#include <utility>

namespace veldan::eval {

namespace fs = std::filesystem;

namespace {

constexpr int tableOfThresholds[] = {5, 10, 20, 30, 40, 50, 60, 70, 80, 90, 95, 99};

Json ratesAt(const std::vector<LivenessPhoto>& photos, int threshold) {
    std::size_t judged[2] = {};
    std::size_t wrong[2] = {};
    for (const LivenessPhoto& photo : photos) {
        if (!photo.score)
            continue;
        ++judged[photo.attack ? 1 : 0];
        wrong[photo.attack ? 1 : 0] += (*photo.score >= threshold) == photo.attack ? 1 : 0;
    }
    const std::optional<double> bpcer = ratio(wrong[0], judged[0]);
    const std::optional<double> apcer = ratio(wrong[1], judged[1]);
    return {{"threshold", threshold},
            {"apcer", orNull(apcer)},
            {"bpcer", orNull(bpcer)},
            {"acer", apcer && bpcer ? Json((*apcer + *bpcer) / 2) : Json()}};
}

Json kindsOf(const std::vector<LivenessPhoto>& photos, int threshold) {
    std::vector<std::vector<LivenessPhoto>> kinds;
    for (const LivenessPhoto& photo : photos) {
        const auto same = [&](const std::vector<LivenessPhoto>& kind) {
            return kind[0].kind == photo.kind && kind[0].attack == photo.attack && kind[0].heldOut == photo.heldOut;
        };
        const auto place = std::find_if(kinds.begin(), kinds.end(), same);
        if (place == kinds.end())
            kinds.push_back({photo});
        else
            place->push_back(photo);
    }
    Json result = Json::array();
    for (const std::vector<LivenessPhoto>& kind : kinds) {
        std::size_t judged = 0;
        std::size_t wrong = 0;
        for (const LivenessPhoto& photo : kind) {
            judged += photo.score ? 1 : 0;
            wrong += photo.score && (*photo.score >= threshold) == photo.attack ? 1 : 0;
        }
        result.push_back({{"kind", kind[0].kind},
                          {"class", kind[0].attack ? "attack" : "live"},
                          {"heldOut", kind[0].heldOut},
                          {"photos", judged},
                          {"missed", kind.size() - judged},
                          {"wrong", wrong},
                          {"rate", orNull(ratio(wrong, judged))}});
    }
    return result;
}

/** The folder of a name like "real/12 (3).png", and the first number behind it. */
std::pair<std::string, long> placeInRecording(const std::string& name) {
    const std::size_t slash = name.rfind('/');
    const std::size_t file = slash == std::string::npos ? 0 : slash + 1;
    const std::size_t digit = name.find_first_of("0123456789", file);
    return {name.substr(0, file), digit == std::string::npos ? 0 : std::stol(name.substr(digit, 9))};
}

struct Verdict {
    bool out = false;
    int turns = 0;
};

std::map<std::string, Verdict> verdictsOn(const std::string& source, const fs::path& review) {
    std::map<std::string, Verdict> verdicts;
    if (review.empty())
        return verdicts;
    readTable(review, 4, [&](const TableRow& row) {
        const std::string& turn = row.choice(2, {"", "90", "180", "270"});
        if (row.text(1) == source)
            verdicts[row.text(0)] = {turn.empty(), turn.empty() ? 0 : std::stoi(turn) / 90};
    });
    return verdicts;
}

} // namespace

std::vector<LivenessPhoto> readAttackPhotos(const fs::path& path) {
    std::vector<LivenessPhoto> photos;
    readTable(path, 5, [&](const TableRow& row) {
        const bool infrared = row.isSecond(1, "visible", "nir");
        const bool attack = row.isSecond(2, "live", "attack");
        const bool heldOut = row.isSecond(4, "0", "1");
        photos.push_back({row.text(0), infrared, attack, row.text(3), heldOut, std::nullopt});
    });
    return photos;
}

std::vector<LivenessPhoto> readSpoofPhotos(const fs::path& path, const std::string& set) {
    std::vector<LivenessPhoto> photos;
    readTable(path, 3, [&](const TableRow& row) {
        const bool attack = row.isSecond(2, "live", "attack");
        if (row.text(1) == set)
            photos.push_back({row.text(0), false, attack, "real", false, std::nullopt});
    });
    return photos;
}

Json livenessFigures(const std::vector<LivenessPhoto>& photos, int threshold) {
    std::vector<double> live;
    std::vector<double> attacks;
    for (const LivenessPhoto& photo : photos) {
        if (photo.score)
            (photo.attack ? attacks : live).push_back(*photo.score);
    }
    const Json kinds = kindsOf(photos, threshold);
    Json worst = {{"kind", ""}, {"rate", nullptr}};
    for (const Json& kind : kinds) {
        if (kind["class"] == "attack" && !kind["rate"].is_null() &&
            (worst["rate"].is_null() || kind["rate"] > worst["rate"]))
            worst = kind;
    }
    Json figures = ratesAt(photos, threshold);
    figures["worstKind"] = worst["kind"];
    figures["apcerOfWorst"] = worst["rate"];
    figures["auc"] = orNull(areaUnderCurve(live, attacks));
    figures["kinds"] = kinds;
    for (const int other : tableOfThresholds)
        figures["thresholds"].push_back(ratesAt(photos, other));
    return figures;
}

std::vector<SourcePhoto> readSource(const fs::path& folder, const std::string& source, const fs::path& review) {
    const std::map<std::string, Verdict> verdicts = verdictsOn(source, review);
    using Key = std::tuple<bool, std::string, long, std::string>;
    std::map<Key, SourcePhoto> ordered;
    readTable(folder / (source + ".csv"), 4, [&](const TableRow& row) {
        const bool attack = row.isSecond(2, "live", "attack");
        const auto verdict = verdicts.find(row.text(0));
        if (verdict != verdicts.end() && verdict->second.out)
            return;
        const auto [place, number] = placeInRecording(row.text(1));
        SourcePhoto& photo = ordered[{attack, place, number, row.text(0)}];
        photo.photo = {row.text(0), false, attack, source, false, std::nullopt};
        photo.turns = verdict == verdicts.end() ? 0 : verdict->second.turns;
    });
    std::vector<SourcePhoto> photos;
    photos.reserve(ordered.size());
    for (auto& [key, photo] : ordered)
        photos.push_back(std::move(photo));
    return photos;
}

std::vector<std::string> sourcesIn(const fs::path& folder) {
    std::vector<std::string> names;
    for (const fs::directory_entry& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() == ".csv" && entry.path().stem().string().rfind("attack_", 0) == 0)
            names.push_back(entry.path().stem().string());
    }
    if (names.empty())
        throw std::runtime_error(folder.string() + ": no attack_*.csv");
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<LivenessPhoto> medianOverTracks(const std::vector<SourcePhoto>& photos, std::size_t length) {
    std::vector<LivenessPhoto> tracks;
    std::vector<int> scores;
    const auto close = [&] {
        if (!scores.empty()) {
            std::sort(scores.begin(), scores.end());
            tracks.back().score = scores[(scores.size() - 1) / 2];
        }
        scores.clear();
    };
    for (const SourcePhoto& one : photos) {
        if (!one.photo.score)
            continue;
        if (scores.size() == length || !one.continues || tracks.empty() || tracks.back().attack != one.photo.attack)
            close();
        if (scores.empty())
            tracks.push_back(one.photo);
        scores.push_back(*one.photo.score);
    }
    close();
    return tracks;
}

} // namespace veldan::eval
