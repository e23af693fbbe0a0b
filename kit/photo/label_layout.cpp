#include "photo/label_layout.hpp"

#include <algorithm>
#include <array>
#include <cstdint>

namespace veldan::kit {

namespace {

// Text on text is unreadable, text on a neighbour hides what its own label speaks of; on its own face it hides least.
constexpr std::int64_t labelWeight = 16;
constexpr std::int64_t neighbourWeight = 4;
constexpr std::int64_t ownWeight = 1;

std::int64_t overlap(const Region& a, const Region& b) {
    const int width = std::min(a.right, b.right) - std::max(a.left, b.left);
    const int height = std::min(a.bottom, b.bottom) - std::max(a.top, b.top);
    return width > 0 && height > 0 ? static_cast<std::int64_t>(width) * height : 0;
}

} // namespace

Region placeLabel(int width, int height, const Region& picture, const std::vector<Region>& faces, std::size_t own,
                  const std::vector<Region>& labels, int gap) {
    const Region& face = faces[own];
    const int below = face.bottom + gap;
    const int above = face.top - gap - height;
    const int toTheRight = face.right + gap;
    const int toTheLeft = face.left - gap - width;
    const int centred = face.left + (face.width() - width) / 2;
    const int middle = face.top + (face.height() - height) / 2;
    struct Corner {
        int left;
        int top;
    };
    // In order of preference.
    const std::array<Corner, 14> corners = {{{face.left, below},
                                             {face.left, above},
                                             {toTheRight, face.top},
                                             {toTheLeft, face.top},
                                             {face.right - width, below},
                                             {face.right - width, above},
                                             {centred, below},
                                             {centred, above},
                                             {toTheRight, face.bottom - height},
                                             {toTheLeft, face.bottom - height},
                                             {toTheRight, middle},
                                             {toTheLeft, middle},
                                             {face.left + gap, face.bottom - gap - height},
                                             {face.left + gap, face.top + gap}}};
    Region best;
    std::int64_t least = -1;
    for (const Corner& corner : corners) {
        const int left = std::max(picture.left, std::min(corner.left, picture.right - width));
        const int top = std::max(picture.top, std::min(corner.top, picture.bottom - height));
        const Region candidate{left, top, left + width, top + height};
        std::int64_t cost = 0;
        for (std::size_t i = 0; i < faces.size(); ++i)
            cost += overlap(candidate, faces[i]) * (i == own ? ownWeight : neighbourWeight);
        for (const Region& label : labels)
            cost += overlap(candidate, label) * labelWeight;
        if (least < 0 || cost < least) {
            least = cost;
            best = candidate;
        }
    }
    return best;
}

} // namespace veldan::kit
