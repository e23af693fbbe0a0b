#include "annotate.hpp"

#include <veldan/image_tool.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

namespace veldan::cli {

namespace {

// The library's frames are always 8 pixels thick, its points 3 pixels wide and its letters one pixel thin. On a photo
// of 2400 pixels a frame of 8 looks right; on smaller ones it would cover the face. So the marks are drawn on parts of
// the photo that are enlarged before and averaged back afterwards, which also makes their edges smooth.
constexpr int frameThickness = 8;
constexpr int pleasantSide = 2400;
constexpr int maxEnlargement = 4;
constexpr int capitalHeight = 21; // of the library's letters at scale 1
constexpr int digitWidth = 20;

struct Region {
    int left;
    int top;
    int right; // exclusive
    int bottom;
};

Region clipped(Region region, const Photo& photo) {
    return {std::clamp(region.left, 0, photo.width), std::clamp(region.top, 0, photo.height),
            std::clamp(region.right, 0, photo.width), std::clamp(region.bottom, 0, photo.height)};
}

/** A part of the photo, enlarged by repeating its pixels. Where nothing is drawn, merging gives the photo's own bytes.
 */
class EnlargedPart {
public:
    EnlargedPart(Photo& photo, const Region& wanted, int enlargement)
        : photo_(photo), region_(clipped(wanted, photo)), enlargement_(enlargement),
          width_((region_.right - region_.left) * enlargement), height_((region_.bottom - region_.top) * enlargement),
          pixels_(static_cast<std::size_t>(std::max(width_, 0)) * static_cast<std::size_t>(std::max(height_, 0)) * 3) {
        for (int y = 0; y < height_; ++y) {
            for (int x = 0; x < width_; ++x)
                std::copy_n(source(x / enlargement_, y / enlargement_), 3, pixel(x, y));
        }
    }

    bool empty() const { return pixels_.empty(); }
    unsigned char* pixels() { return pixels_.data(); }
    int width() const { return width_; }
    int height() const { return height_; }

    /** Where the middle of the photo's pixel column x, or row y, lies on the enlarged part. */
    int toPartX(int x) const { return (x - region_.left) * enlargement_ + enlargement_ / 2; }
    int toPartY(int y) const { return (y - region_.top) * enlargement_ + enlargement_ / 2; }

    void merge() {
        const int area = enlargement_ * enlargement_;
        for (int y = 0; y < height_ / enlargement_; ++y) {
            for (int x = 0; x < width_ / enlargement_; ++x) {
                for (int channel = 0; channel < 3; ++channel) {
                    int sum = area / 2;
                    for (int dy = 0; dy < enlargement_; ++dy) {
                        for (int dx = 0; dx < enlargement_; ++dx)
                            sum += pixel(x * enlargement_ + dx, y * enlargement_ + dy)[channel];
                    }
                    source(x, y)[channel] = static_cast<unsigned char>(sum / area);
                }
            }
        }
    }

private:
    static std::size_t offset(int x, int y, int width) {
        return (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)) * 3;
    }
    unsigned char* pixel(int x, int y) { return pixels_.data() + offset(x, y, width_); }
    unsigned char* source(int x, int y) {
        return photo_.pixels.data() + offset(region_.left + x, region_.top + y, photo_.width);
    }

    Photo& photo_;
    Region region_;
    int enlargement_;
    int width_;
    int height_;
    std::vector<unsigned char> pixels_;
};

void drawBox(Photo& photo, const VDFACEINFOEX& face, int enlargement) {
    constexpr int margin = frameThickness;
    EnlargedPart part(
        photo, {face.x - margin, face.y - margin, face.x + face.width + 1 + margin, face.y + face.height + 1 + margin},
        enlargement);
    if (part.empty())
        return;
    int rect[4] = {part.toPartX(face.x), part.toPartY(face.y), face.width * enlargement, face.height * enlargement};
    ImageDrawRect(part.pixels(), part.width(), part.height(), rect, VD_COLOUR_GREEN);
    part.merge();
}

void drawPoints(Photo& photo, const VDFACEINFOEX& face, int enlargement) {
    // Dots that neither vanish on a large face nor hide the eyes of a small one.
    const int radius = std::clamp(face.eyeDistance * enlargement / 16, 4, 12);
    const int count = std::clamp(face.keyPointNum, 0, VELDAN_MAX_KEY_POINTS);
    for (int k = 0; k < count; ++k) {
        const int x = face.keyPointX[k];
        const int y = face.keyPointY[k];
        EnlargedPart part(photo, {x - radius, y - radius, x + radius + 1, y + radius + 1}, enlargement);
        if (part.empty())
            continue;
        std::vector<int> disc;
        const int reach = radius - 1; // each of the library's points adds one pixel around it
        for (int dy = -reach; dy <= reach; ++dy) {
            for (int dx = -reach; dx <= reach; ++dx) {
                if (dx * dx + dy * dy <= reach * reach) {
                    disc.push_back(part.toPartX(x) + dx);
                    disc.push_back(part.toPartY(y) + dy);
                }
            }
        }
        ImageDrawPoint(part.pixels(), part.width(), part.height(), disc.data(), static_cast<int>(disc.size() / 2),
                       VD_COLOUR_RED);
        part.merge();
    }
}

void drawNumber(Photo& photo, const VDFACEINFOEX& face, std::size_t number, int enlargement) {
    const std::string text = std::to_string(number);
    const int wantedHeight = std::max(10, std::max(photo.width, photo.height) / 50);
    const int fontScale = std::max(1, (wantedHeight * enlargement + capitalHeight / 2) / capitalHeight);
    const int pen = fontScale + 1; // letters are thickened by drawing them several times, a little shifted
    const int textHeight = (capitalHeight * fontScale + 2 * pen) / enlargement + 1;
    const int textWidth = (digitWidth * fontScale * static_cast<int>(text.size()) + 2 * pen) / enlargement + 1;
    const int gap = frameThickness / enlargement + 1;

    // Above the box, or inside its upper left corner where the photo ends above.
    const bool above = face.y - gap - textHeight >= 0;
    const int left = std::clamp(above ? face.x : face.x + gap, 0, std::max(0, photo.width - textWidth));
    const int bottom = above ? face.y - gap : face.y + gap + textHeight;
    EnlargedPart part(photo, {left, bottom - textHeight, left + textWidth, bottom + 1}, enlargement);
    if (part.empty())
        return;
    for (int dy = -pen; dy <= pen; ++dy) {
        for (int dx = -pen; dx <= pen; ++dx) {
            if (dx * dx + dy * dy <= pen * pen)
                ImageDrawText(part.pixels(), part.width(), part.height(), pen + dx, part.height() - pen + dy,
                              text.c_str(), fontScale, VD_COLOUR_GREEN);
        }
    }
    part.merge();
}

} // namespace

void annotate(Photo& photo, const std::vector<VDFACEINFOEX>& faces) {
    const int longSide = std::max({photo.width, photo.height, 1});
    const int enlargement = std::clamp((pleasantSide + longSide / 2) / longSide, 1, maxEnlargement);
    // Boxes first, so that no frame crosses out a neighbour's points or number.
    for (const VDFACEINFOEX& face : faces)
        drawBox(photo, face, enlargement);
    for (std::size_t i = 0; i < faces.size(); ++i) {
        drawPoints(photo, faces[i], enlargement);
        if (faces.size() > 1)
            drawNumber(photo, faces[i], i + 1, enlargement);
    }
}

} // namespace veldan::cli
