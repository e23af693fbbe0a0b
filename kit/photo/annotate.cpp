#include "photo/annotate.hpp"

#include "photo/label_layout.hpp"

#include <veldan/image_tool.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string>

namespace veldan::kit {

namespace {

// On a photo of 2400 pixels a frame of 8 looks right; on smaller ones it would cover the face, on larger ones no
// thicker one is needed.
constexpr int pleasantSide = 2400;
constexpr int thickestFrame = 8;
constexpr int thinnestFrame = 2;

constexpr int font = cv::FONT_HERSHEY_SIMPLEX;
constexpr int capitalHeight = 21; // of the font at scale 1

// Pictures smaller than this are enlarged before words are written into them.
constexpr int roomySide = 1200;
constexpr int maxFactor = 4;

const cv::Scalar green(0, 255, 0);
const cv::Scalar red(0, 0, 255);
const cv::Scalar blue(255, 0, 0);

int longSideOf(const cv::Mat& canvas) {
    return std::max({canvas.cols, canvas.rows, 1});
}

int frameOf(const cv::Mat& canvas) {
    return std::clamp((thickestFrame * longSideOf(canvas) + pleasantSide / 2) / pleasantSide, thinnestFrame,
                      thickestFrame);
}

void drawPoints(cv::Mat& canvas, const VDFACEINFOEX& face, int first, int count, const cv::Scalar& colour) {
    // Dots that neither vanish on a large face nor hide the eyes of a small one, in sixteenths of a pixel.
    constexpr int fraction = 4;
    const int frame = frameOf(canvas);
    const int radius = std::clamp(face.eyeDistance, 8 * frame, 24 * frame);
    for (int k = first; k < first + count; ++k)
        cv::circle(canvas, cv::Point(face.keyPointX[k], face.keyPointY[k]) * (1 << fraction), radius, colour,
                   cv::FILLED, cv::LINE_AA, fraction);
}

/** Letters of a wanted height, and so many times thinner lines. */
struct Lettering {
    Lettering(int wantedHeight, int thinness)
        : scale(static_cast<double>(wantedHeight) / capitalHeight), thickness(std::max(1, wantedHeight / thinness)),
          height(sizeOf("A").height) {}

    cv::Size sizeOf(const std::string& text) const {
        int descent = 0;
        return cv::getTextSize(text, font, scale, thickness, &descent);
    }

    /** @param left, bottom  where the baseline begins */
    void write(cv::Mat& canvas, int left, int bottom, const std::string& text) const {
        cv::putText(canvas, text, {left, bottom}, font, scale, green, thickness, cv::LINE_AA);
    }

    double scale;
    int thickness;
    int height; // of capitals, in pixels
};

void drawNumber(cv::Mat& canvas, const VDFACEINFOEX& face, const std::string& text) {
    const Lettering lettering(std::max(10, longSideOf(canvas) / 50), 5); // no dark ground under it
    const int gap = frameOf(canvas) + 1;
    // Above the box, or inside its upper left corner where the photo ends above.
    const bool above = face.y - gap - lettering.height >= 0;
    const int left =
        std::clamp(above ? face.x : face.x + gap, 0, std::max(0, canvas.cols - lettering.sizeOf(text).width));
    lettering.write(canvas, left, above ? face.y - gap : face.y + gap + lettering.height, text);
}

/** Darkens what lies under words, so that they can be read on any ground. */
void drawPlate(cv::Mat& canvas, const Region& region) {
    cv::Mat plate =
        canvas(cv::Rect(region.left, region.top, region.width(), region.height()) & cv::Rect({}, canvas.size()));
    plate.convertTo(plate, -1, 0.2);
}

void drawWords(cv::Mat& canvas, const std::vector<Mark>& marks) {
    const Lettering lettering(std::max(11, longSideOf(canvas) / 100), 9);
    const int lineHeight = lettering.height * 5 / 3;
    const int margin = lettering.height / 3;
    const int frame = frameOf(canvas) / 2 + 1;
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
            width = std::max(width, lettering.sizeOf(line).width);
        const Region label = placeLabel(width + 2 * margin, static_cast<int>(lines.size()) * lineHeight + margin,
                                        {0, 0, canvas.cols, canvas.rows}, boxes, i, labels, 1);
        labels.push_back(label);
        drawPlate(canvas, label);
        int bottom = label.top + margin + lettering.height;
        for (const std::string& line : lines) {
            lettering.write(canvas, label.left + margin, bottom, line);
            bottom += lineHeight;
        }
    }
}

} // namespace

void annotate(Photo& photo, const std::vector<Mark>& marks) {
    cv::Mat canvas(photo.height, photo.width, CV_8UC3, photo.pixels.data());
    // Boxes first, so that no frame crosses out a neighbour's points or number.
    for (const Mark& mark : marks)
        cv::rectangle(canvas, {mark.face.x, mark.face.y},
                      {mark.face.x + mark.face.width, mark.face.y + mark.face.height}, green, frameOf(canvas),
                      cv::LINE_AA);
    for (std::size_t i = 0; i < marks.size(); ++i) {
        const VDFACEINFOEX& face = marks[i].face;
        drawPoints(canvas, face, 0, std::clamp(face.keyPointNum, 0, VELDAN_MAX_KEY_POINTS), red);
        if (marks[i].twoPoints)
            drawPoints(canvas, face, 5, 2, blue);
        if (marks.size() > 1 && marks[i].words.empty())
            drawNumber(canvas, face, std::to_string(i + 1));
    }
    drawWords(canvas, marks);
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
