#ifndef VELDAN_EVAL_QUALITY_FIGURES_HPP
#define VELDAN_EVAL_QUALITY_FIGURES_HPP

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <filesystem>
#include <map>
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

/** How the scores go down as the damage goes up. */
struct DamageFigures {
    std::string kind;
    std::size_t photos = 0;
    std::size_t missed = 0;
    /**
     * Rank correlation of score and level with its sign turned: 1 when a more damaged photo never scores higher. Over
     * all photos at once, which differ in more than the damage. Equal ranks keep it below 1: five levels and as many
     * undamaged photos give at most 0.99.
     */
    double pooled = 0;
    /** As pooled, faces that were not found counted as a score of 0, as for somebody who asks for a good photo. */
    double pooledWithMissed = 0;
    /**
     * The same within the photos made from one source, where they show three levels and more; mean and median. Nothing
     * without such sources.
     */
    std::optional<double> bySource;
    std::optional<double> bySourceMedian;
    std::size_t sources = 0;

    struct Level {
        std::size_t photos = 0;
        std::size_t missed = 0;
        double meanScore = 0; ///< of the found faces
    };
    /** By tenths of the level; only 0 itself is in the first. */
    std::map<int, Level> levels;
};

struct UndamagedFigures {
    std::string kind;
    std::size_t photos = 0;
    std::size_t missed = 0;
    /** Faces with a score of at least the threshold; missed ones have none. */
    std::size_t good = 0;
    double meanScore = 0;
};

struct QualityFigures {
    /** The kinds of damage in the order of the list, and one named "all". */
    std::vector<DamageFigures> damage;
    /** The kinds with undamaged photos, and one named "all". */
    std::vector<UndamagedFigures> undamaged;

    nlohmann::ordered_json toJson() const;
};

/**
 * A kind without undamaged photos of its own starts from those of the kind noDamage: of these every n-th is taken, so
 * that there are no more of them than the largest tenth of the kind has. A crowd of equal levels would hold down the
 * correlation. Faces that were not found have no score and are in no correlation; a source whose score never changes
 * counts as 0.
 */
QualityFigures qualityFigures(const std::vector<DamagedPhoto>& photos, int good);

} // namespace veldan::eval

#endif
