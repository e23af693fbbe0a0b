#include "photo/annotate.hpp"

#include "photo/label_layout.hpp"

#include <veldan/image_tool.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

namespace veldan::kit {

namespace {

// The library's frames are always 8 pixels thick, its points 3 pixels wide and its letters one pixel thin. On a photo
// of 2400 pixels a frame of 8 looks right; on smaller ones it would cover the face. So the marks are drawn on parts of
// the photo that are enlarged before and averaged back afterwards, which also makes their edges smooth.
constexpr int frameThickness = 8;
constexpr int pleasantSide = 2400;
constexpr int maxEnlargement = 4;
constexpr int capitalHeight = 21; // of the library's letters at scale 1
constexpr int digitWidth = 20;
constexpr int letterWidth = 18; // of the letters in words, on average

// Pictures smaller than this are enlarged before words are written into them.
constexpr int roomySide = 1200;
constexpr int maxFactor = 4;

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

void drawPoints(Photo& photo, const VDFACEINFOEX& face, int first, int count, int colour, int enlargement) {
    // Dots that neither vanish on a large face nor hide the eyes of a small one.
    const int radius = std::clamp(face.eyeDistance * enlargement / 16, 4, 12);
    for (int k = first; k < first + count; ++k) {
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
                       colour);
        part.merge();
    }
}

/** How letters of a wanted height are drawn on enlarged parts. */
struct Lettering {
    Lettering(int wantedHeight, int enlargement_)
        : enlargement(enlargement_),
          fontScale(std::max(1, (wantedHeight * enlargement + capitalHeight / 2) / capitalHeight)), pen(fontScale + 1),
          height((capitalHeight * fontScale + 2 * pen) / enlargement + 1) {}

    int widthOf(const std::string& text, int characterWidth) const {
        return (characterWidth * fontScale * static_cast<int>(text.size()) + 2 * pen) / enlargement + 1;
    }

    int enlargement;
    int fontScale;
    int pen;    // letters are thickened by drawing them several times, a little shifted
    int height; // of capitals, in pixels of the photo
};

/** Writes into the region, whose bottom is the baseline; letters that reach below need room under it. */
void drawText(Photo& photo, const Region& region, int descent, const std::string& text, const Lettering& lettering,
              int colour) {
    EnlargedPart part(photo, {region.left, region.top, region.right, region.bottom + descent}, lettering.enlargement);
    if (part.empty())
        return;
    const int pen = lettering.pen;
    const int baseline = (region.bottom - region.top) * lettering.enlargement - pen;
    for (int dy = -pen; dy <= pen; ++dy) {
        for (int dx = -pen; dx <= pen; ++dx) {
            if (dx * dx + dy * dy <= pen * pen)
                ImageDrawText(part.pixels(), part.width(), part.height(), pen + dx, baseline + dy, text.c_str(),
                              lettering.fontScale, colour);
        }
    }
    part.merge();
}

void drawNumber(Photo& photo, const VDFACEINFOEX& face, const std::string& text, int enlargement) {
    const Lettering lettering(std::max(10, std::max(photo.width, photo.height) / 50), enlargement);
    const int width = lettering.widthOf(text, digitWidth);
    const int gap = frameThickness / enlargement + 1;

    // Above the box, or inside its upper left corner where the photo ends above.
    const bool above = face.y - gap - lettering.height >= 0;
    const int left = std::clamp(above ? face.x : face.x + gap, 0, std::max(0, photo.width - width));
    const int bottom = above ? face.y - gap : face.y + gap + lettering.height;
    drawText(photo, {left, bottom - lettering.height, left + width, bottom + 1}, 0, text, lettering, VD_COLOUR_GREEN);
}

/** Darkens what lies under words, so that they can be read on any ground. */
void drawPlate(Photo& photo, const Region& region) {
    const Region plate = clipped(region, photo);
    for (int y = plate.top; y < plate.bottom; ++y) {
        unsigned char* row =
            photo.pixels.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(photo.width) * 3;
        for (int i = plate.left * 3; i < plate.right * 3; ++i)
            row[i] = static_cast<unsigned char>(row[i] / 5);
    }
}

void drawWords(Photo& photo, const std::vector<Mark>& marks, int enlargement) {
    const Lettering lettering(std::max(10, std::max(photo.width, photo.height) / 110), enlargement);
    const int lineHeight = lettering.height * 3 / 2;
    const int margin = lettering.height / 3;
    const int frame = frameThickness / 2 / enlargement + 1;
    std::vector<Region> boxes;
    boxes.reserve(marks.size());
    for (const Mark& mark : marks)
        boxes.push_back({mark.face.x - frame, mark.face.y - frame, mark.face.x + mark.face.width + 1 + frame,
                         mark.face.y + mark.face.height + 1 + frame});
    std::vector<Region> labels;
    for (std::size_t i = 0; i < marks.size(); ++i) {
        std::vector<std::string> lines = marks[i].words;
        if (lines.empty())
            continue;
        if (marks.size() > 1)
            lines.front() = std::to_string(i + 1) + ": " + lines.front();
        int width = 0;
        for (const std::string& line : lines)
            width = std::max(width, lettering.widthOf(line, letterWidth));
        const Region label = placeLabel(width + 2 * margin, static_cast<int>(lines.size()) * lineHeight + margin,
                                        {0, 0, photo.width, photo.height}, boxes, i, labels, 1);
        labels.push_back(label);
        drawPlate(photo, label);
        int top = label.top + margin;
        for (const std::string& line : lines) {
            drawText(photo, {label.left + margin, top, label.right, top + lettering.height},
                     lineHeight - lettering.height, line, lettering, VD_COLOUR_GREEN);
            top += lineHeight;
        }
    }
}

} // namespace

