// The detector's second and third stage: crops of the boxes through the refinement and the output network.

#include "detect/workspace.hpp"

#include <veldan/mtcnn.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <vector>

namespace {

using veldan::StageTimer;
using veldan::StageTimes;

bool areFinite(const float* values, int count) {
    return std::all_of(values, values + count, [](float value) { return std::isfinite(value); });
}

// What a network says of a box, row `row` of its outputs: probability, regression and, of the output network,
// landmarks. Whether the box survives.
bool survives(const FaceInfo& box, const std::vector<cv::Mat>& outputs, int row, float threshold, FaceInfo& survivor) {
    const float score = outputs[0].ptr<float>(row)[1];
    const auto* regression = outputs[1].ptr<float>(row);
    if (!(threshold <= score) || !areFinite(regression, 4))
        return false;
    survivor = FaceInfo{};
    survivor.x1 = box.x1;
    survivor.y1 = box.y1;
    survivor.x2 = box.x2;
    survivor.y2 = box.y2;
    survivor.score = score;
    std::copy_n(regression, 4, survivor.regression);
    if (outputs.size() < 3)
        return true;
    const auto* landmark = outputs[2].ptr<float>(row);
    if (!areFinite(landmark, 10))
        return false;
    const float w = box.x2 - box.x1 + 1;
    const float h = box.y2 - box.y1 + 1;
    for (int k = 0; k < 5; ++k) {
        survivor.landmark[2 * k] = landmark[2 * k] * w + box.x1;
        survivor.landmark[2 * k + 1] = landmark[2 * k + 1] * h + box.y1;
    }
    return true;
}

void checkShapes(const std::vector<cv::Mat>& outputs, int stage, int rows) {
    const int values[] = {2, 4, 10};
    CV_Assert(outputs.size() == (stage == 3 ? 3U : 2U));
    for (std::size_t i = 0; i < outputs.size(); ++i)
        CV_Assert(outputs[i].rows == rows && outputs[i].cols == values[i]);
}

} // namespace

std::vector<FaceInfo> MTCNN::NextStage(const cv::Mat& img, std::vector<FaceInfo>& boxes, int width, int height,
                                       int stage, float threshold) {
    if ((stage != 2 && stage != 3) || boxes.empty() || width <= 0 || height <= 0 || !veldan::isImage(img) ||
        (stage == 2 ? rnet : onet).empty())
        return {};

    std::vector<const FaceInfo*>& cropped = workspace->cropped;
    cropped.clear();
    for (const FaceInfo& box : boxes)
        if (veldan::FaceCropper::hasCrop(img, box))
            cropped.push_back(&box);

    const cv::Size size(width, height);
    veldan::BatchPasses& passes = stage == 2 ? workspace->refinement : workspace->output;
    const std::size_t count = cropped.size();
    std::vector<FaceInfo> survivors;
    for (std::size_t begin = 0, end = 0; begin < count; begin = end) {
        const int rows = passes.passSize(static_cast<int>(count), static_cast<int>(count - begin));
        end = std::min(begin + static_cast<std::size_t>(rows), count);
        // The crops go straight into the blob.
        cv::Mat blob = workspace->blobFor(rows, size);
        {
            const StageTimer timer(workspace->times,
                                   stage == 2 ? &StageTimes::refinementCrops : &StageTimes::outputCrops);
            for (std::size_t i = begin; i < end; ++i)
                veldan::writePlanes(workspace->cropper.crop(img, *cropped[i], size), pixelMean, pixelScale,
                                    blob.ptr<float>(static_cast<int>(i - begin)));
        }
        const std::vector<cv::Mat>* outputs = nullptr;
        {
            const StageTimer timer(workspace->times, stage == 2 ? &StageTimes::refinementNet : &StageTimes::outputNet);
            outputs = &passes.run(blob);
        }
        checkShapes(*outputs, stage, rows);
        FaceInfo survivor;
        for (std::size_t i = begin; i < end; ++i)
            if (survives(*cropped[i], *outputs, static_cast<int>(i - begin), threshold, survivor))
                survivors.push_back(survivor);
    }
    return survivors;
}

void MTCNN::BBoxRegression(std::vector<FaceInfo>& boxes) {
    for (FaceInfo& box : boxes) {
        const float w = box.x2 - box.x1 + 1;
        const float h = box.y2 - box.y1 + 1;
        box.x1 += box.regression[0] * w;
        box.y1 += box.regression[1] * h;
        box.x2 += box.regression[2] * w;
        box.y2 += box.regression[3] * h;
    }
}

void MTCNN::BBoxPad(std::vector<FaceInfo>& boxes, int width, int height) {
    const auto right = static_cast<float>(width - 1);
    const auto bottom = static_cast<float>(height - 1);
    for (FaceInfo& box : boxes) {
        box.x1 = std::round(std::max(box.x1, 0.0F));
        box.y1 = std::round(std::max(box.y1, 0.0F));
        box.x2 = std::round(std::min(box.x2, right));
        box.y2 = std::round(std::min(box.y2, bottom));
    }
}

void MTCNN::BBoxPadSquare(std::vector<FaceInfo>& boxes, int /*width*/, int /*height*/) {
    for (FaceInfo& box : boxes) {
        const float w = box.x2 - box.x1 + 1;
        const float h = box.y2 - box.y1 + 1;
        const float side = std::max(w, h);
        box.x1 = std::round((w - side) * 0.5F + box.x1);
        box.y1 = std::round((h - side) * 0.5F + box.y1);
        box.x2 = box.x1 + std::round(side - 1);
        box.y2 = box.y1 + std::round(side - 1);
    }
}
