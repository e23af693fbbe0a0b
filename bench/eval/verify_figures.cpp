#include "verify_figures.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <stdexcept>

namespace veldan::eval {

namespace {

constexpr float surely = 0.8F;

std::size_t atLeast(const std::vector<float>& sorted, float threshold) {
    return static_cast<std::size_t>(sorted.end() - std::lower_bound(sorted.begin(), sorted.end(), threshold));
}

} // namespace

PeoplePhotos readPeople(const std::filesystem::path& folder) {
    PeoplePhotos people;
    readTable(folder / "photos.csv", 2, [&](const TableRow& row) {
        if (!people.person.emplace(row.text(0), row.text(1)).second)
            row.fail("the photo is listed twice");
        people.files.push_back(row.text(0));
    });
    readTable(folder / "pairs.csv", 3, [&](const TableRow& row) {
        for (const std::size_t i : {std::size_t{0}, std::size_t{1}}) {
            if (people.person.count(row.text(i)) == 0)
                row.fail("\"" + row.text(i) + "\" is not in photos.csv");
        }
        people.pairs.push_back({row.text(0), row.text(1), row.isSecond(2, "0", "1")});
    });
    return people;
}

std::vector<PhotoPair> allPairs(const PeoplePhotos& people) {
    std::vector<PhotoPair> pairs;
    for (std::size_t a = 0; a < people.files.size(); ++a) {
        for (std::size_t b = a + 1; b < people.files.size(); ++b) {
            const std::string& first = people.files[a];
            const std::string& second = people.files[b];
            pairs.push_back({first, second, people.person.at(first) == people.person.at(second)});
        }
    }
    return pairs;
}

void PairScores::add(bool same, std::optional<float> score) {
    if (!score || std::isnan(*score))
        ++(same ? genuineFailed : impostorFailed);
    else
        (same ? genuine : impostor).push_back(*score);
}

Json verifyFigures(const PairScores& scores, const std::vector<double>& falseMatchRates) {
    if (scores.genuinePairs() == 0 || scores.impostorPairs() == 0)
        throw std::runtime_error("pairs of the same person and pairs of different people are both needed");
    std::vector<float> genuine = scores.genuine;
    std::vector<float> impostor = scores.impostor;
    std::sort(genuine.begin(), genuine.end());
    std::sort(impostor.begin(), impostor.end());
    // What a threshold does, as shares of the pairs.
    const auto at = [&](float threshold) -> Json {
        return {{"threshold", threshold},
                {"false_match_rate", *ratio(atLeast(impostor, threshold), scores.impostorPairs())},
                {"true_match_rate", *ratio(atLeast(genuine, threshold), scores.genuinePairs())}};
    };
    double accuracy = 0;
    float bestThreshold = 0;
    // Nothing changes between the scores of genuine pairs; the last candidate accepts nobody.
    std::vector<float> candidates = genuine;
    candidates.push_back(std::numeric_limits<float>::infinity());
    for (const float threshold : candidates) {
        const std::size_t right = atLeast(genuine, threshold) + scores.impostorPairs() - atLeast(impostor, threshold);
        const double here = *ratio(right, scores.genuinePairs() + scores.impostorPairs());
        if (here > accuracy) {
            accuracy = here;
            bestThreshold = threshold;
        }
    }
    Json figures = {{"accuracy", accuracy},
                    {"best_threshold", bestThreshold},
                    {"at_0.80", at(surely)},
                    {"impostors_at_0.80", atLeast(impostor, surely)},
                    {"operating_points", Json::array()}};
    for (const double rate : falseMatchRates) {
        const auto allowed = static_cast<std::size_t>(rate * static_cast<double>(scores.impostorPairs()));
        // Just above the impostor that would be one too many.
        float threshold = 0;
        if (impostor.size() > allowed)
            threshold = std::nextafter(impostor[impostor.size() - 1 - allowed], std::numeric_limits<float>::infinity());
        Json point = {{"asked", rate}};
        point.update(at(threshold));
        figures["operating_points"].push_back(point);
    }
    return figures;
}

void IdentificationFigures::add(std::optional<std::size_t> own, const std::vector<float>& similarities) {
    float others = -std::numeric_limits<float>::infinity();
    for (std::size_t i = 0; i < similarities.size(); ++i) {
        if (i != own && similarities[i] > others)
            others = similarities[i];
    }
    if (!own) {
        strangers += similarities.empty() ? 0U : 1U;
        strangersAccepted += others >= threshold ? 1U : 0U;
        return;
    }
    ++known;
    acceptedWithoutOwn += others >= threshold ? 1U : 0U;
    if (!similarities.empty() && similarities[*own] > others) {
        ++first;
        accepted += similarities[*own] >= threshold ? 1U : 0U;
    } else {
        mistaken += others >= threshold ? 1U : 0U;
    }
}

Json IdentificationFigures::toJson() const {
    return {{"threshold", threshold},
            {"known", known},
            {"rank_1", first},
            {"accepted", accepted},
            {"accepted_as_another", mistaken},
            {"accepted_without_own", acceptedWithoutOwn},
            {"strangers", strangers},
            {"strangers_accepted", strangersAccepted}};
}

} // namespace veldan::eval
