#include "detect/box_suppression.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace veldan {

void BoxSuppression::Axis::fit(float low, float high, float cellSide, int maxCells) {
    const float extent = std::min(high - low, std::numeric_limits<float>::max());
    const float cells = std::min(extent / cellSide, static_cast<float>(maxCells));
    origin = low;
    if (cells >= 2) { // false, too, when a side or the extent is 0 and the quotient not a number
        cellCount = static_cast<int>(cells);
        cellsPerPixel = static_cast<float>(cellCount) / extent;
    } else {
        cellCount = 1;
        cellsPerPixel = 0;
    }
}

int BoxSuppression::Axis::cell(float coordinate) const {
    const float position = (coordinate - origin) * cellsPerPixel;
    if (!(position > 0))
        return 0;
    const int last = cellCount - 1;
    return position < static_cast<float>(last) ? static_cast<int>(position) : last;
}

void BoxSuppression::sortByScore(std::vector<FaceInfo>& boxes) {
    // Sorts scores with indices, since a box is 116 bytes long. The index settles equal scores, so that the order does
    // not depend on the sorting algorithm; a score that is not a number counts as the lowest, so that there is an
    // order.
    ranking.resize(boxes.size());
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        const float score = boxes[i].score;
        ranking[i] = {std::isnan(score) ? -std::numeric_limits<float>::infinity() : score,
                      static_cast<std::uint32_t>(i)};
    }
    const auto precedes = [](const Ranked& a, const Ranked& b) {
        return a.score > b.score || (a.score == b.score && a.index < b.index);
    };
    if (std::is_sorted(ranking.begin(), ranking.end(), precedes))
        return;
    std::sort(ranking.begin(), ranking.end(), precedes);
    sorted.resize(boxes.size());
    for (std::size_t i = 0; i < boxes.size(); ++i)
        sorted[i] = boxes[ranking[i].index];
    boxes.swap(sorted);
}

void BoxSuppression::fitGrid(const std::vector<FaceInfo>& boxes) {
    float left = std::numeric_limits<float>::max();
    float top = left;
    float right = -left;
    float bottom = -left;
    double sides = 0;
    int count = 0;
    for (const FaceInfo& box : boxes) {
        if (!std::isfinite(box.x1) || !std::isfinite(box.y1) || !std::isfinite(box.x2) || !std::isfinite(box.y2))
            continue;
        left = std::min(left, box.x1);
        top = std::min(top, box.y1);
        right = std::max(right, box.x2);
        bottom = std::max(bottom, box.y2);
        sides += std::max({box.x2 - box.x1, box.y2 - box.y1, 1.0F});
        ++count;
    }
    // Cells of about the size of a box: smaller ones list each box many times, larger ones hold many strangers. Few
    // boxes get few cells, so that clearing the cells costs no more than the boxes do.
    const float cellSide = count > 0 ? static_cast<float>(sides / count) : 1;
    const int maxCells = static_cast<int>(std::min<std::size_t>(128, 1 + boxes.size() / 8));
    columns.fit(left, right, cellSide, maxCells);
    rows.fit(top, bottom, cellSide, maxCells);
}

template <class Overlap>
std::vector<FaceInfo> BoxSuppression::suppress(const std::vector<FaceInfo>& boxes, float threshold, Overlap overlap) {
    fitGrid(boxes);
    const auto gridWidth = static_cast<std::size_t>(columns.cellCount);
    const auto gridHeight = static_cast<std::size_t>(rows.cellCount);
    firstLink.assign(gridWidth * gridHeight, -1);
    const auto cellAt = [&](int x, int y) -> std::int32_t& {
        return firstLink[static_cast<std::size_t>(y) * gridWidth + static_cast<std::size_t>(x)];
    };
    links.clear();
    survivors.clear();

    std::vector<FaceInfo> kept;
    for (const FaceInfo& box : boxes) {
        if (std::isnan(box.x1) || std::isnan(box.y1) || std::isnan(box.x2) || std::isnan(box.y2)) {
            kept.push_back(box);
            continue;
        }
        const float area = (box.x2 - box.x1 + 1) * (box.y2 - box.y1 + 1);
        const int left = columns.cell(box.x1);
        const int right = columns.cell(box.x2 + 1);
        const int top = rows.cell(box.y1);
        const int bottom = rows.cell(box.y2 + 1);

        bool suppressed = false;
        for (int y = top; y <= bottom && !suppressed; ++y) {
            for (int x = left; x <= right && !suppressed; ++x) {
                for (std::int32_t link = cellAt(x, y); link >= 0;) {
                    const Link& entry = links[static_cast<std::size_t>(link)];
                    const Survivor& other = survivors[static_cast<std::size_t>(entry.survivor)];
                    link = entry.next;
                    const float w = std::min(other.x2, box.x2) - std::max(other.x1, box.x1) + 1;
                    const float h = std::min(other.y2, box.y2) - std::max(other.y1, box.y1) + 1;
                    if (w > 0 && h > 0 && overlap(w * h, other.area, area) > threshold) {
                        suppressed = true;
                        break;
                    }
                }
            }
        }
        if (suppressed)
            continue;

        kept.push_back(box);
        const auto survivor = static_cast<std::int32_t>(survivors.size());
        survivors.push_back({box.x1, box.y1, box.x2, box.y2, area});
        for (int y = top; y <= bottom; ++y) {
            for (int x = left; x <= right; ++x) {
                std::int32_t& first = cellAt(x, y);
                links.push_back({survivor, first});
                first = static_cast<std::int32_t>(links.size()) - 1;
            }
        }
    }
    return kept;
}

std::vector<FaceInfo> BoxSuppression::run(std::vector<FaceInfo>& boxes, float threshold, char mode) {
    sortByScore(boxes);
    if (mode == 'u')
        return suppress(boxes, threshold, [](float common, float a, float b) { return common / (a + b - common); });
    if (mode == 'm')
        return suppress(boxes, threshold, [](float common, float a, float b) { return common / std::min(a, b); });
    return boxes;
}

} // namespace veldan
