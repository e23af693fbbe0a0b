#include "liveness_figures.hpp"

#include "csv_table.hpp"
#include "statistics.hpp"

#include <nlohmann/json.hpp>

#include <algorithm>

namespace veldan::eval {

namespace {

constexpr int tableOfThresholds[] = {5, 10, 20, 30, 40, 50, 60, 70, 80, 90, 95, 99};

bool isWrong(const LivenessPhoto& photo, int threshold) {
    return (*photo.score >= threshold) == photo.attack;
}

std::vector<KindErrors> errorsByKind(const std::vector<LivenessPhoto>& photos, int threshold) {
    std::vector<KindErrors> kinds;
    for (const LivenessPhoto& photo : photos) {
        const auto same = [&](const KindErrors& kind) {
            return kind.kind == photo.kind && kind.attack == photo.attack && kind.heldOut == photo.heldOut;
        };
        auto place = std::find_if(kinds.begin(), kinds.end(), same);
        if (place == kinds.end()) {
            kinds.push_back({photo.kind, photo.attack, photo.heldOut, 0, 0, 0});
            place = kinds.end() - 1;
        }
        if (!photo.score) {
            ++place->missed;
            continue;
        }
        ++place->photos;
        if (isWrong(photo, threshold))
            ++place->wrong;
    }
    return kinds;
}

/** Errors of all kinds of a class together. */
std::optional<double> rateOf(const std::vector<KindErrors>& kinds, bool attack) {
    KindErrors sum;
    for (const KindErrors& kind : kinds) {
        if (kind.attack == attack) {
            sum.photos += kind.photos;
            sum.wrong += kind.wrong;
        }
    }
    return sum.rate();
}

LivenessRates ratesOf(const std::vector<KindErrors>& kinds, int threshold) {
    return {threshold, rateOf(kinds, true), rateOf(kinds, false)};
}

nlohmann::ordered_json json(const std::optional<double>& value) {
    return value ? nlohmann::ordered_json(*value) : nlohmann::ordered_json();
}

nlohmann::ordered_json json(const LivenessRates& rates) {
    return {{"threshold", rates.threshold},
            {"apcer", json(rates.apcer)},
            {"bpcer", json(rates.bpcer)},
            {"acer", json(rates.acer())}};
}

} // namespace

std::vector<LivenessPhoto> readAttackPhotos(const std::filesystem::path& path) {
    std::vector<LivenessPhoto> photos;
    readTable(path, 5, [&](const TableRow& row) {
        const bool infrared = row.choice(1, {"visible", "nir"}) == "nir";
        const bool attack = row.choice(2, {"live", "attack"}) == "attack";
        const bool heldOut = row.choice(4, {"0", "1"}) == "1";
        photos.push_back({row.text(0), infrared, attack, row.text(3), heldOut, std::nullopt});
    });
    return photos;
}

std::vector<LivenessPhoto> readSpoofPhotos(const std::filesystem::path& path, const std::string& set) {
    std::vector<LivenessPhoto> photos;
    readTable(path, 3, [&](const TableRow& row) {
        const bool attack = row.choice(2, {"live", "attack"}) == "attack";
        if (row.text(1) == set)
            photos.push_back({row.text(0), false, attack, "real", false, std::nullopt});
    });
    return photos;
}

std::optional<double> KindErrors::rate() const {
    if (photos == 0)
        return std::nullopt;
    return static_cast<double>(wrong) / static_cast<double>(photos);
}

std::optional<double> LivenessRates::acer() const {
    if (!apcer || !bpcer)
        return std::nullopt;
    return (*apcer + *bpcer) / 2;
}

LivenessFigures livenessFigures(const std::vector<LivenessPhoto>& photos, int threshold) {
    LivenessFigures figures;
    figures.kinds = errorsByKind(photos, threshold);
    figures.rates = ratesOf(figures.kinds, threshold);
    for (const KindErrors& kind : figures.kinds) {
        const std::optional<double> rate = kind.rate();
        if (kind.attack && rate && (!figures.apcerOfWorst || *rate > *figures.apcerOfWorst)) {
            figures.apcerOfWorst = rate;
            figures.worstKind = kind.kind;
        }
    }
    for (const int other : tableOfThresholds)
        figures.table.push_back(ratesOf(errorsByKind(photos, other), other));
    std::vector<double> live;
    std::vector<double> attacks;
    for (const LivenessPhoto& photo : photos) {
        if (photo.score)
            (photo.attack ? attacks : live).push_back(*photo.score);
    }
    figures.area = areaUnderCurve(live, attacks);
    return figures;
}

nlohmann::ordered_json LivenessFigures::toJson() const {
    nlohmann::ordered_json result = json(rates);
    result["worstKind"] = worstKind;
    result["apcerOfWorst"] = json(apcerOfWorst);
    result["auc"] = json(area);
    for (const KindErrors& kind : kinds) {
        result["kinds"].push_back({{"kind", kind.kind},
                                   {"class", kind.attack ? "attack" : "live"},
                                   {"heldOut", kind.heldOut},
                                   {"photos", kind.photos},
                                   {"missed", kind.missed},
                                   {"wrong", kind.wrong},
                                   {"rate", json(kind.rate())}});
    }
    for (const LivenessRates& one : table)
        result["thresholds"].push_back(json(one));
    return result;
}

} // namespace veldan::eval
