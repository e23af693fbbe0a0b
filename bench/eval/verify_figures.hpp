#ifndef VELDAN_EVAL_VERIFY_FIGURES_HPP
#define VELDAN_EVAL_VERIFY_FIGURES_HPP

#include "tables.hpp"

#include <cstddef>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veldan::eval {

/** Two photos, and whether they show the same person. */
struct PhotoPair {
    std::string first;
    std::string second;
    bool same = false;
};

/** Photos of people, and the pairs that are compared. */
struct PeoplePhotos {
    std::vector<std::string> files;
    std::map<std::string, std::string> person; ///< of each file
    std::vector<PhotoPair> pairs;
};

/** Reads photos.csv (file,person) and pairs.csv (file,file,same). Throws std::runtime_error for what does not fit. */
PeoplePhotos readPeople(const std::filesystem::path& folder);

/** Every two photos. */
std::vector<PhotoPair> allPairs(const PeoplePhotos& people);

/** Similarities of pairs; a pair without one, since a face was not found, is in `failed` and counts as below any
 * threshold. */
struct PairScores {
    std::vector<float> genuine;
    std::vector<float> impostor;
    std::size_t genuineFailed = 0;
    std::size_t impostorFailed = 0;

    void add(bool same, std::optional<float> score);
    std::size_t genuinePairs() const { return genuine.size() + genuineFailed; }
    std::size_t impostorPairs() const { return impostor.size() + impostorFailed; }
};

/**
 * accuracy: share of pairs judged right at the threshold that is best for these very pairs, and that threshold
 * (best_threshold); operating_points: for each false match rate asked for the lowest threshold that keeps it; at_0.80:
 * at a similarity of 0.80, which the search accepts at once. Pairs at or above a threshold are taken for the same
 * person. Throws std::runtime_error when there are no genuine or no impostor pairs.
 */
Json verifyFigures(const PairScores& scores, const std::vector<double>& falseMatchRates);

/** Searches for one face among enrolled people, each with one template; similarities of the threshold and more are
 * accepted. */
struct IdentificationFigures {
    float threshold = 0;
    /** Faces of enrolled people; those most similar to their own template; of these the accepted ones; and those
     * accepted as somebody else. A face that was not found is none of the last three. */
    std::size_t known = 0;
    std::size_t first = 0;
    std::size_t accepted = 0;
    std::size_t mistaken = 0;
    /** Of the same faces those that would be accepted as somebody if their own template were not enrolled. */
    std::size_t acceptedWithoutOwn = 0;
    /** Found faces of people who are not enrolled, and how many of them are accepted. */
    std::size_t strangers = 0;
    std::size_t strangersAccepted = 0;

    /** One face: its similarities to everybody enrolled, none when it was not found; and its own place among them. */
    void add(std::optional<std::size_t> own, const std::vector<float>& similarities);
    Json toJson() const;
};

} // namespace veldan::eval

#endif
