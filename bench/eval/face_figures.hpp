#ifndef VELDAN_EVAL_FACE_FIGURES_HPP
#define VELDAN_EVAL_FACE_FIGURES_HPP

#include "tables.hpp"

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veldan::eval {

/** How far the corners of one face's crop lie from where they should, as shares of the crop's side. */
struct CornerErrors {
    /** The two points against the alignment of the labels. */
    double twoPoints = 0;
    /** The two points against the alignment of the five points that the library found. */
    double againstFive = 0;
    /** That alignment against the one of the labels: what the five points would have given. */
    double fivePoints = 0;
    /** The square about the box left the picture, and the shift of the points was taken back. */
    bool shifted = false;
};

/** Errors of a group of faces; no errors: the face was not found. */
struct CornerFigures {
    std::vector<std::optional<CornerErrors>> faces;

    Json toJson() const;
};

/** Median, mean and 90th percentile; all 0 when there are no errors. */
Json spreadOf(const std::vector<double>& errors);

/** Figures of a group of faces with a known class of mask. */
class MaskFigures {
public:
    /** Counts one face: its class, and its score, or nothing when the detector missed it. */
    void add(const std::string& category, std::optional<int> score, int threshold);
    std::size_t faces() const;

    /**
     * accuracy: share of the found faces, with a mask and without, that are judged right. Masks worn the wrong way are
     * in neither class, so they do not count there. null without such faces.
     */
    Json toJson() const;

private:
    struct Count {
        std::size_t masked = 0;
        std::size_t bare = 0;
        std::size_t missed = 0;
    };
    std::map<std::string, Count> counts_;
};

} // namespace veldan::eval

#endif
