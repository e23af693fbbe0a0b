#ifndef VELDAN_DETECT_PYRAMID_HPP
#define VELDAN_DETECT_PYRAMID_HPP

#include <opencv2/core.hpp>

#include <vector>

namespace veldan {

// The anchors that the proposal network scores at each output cell, as far as they decide the pyramid.
struct AnchorSet {
    int number;  // anchors per cell
    float ratio; // size ratio of successive anchors
    int largest; // side of the largest anchor in network pixels, also the least side of a level
};

// Scales of the levels, largest first, that an image of this size has. Needs minSize > 0 and 0 < factor < 1.
std::vector<float> pyramidScales(const AnchorSet& anchors, cv::Size image, int minSize, float factor);

// Which of so many levels are scored: every third, since the anchors of one level span three steps, and the last.
std::vector<int> visitedLevels(int levelCount);

// Size of the level in pixels.
cv::Size levelSize(cv::Size image, float scale);

} // namespace veldan

#endif
