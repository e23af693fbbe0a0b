#ifndef VELDAN_EVAL_QUALITY_FIGURES_HPP
#define VELDAN_EVAL_QUALITY_FIGURES_HPP

#include "tables.hpp"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace veldan::eval {

/** A photo of one face, damaged to a known degree. */
struct DamagedPhoto {
    std::string file;
    /** The photo that it was made from. */
    std::string source;
    std::string kind;
    /** 0: undamaged, to 1: the worst. */
    double level = 0;
    /** Nothing: no face was found. */
    std::optional<int> score;
};

/** The kind of undamaged photos that all other kinds start from. */
inline const std::string noDamage = "none";

/** Reads photos.csv: file,source,kind,level. Throws std::runtime_error for what does not fit. */
std::vector<DamagedPhoto> readDamagedPhotos(const std::filesystem::path& path);

/**
 * How the scores go down as the damage goes up: "damage", the kinds of damage in the order of the list and one named
 * "all", and "undamaged", the kinds with undamaged photos and one named "all", with the number of faces whose score is
 * at least `good`. Faces that were not found ("missed") have no score and are in no correlation but one.
 *
 * pooled: rank correlation of score and level with its sign turned, 1 when a more damaged photo never scores higher.
 * Over all photos at once, which differ in more than the damage. Equal ranks keep it below 1: five levels and as many
 * undamaged photos give at most 0.99. pooledWithMissed: faces that were not found counted as a score of 0, as for
 * somebody who asks for a good photo. bySource, bySourceMedian: the same within the photos made from one source, where
 * they show three levels and more, mean and median; null without such sources. A source whose score never changes
 * counts as 0. levels: by tenths of the level; only 0 itself is in the first.
 *
 * A kind without undamaged photos of its own starts from those of the kind noDamage: of these every n-th is taken, so
 * that there are no more of them than the largest tenth of the kind has. A crowd of equal levels would hold down the
 * correlation.
 */
Json qualityFigures(const std::vector<DamagedPhoto>& photos, int good);

} // namespace veldan::eval

#endif
