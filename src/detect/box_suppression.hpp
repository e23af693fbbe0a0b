#ifndef VELDAN_DETECT_BOX_SUPPRESSION_HPP
#define VELDAN_DETECT_BOX_SUPPRESSION_HPP

#include <veldan/mtcnn.hpp>

#include <cstdint>
#include <vector>

namespace veldan {

// The greedy suppression of MTCNN::NMS(). Keeps its scratch from call to call.
//
// The definition compares each surviving box with every box after it. Here each box is compared with the survivors
// before it instead, and only with those in its neighbourhood: a grid over the image lists, for each cell, the
// survivors that cover it. Two boxes that overlap at all share a cell, also after rounding (see Axis), so the result is
// the same, at a cost that grows with the number of boxes and not with its square.
class BoxSuppression {
public:
    // Sorts boxes by descending score, equal scores in their order, and returns those that survive.
    std::vector<FaceInfo> run(std::vector<FaceInfo>& boxes, float threshold, char mode);

private:
    struct Ranked {
        float score;
        std::uint32_t index;
    };
    struct Survivor {
        float x1, y1, x2, y2, area;
    };
    struct Link {
        std::int32_t survivor;
        std::int32_t next;
    };

    // Maps a coordinate to a cell along one axis. Subtracting, multiplying and clamping are all monotonic in single
    // precision, so a larger coordinate never comes to a smaller cell. A box covers the cells from its first edge to
    // its last edge + 1. When two boxes overlap, min(x2, x2') - max(x1, x1') is above -1 in single precision, hence
    // also exactly; so either box's first edge is at most the other's last edge + 1, and the two ranges of cells meet.
    struct Axis {
        float origin = 0;
        float cellsPerPixel = 0;
        int cellCount = 1;

        void fit(float low, float high, float cellSide, int maxCells);
        int cell(float coordinate) const;
    };

    void sortByScore(std::vector<FaceInfo>& boxes);
    void fitGrid(const std::vector<FaceInfo>& boxes);
    template <class Overlap>
    std::vector<FaceInfo> suppress(const std::vector<FaceInfo>& boxes, float threshold, Overlap overlap);

    std::vector<Ranked> ranking;
    std::vector<FaceInfo> sorted;
    std::vector<Survivor> survivors;
    std::vector<Link> links;
    std::vector<std::int32_t> firstLink; // for each cell, -1 when it has none
    Axis columns;
    Axis rows;
};

} // namespace veldan

#endif
