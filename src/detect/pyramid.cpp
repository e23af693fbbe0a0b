#include "detect/pyramid.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace veldan {

std::vector<float> pyramidScales(const AnchorSet& anchors, cv::Size image, int minSize, float factor) {
    // The first scale brings a face of minSize pixels to the size of the smallest anchor. Computed in double precision,
    // everything after it in single precision.
    float scale = static_cast<float>(anchors.largest *
                                     std::pow(static_cast<double>(anchors.ratio), anchors.number - 1) / minSize);
    float shorterSide = static_cast<float>(std::min(image.width, image.height)) * scale;
    std::vector<float> scales;
    while (shorterSide >= static_cast<float>(anchors.largest)) {
        scales.push_back(scale);
        shorterSide *= factor;
        scale *= factor;
    }
    return scales;
}

std::vector<int> visitedLevels(int levelCount) {
    std::vector<int> visited;
    for (int level = 0; level < levelCount; level += 3)
        visited.push_back(level);
    if (levelCount > 0 && visited.back() != levelCount - 1)
        visited.push_back(levelCount - 1);
    return visited;
}

cv::Size levelSize(cv::Size image, float scale) {
    // Held inside the range of int, for an image of two rows and a thousand million columns; OpenCV then says that it
    // has no memory for the level.
    const auto side = [scale](int pixels) {
        const double exact = std::ceil(static_cast<double>(scale * static_cast<float>(pixels)));
        return static_cast<int>(std::min(exact, static_cast<double>(std::numeric_limits<int>::max())));
    };
    return {side(image.width), side(image.height)};
}

} // namespace veldan
