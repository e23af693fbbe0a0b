// The detector's first stage: image pyramid, proposal network, anchors.

#include "detect/pyramid.hpp"
#include "detect/workspace.hpp"

#include <veldan/mtcnn.hpp>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace {

using veldan::StageTimer;
using veldan::StageTimes;

constexpr float proposalOverlap = 0.7F;

} // namespace

std::vector<FaceInfo> MTCNN::ProposalNet(const cv::Mat& img, int minSize, float threshold, float factor) {
    totalBoxes.clear();
    if (!veldan::isImage(img) || minSize <= 0 || !(factor > 0 && factor < 1) || pnet.empty())
        return {};

    const std::vector<float> scales =
        veldan::pyramidScales({anchorNum, anchorScale, cellSize}, img.size(), minSize, factor);
    const std::vector<int> visited = veldan::visitedLevels(static_cast<int>(scales.size()));
    for (std::size_t position = 0; position < visited.size(); ++position) {
        const float scale = scales[static_cast<std::size_t>(visited[position])];
        const cv::Size size = veldan::levelSize(img.size(), scale);
        cv::Mat blob = workspace->blobFor(1, size);
        {
            const StageTimer timer(workspace->times, &StageTimes::pyramid);
            cv::resize(img, workspace->levelImage, size, 1.0, 0, cv::INTER_LINEAR);
            veldan::writePlanes(workspace->levelImage, pixelMean, pixelScale, blob.ptr<float>());
        }
        veldan::SteadyNetwork& network = workspace->level(position);
        {
            const StageTimer timer(workspace->times, &StageTimes::proposalNet);
            network.run(blob, veldan::proposalOutputs);
        }
        {
            const StageTimer timer(workspace->times, &StageTimes::decoding);
            softmax_in_anchor(network.outputs[0]);
            GenerateBBox(&network.outputs[0], &network.outputs[1], scale, threshold);
        }
        const std::vector<FaceInfo> survivors = NMS(candidateBoxes, proposalOverlap, 'u');
        totalBoxes.insert(totalBoxes.end(), survivors.begin(), survivors.end());
    }
    // Regression comes last: both suppressions judge the anchors as they stand.
    std::vector<FaceInfo> proposals = NMS(totalBoxes, proposalOverlap, 'u');
    BBoxRegression_rpn(proposals);
    return proposals;
}

void MTCNN::GenerateBBox(cv::Mat* score, cv::Mat* location, float scale, float threshold) {
    candidateBoxes.clear();
    if (score == nullptr || location == nullptr)
        return;
    CV_Assert(score->dims == 4 && score->size[0] == 1 && score->size[1] == 2 * anchorNum && score->type() == CV_32F &&
              score->isContinuous());
    CV_Assert(location->dims == 4 && location->size[0] == 1 && location->size[1] == 4 * anchorNum &&
              location->size[2] == score->size[2] && location->size[3] == score->size[3] &&
              location->type() == CV_32F && location->isContinuous());
    const int columns = score->size[3];
    const int cells = score->size[2] * columns;
    const auto largest = static_cast<float>(cellSize);
    for (int anchor = 0; anchor < anchorNum; ++anchor) {
        const auto size = static_cast<float>(std::pow(static_cast<double>(anchorScale), anchor));
        const float nearEdge = largest * ((1 - size) / 2);
        const float farEdge = largest * ((size + 1) / 2);
        const auto* probability = score->ptr<float>(0, 2 * anchor + 1);
        const auto* regression = location->ptr<float>(0, 4 * anchor);
        for (int cell = 0; cell < cells; ++cell) {
            if (!(threshold <= probability[cell]))
                continue;
            const int row = cell / columns;
            const float x = anchorStride * static_cast<float>(cell - columns * row);
            const float y = anchorStride * static_cast<float>(row);
            FaceInfo box{};
            box.x1 = (nearEdge + x) / scale;
            box.y1 = (nearEdge + y) / scale;
            box.x2 = (farEdge + x) / scale;
            box.y2 = (farEdge + y) / scale;
            for (int k = 0; k < 4; ++k)
                box.regression[k] = regression[static_cast<std::ptrdiff_t>(k) * cells + cell];
            box.score = probability[cell];
            candidateBoxes.push_back(box);
        }
    }
}

void MTCNN::softmax_in_anchor(cv::Mat& score) {
    CV_Assert(score.dims == 4 && score.size[0] == 1 && score.size[1] == 2 * anchorNum && score.type() == CV_32F &&
              score.isContinuous());
    const int cells = score.size[2] * score.size[3];
    for (int anchor = 0; anchor < anchorNum; ++anchor) {
        auto* background = score.ptr<float>(0, 2 * anchor);
        auto* face = score.ptr<float>(0, 2 * anchor + 1);
        // exp(0) is exactly 1, and one of the two differences is 0: one exponential a cell instead of two.
        const auto exponential = [](float value) { return value == 0 ? 1.0F : std::exp(value); };
        for (int cell = 0; cell < cells; ++cell) {
            const float top = std::max(background[cell], face[cell]);
            const float faceTerm = exponential(face[cell] - top);
            const float p = faceTerm / (faceTerm + exponential(background[cell] - top));
            background[cell] = 1 - p;
            face[cell] = p;
        }
    }
}

void MTCNN::BBoxRegression_rpn(std::vector<FaceInfo>& boxes) {
    for (FaceInfo& box : boxes) {
        const float w = box.x2 - box.x1 + 1;
        const float h = box.y2 - box.y1 + 1;
        const float nw = std::exp(sizeVariance[0] * box.regression[2]) * w;
        const float nh = std::exp(sizeVariance[1] * box.regression[3]) * h;
        const float dx = centerVariance[0] * box.regression[0] * w;
        const float dy = centerVariance[1] * box.regression[1] * h;
        box.x1 += dx - (nw - w) / 2;
        box.y1 += dy - (nh - h) / 2;
        box.x2 += (nw - w) / 2 + dx;
        box.y2 += (nh - h) / 2 + dy;
    }
}
