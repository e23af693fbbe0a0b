#ifndef VELDAN_EVAL_MASK_FIGURES_HPP
#define VELDAN_EVAL_MASK_FIGURES_HPP

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <map>
#include <optional>
#include <string>

namespace veldan::eval {

/** Figures of a group of faces with a known class. */
class MaskFigures {
public:
    /** Counts one face: its class, and its score, or nothing when the detector missed it. */
    void add(const std::string& category, std::optional<int> score, int threshold);
    void add(const MaskFigures& other);

    struct Count {
        std::size_t masked = 0;
        std::size_t bare = 0;
        std::size_t missed = 0;

        std::size_t judged() const { return masked + bare; }
        std::size_t faces() const { return judged() + missed; }
    };
    /** Of a class; all 0 when there is no face of it. */
    Count count(const std::string& category) const;
    std::size_t faces() const;

    /**
     * Share of the found faces, with a mask and without, that are judged right. Masks worn the wrong way are in neither
     * class, so they do not count here. Nothing without such faces.
     */
    std::optional<double> accuracy() const;
    /** Share of the found faces of a class that are judged masked. */
    std::optional<double> maskedShare(const std::string& category) const;

    nlohmann::ordered_json toJson() const;

private:
    std::map<std::string, Count> counts_;
};

} // namespace veldan::eval

#endif
