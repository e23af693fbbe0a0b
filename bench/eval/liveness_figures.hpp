#ifndef VELDAN_EVAL_LIVENESS_FIGURES_HPP
#define VELDAN_EVAL_LIVENESS_FIGURES_HPP

#include <nlohmann/json_fwd.hpp>

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

/** Errors among photos of one kind: attacks taken as live, or live faces taken as attacks. */
struct KindErrors {
    std::string kind;
    bool attack = false;
    bool heldOut = false;
    std::size_t photos = 0; ///< those with a score
    std::size_t missed = 0; ///< those without one, which are in no rate
    std::size_t wrong = 0;

    /** Nothing when there is no photo with a score. */
    std::optional<double> rate() const;
};

/** Error rates at a threshold: a face counts as live from that score on. */
struct LivenessRates {
    int threshold = 0;
    /** Over all attacks, whatever their kind. */
    std::optional<double> apcer;
    std::optional<double> bpcer;

    /** Mean of the two, when both exist. */
    std::optional<double> acer() const;
};

struct LivenessFigures {
    LivenessRates rates;
    /** The kind of attack that is accepted most often, and how often. */
    std::string worstKind;
    std::optional<double> apcerOfWorst;
    /** In the order of the list. */
    std::vector<KindErrors> kinds;
    std::vector<LivenessRates> table;
    /** How often a live face scores higher than an attack. */
    std::optional<double> area;

    nlohmann::ordered_json toJson() const;
};

LivenessFigures livenessFigures(const std::vector<LivenessPhoto>& photos, int threshold);

} // namespace veldan::eval

#endif
