#ifndef VELDAN_EVAL_LIVENESS_FIGURES_HPP
#define VELDAN_EVAL_LIVENESS_FIGURES_HPP

#include "tables.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace veldan::eval {

/** A photo of a live face, or of an attack with something that shows one. */
struct LivenessPhoto {
    std::string file;
    bool infrared = false;
    bool attack = false;
    std::string kind;
    /** A kind of attack that training has never seen. */
    bool heldOut = false;
    /** Nothing: no face was found, or none that stands upright. */
    std::optional<int> score;
};

/** Reads photos.csv: file,light,class,kind,held_out. Throws std::runtime_error for what does not fit. */
std::vector<LivenessPhoto> readAttackPhotos(const std::filesystem::path& path);

/** Reads the rows of one set from photos.csv: file,set,class. All are of visible light and of the kind "real". */
std::vector<LivenessPhoto> readSpoofPhotos(const std::filesystem::path& path, const std::string& set);

/**
 * Error rates: a face counts as live from the threshold on. Rates without photos are null.
 *
 * apcer: share of attacks taken as live, over all attacks whatever their kind; worstKind, apcerOfWorst: the kind of
 * attack that is accepted most often, and how often; bpcer: share of live faces taken as attacks; acer: mean of the
 * two; auc: how often a live face scores higher than an attack. kinds: in the order of the list, photos with a score
 * and those without one (missed), which are in no rate. thresholds: the rates at others.
 */
Json livenessFigures(const std::vector<LivenessPhoto>& photos, int threshold);

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