void annotate(Photo& photo, const std::vector<Mark>& marks) {
    const int longSide = std::max({photo.width, photo.height, 1});
    const int enlargement = std::clamp((pleasantSide + longSide / 2) / longSide, 1, maxEnlargement);
    // Boxes first, so that no frame crosses out a neighbour's points or number.
    for (const Mark& mark : marks)
        drawBox(photo, mark.face, enlargement);
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const VDFACEINFOEX& face = marks[i].face;
        drawPoints(photo, face, 0, std::clamp(face.keyPointNum, 0, VELDAN_MAX_KEY_POINTS), VD_COLOUR_RED, enlargement);
        if (marks[i].twoPoints)
            drawPoints(photo, face, 5, 2, VD_COLOUR_BLUE, enlargement);
        if (marks.size() > 1 && marks[i].words.empty())
            drawNumber(photo, face, std::to_string(i + 1), enlargement);
    }
    drawWords(photo, marks, enlargement);
}

Photo annotatedCopy(Photo& photo, std::vector<Mark> marks) {
    const int longSide = std::max({photo.width, photo.height, 1});
    const int factor = std::clamp((roomySide + longSide / 2) / longSide, 1, maxFactor);
    Photo picture = enlarged(photo, factor);
    for (Mark& mark : marks)
        mark.face = enlarged(mark.face, factor);
    annotate(picture, marks);
    return picture;
}

Photo enlarged(Photo& photo, int factor) {
    Photo result{photo.width * factor, photo.height * factor, {}};
    result.pixels.resize(photo.pixels.size() * static_cast<std::size_t>(factor) * static_cast<std::size_t>(factor));
    ImageZoom(photo.pixels.data(), photo.width, photo.height, 3, result.width, result.height, result.pixels.data());
    return result;
}

VDFACEINFOEX enlarged(const VDFACEINFOEX& face, int factor) {
    VDFACEINFOEX result = face;
    for (std::int32_t* word : {&result.x, &result.y, &result.width, &result.height, &result.eyeDistance})
        *word *= factor;
    for (int k = 0; k < 7; ++k) {
        // The middle of a pixel becomes the middle of the pixels that it turns into.
        result.keyPointX[k] = face.keyPointX[k] * factor + factor / 2;
        result.keyPointY[k] = face.keyPointY[k] * factor + factor / 2;
    }
    return result;
}

} // namespace veldan::kit
