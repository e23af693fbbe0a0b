#ifndef VELDAN_EVAL_CORNER_FIGURES_HPP
#define VELDAN_EVAL_CORNER_FIGURES_HPP

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
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

/** Figures of a group of faces. */
class CornerFigures {
public:
    void add(const CornerErrors& face);
    void addMissed() { ++missed_; }

    std::size_t faces() const { return twoPoints_.size() + missed_; }
    std::size_t missed() const { return missed_; }
    std::size_t shifted() const { return shifted_; }

    /** All 0 when there are no faces. */
    struct Summary {
        double median = 0;
        double mean = 0;
        double ninetieth = 0;
    };
    Summary twoPoints() const;
    Summary againstFive() const;
    Summary fivePoints() const;

    nlohmann::ordered_json toJson() const;

private:
    std::size_t missed_ = 0;
    std::size_t shifted_ = 0;
    std::vector<double> twoPoints_;
    std::vector<double> againstFive_;
    std::vector<double> fivePoints_;
};

} // namespace veldan::eval

#endif
