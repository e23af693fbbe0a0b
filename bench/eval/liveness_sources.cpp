#include "liveness_sources.hpp"

#include "csv_table.hpp"

#include <algorithm>
#include <map>
#include <stdexcept>
#include <tuple>

namespace veldan::eval {

namespace fs = std::filesystem;

namespace {

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

std::vector<SourcePhoto> readSource(const fs::path& folder, const std::string& source, const fs::path& review) {
    const std::map<std::string, Verdict> verdicts = verdictsOn(source, review);
    using Key = std::tuple<bool, std::string, long, std::string>;
    std::map<Key, SourcePhoto> ordered;
    readTable(folder / (source + ".csv"), 4, [&](const TableRow& row) {
        const bool attack = row.choice(2, {"live", "attack"}) == "attack";
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
