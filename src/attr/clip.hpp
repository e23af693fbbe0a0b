#ifndef VELDAN_ATTR_CLIP_HPP
#define VELDAN_ATTR_CLIP_HPP

#include <opencv2/core.hpp>

#include <algorithm>
#include <cstdint>

namespace veldan {

// The part of a box that lies inside of an image; the empty rectangle when there is none. Wide integers: a caller's box
// may lie anywhere.
inline cv::Rect clip(std::int64_t x, std::int64_t y, std::int64_t width, std::int64_t height, cv::Size image) {
    const std::int64_t left = std::max<std::int64_t>(x, 0);
    const std::int64_t top = std::max<std::int64_t>(y, 0);
    const std::int64_t right = std::min<std::int64_t>(x + width, image.width);
    const std::int64_t bottom = std::min<std::int64_t>(y + height, image.height);
    if (right <= left || bottom <= top)
        return {};
    return {static_cast<int>(left), static_cast<int>(top), static_cast<int>(right - left),
            static_cast<int>(bottom - top)};
}

} // namespace veldan

#endif
