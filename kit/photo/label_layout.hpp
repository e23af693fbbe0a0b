#ifndef VELDAN_KIT_PHOTO_LABEL_LAYOUT_HPP
#define VELDAN_KIT_PHOTO_LABEL_LAYOUT_HPP

#include <vector>

namespace veldan::kit {

/** A rectangle of pixels; right and bottom are exclusive. */
struct Region {
    int left = 0;
    int top = 0;
    int right = 0;
    int bottom = 0;

    int width() const { return right - left; }
    int height() const { return bottom - top; }
};

/**
 * Where a label of that size goes: beside its face and inside the picture, where it covers as little as possible of
 * labels, other faces and its own face, in this order of importance.
 * @param faces   the boxes of all faces
 * @param own     the index of the label's face in them
 * @param labels  what is already placed
 * @param gap     pixels between the box and its label
 */
Region placeLabel(int width, int height, const Region& picture, const std::vector<Region>& faces, std::size_t own,
                  const std::vector<Region>& labels, int gap);

} // namespace veldan::kit

#endif
