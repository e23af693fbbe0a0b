#ifndef VELDAN_BENCH_PLAIN_SUPPRESSION_HPP
#define VELDAN_BENCH_PLAIN_SUPPRESSION_HPP

#include <veldan/mtcnn.hpp>

#include <algorithm>
#include <vector>

// Suppression as it is defined: every survivor against every box after it. What the grid of veldan::BoxSuppression is
// measured against.
inline std::vector<FaceInfo> plainSuppression(std::vector<FaceInfo>& boxes, float threshold) {
    std::sort(boxes.begin(), boxes.end(), CompareBBox);
    std::vector<char> suppressed(boxes.size());
    std::vector<FaceInfo> kept;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (suppressed[i])
            continue;
        const FaceInfo& a = boxes[i];
        kept.push_back(a);
        const float area = (a.x2 - a.x1 + 1) * (a.y2 - a.y1 + 1);
        for (std::size_t j = i + 1; j < boxes.size(); ++j) {
            if (suppressed[j])
                continue;
            const FaceInfo& b = boxes[j];
            const float w = std::min(a.x2, b.x2) - std::max(a.x1, b.x1) + 1;
            const float h = std::min(a.y2, b.y2) - std::max(a.y1, b.y1) + 1;
            if (w <= 0 || h <= 0)
                continue;
            const float common = w * h;
            if (common / (area + (b.x2 - b.x1 + 1) * (b.y2 - b.y1 + 1) - common) > threshold)
                suppressed[j] = 1;
        }
    }
    return kept;
}

#endif
