#ifndef VELDAN_EVAL_LIVENESS_SOURCES_HPP
#define VELDAN_EVAL_LIVENESS_SOURCES_HPP

#include "liveness_figures.hpp"

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace veldan::eval {

/** A photo out of a source: one collection of live faces and attacks, a few people, cameras and rooms. */
struct SourcePhoto {
    LivenessPhoto photo;
    /** Quarter turns clockwise that bring the face upright. */
    int turns = 0;
    /** False where another recording begins. Set by who sees the pictures; photos without a score belong to none. */
    bool continues = true;
};

/**
 * Reads SOURCE.csv (file,source,class,split) of a folder, live photos first, in the order in which they were recorded:
 * that of the first number in the name they had at their source. review: rows of file,source,turn,reason about photos
 * to leave out (turn empty) or to turn (90, 180 or 270 degrees clockwise). Throws std::runtime_error for what does not
 * fit.
 */
std::vector<SourcePhoto> readSource(const std::filesystem::path& folder, const std::string& source,
                                    const std::filesystem::path& review);

/** Names of the sources in a folder: those of its files attack_*.csv, in order. */
std::vector<std::string> sourcesIn(const std::filesystem::path& folder);

/**
 * Cuts the photos into tracks of at most `length` consecutive ones of one class and one recording, each judged as one
 * photo by the median of its scores (of an even number the lower one of the two in the middle).
 */
std::vector<LivenessPhoto> medianOverTracks(const std::vector<SourcePhoto>& photos, std::size_t length);

} // namespace veldan::eval

#endif
