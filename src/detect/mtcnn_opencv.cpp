#include "detect/pyramid.hpp"
#include "detect/workspace.hpp"
#include "engine/data_size.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"
#include "tool/image_buffer.hpp"

#include <veldan/model_store.hpp>
#include <veldan/mtcnn.hpp>
#include <veldan/result_codes.h>

#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <utility>

static_assert(sizeof(FaceInfo) == 29 * sizeof(float));

namespace {

using veldan::StageTimer;
using veldan::StageTimes;
using veldan::truncate;

constexpr float proposalOverlap = 0.7F;
constexpr float refinedOverlap = 0.7F;

const std::vector<cv::String> proposalOutputs = {"conv5_1/Conv2D", "conv5_2/Conv2D"};
const std::vector<cv::String> refinementOutputs = {"cls_fc/Softmax", "bbox_fc/MatMul"};
const std::vector<cv::String> outputOutputs = {"cls_fc/Softmax", "bbox_fc/MatMul", "landmark_fc/MatMul"};

// Sizes of a network's passes besides that of a crop for each thread. The larger a pass, the less the calls between the
// layers count; beyond these sizes the layers no longer fit into the processor's second cache. A crop of the output
// network is work enough by itself.
const std::vector<int> refinementPasses = {32, 4};
const std::vector<int> outputPasses = {};

bool isImage(const cv::Mat& img) {
    return !img.empty() && img.dims == 2 && img.type() == CV_8UC3;
}

bool areFinite(const float* values, int count) {
    return std::all_of(values, values + count, [](float value) { return std::isfinite(value); });
}

bool hasFiniteEdges(const FaceInfo& box) {
    return std::isfinite(box.x1) && std::isfinite(box.y1) && std::isfinite(box.x2) && std::isfinite(box.y2);
}

// A network's input blob over memory of ours, which only grows: neither freed nor cleared between frames.
cv::Mat blobOver(std::vector<float>& memory, int images, cv::Size size) {
    const int shape[] = {images, 3, size.height, size.width};
    const std::size_t samples = static_cast<std::size_t>(images) * 3 * static_cast<std::size_t>(size.height) *
                                static_cast<std::size_t>(size.width);
    if (memory.size() < samples)
        memory.resize(samples);
    return {4, shape, CV_32F, memory.data()};
}

} // namespace

bool CompareBBox(const FaceInfo& a, const FaceInfo& b) {
    return a.score > b.score;
}

bool CompareFacearea(const FaceInfo& a, const FaceInfo& b) {
    return (a.y2 - a.y1) * (a.x2 - a.x1) > (b.y2 - b.y1) * (b.x2 - b.x1);
}

double Pointdistance(cv::Point a, cv::Point b) {
    // The differences in double precision, where they cannot overflow; as floats they are the same.
    return std::pow(static_cast<float>(static_cast<double>(a.x) - b.x), 2.0F) +
           std::pow(static_cast<float>(static_cast<double>(a.y) - b.y), 2.0F);
}

int veldan::DetectorAccess::loadProposalNet(MTCNN& detector, const std::vector<unsigned char>& bytes) {
    // Any size would do: the levels' sizes come with the first frame.
    const NetworkForm form{"input_image", 3, {48, 48}, {{proposalOutputs[0], 8}, {proposalOutputs[1], 16}}};
    decltype(detector.workspace->levels) levels;
    for (SteadyNetwork& level : levels) {
        const bool isFirst = &level == levels.data();
        const int error = isFirst ? readTensorflowNet(bytes, form, level.net) : readTensorflowNet(bytes, level.net);
        if (error != VD_OK)
            return error;
    }
    detector.pnet = levels[0].net;
    detector.workspace->levels = std::move(levels);
    return VD_OK;
}

namespace {

// Reads as many copies of a refinement network as it has sizes of passes.
int loadPasses(const std::vector<unsigned char>& bytes, const veldan::NetworkForm& form,
               const std::vector<int>& fixedSizes, const std::vector<cv::String>& outputNames,
               veldan::BatchPasses& passes, cv::dnn::Net& net) {
    std::vector<cv::dnn::Net> copies(fixedSizes.size() + 1);
    int error = veldan::readTensorflowNet(bytes, form, copies[0]);
    for (std::size_t i = 1; error == VD_OK && i < copies.size(); ++i)
        error = veldan::readTensorflowNet(bytes, copies[i]);
    if (error != VD_OK)
        return error;
    try {
        passes.load(copies, fixedSizes, form.size.width, outputNames);
    } catch (const cv::Exception&) {
        return VD_ERR_NETWORK; // a network, but not one for batches of crops
    }
    net = copies[0];
    return VD_OK;
}

} // namespace

int veldan::DetectorAccess::loadRefinementNet(MTCNN& detector, const std::vector<unsigned char>& bytes) {
    return loadPasses(bytes, {"input_image", 3, {24, 24}, {{refinementOutputs[0], 2}, {refinementOutputs[1], 4}}},
                      refinementPasses, refinementOutputs, detector.workspace->refinement, detector.rnet);
}

int veldan::DetectorAccess::loadOutputNet(MTCNN& detector, const std::vector<unsigned char>& bytes) {
    return loadPasses(
        bytes, {"input_image", 3, {48, 48}, {{outputOutputs[0], 2}, {outputOutputs[1], 4}, {outputOutputs[2], 10}}},
        outputPasses, outputOutputs, detector.workspace->output, detector.onet);
}

MTCNN::MTCNN()
    : anchorNum(4), anchorScale(0.7937F), cellSize(24), anchorStride(4), anchorBase(24), maxProposals(5000),
      pixelMean(127.5F), pixelScale(0.0078125F), batchSize(128), centerVariance{0.1F, 0.1F}, sizeVariance{0.2F, 0.2F},
      workspace(std::make_unique<veldan::DetectorWorkspace>()) {}

MTCNN::~MTCNN() = default;

int MTCNN::mtcnnInitAlg(char* /*path*/) {
    using veldan::DetectorAccess;
    const auto load = [](veldan::NetworkLength length, veldan::NetworkData data, auto read) {
        std::vector<unsigned char> bytes;
        const int error = veldan::loadNetworkBytes(length, data, bytes);
        return error == VD_OK ? read(bytes) : error;
    };
    int error = load(length_VELDAN_V5_1_0_FaceDetectP, data_VELDAN_V5_1_0_FaceDetectP,
                     [this](const auto& bytes) { return DetectorAccess::loadProposalNet(*this, bytes); });
    if (error == VD_OK)
        error = load(length_VELDAN_V5_1_0_FaceDetectR, data_VELDAN_V5_1_0_FaceDetectR,
                     [this](const auto& bytes) { return DetectorAccess::loadRefinementNet(*this, bytes); });
    if (error == VD_OK)
        error = load(length_VELDAN_V5_1_0_FaceDetectO, data_VELDAN_V5_1_0_FaceDetectO,
                     [this](const auto& bytes) { return DetectorAccess::loadOutputNet(*this, bytes); });
    return error;
}

int MTCNN::mtcnnFreeAlg() {
    return VD_OK;
}

int MTCNN::mtcnnFaceDetect(unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces) {
    if (faceNum != nullptr)
        *faceNum = 0;
    if (image == nullptr || width <= 0 || height <= 0 || faceNum == nullptr || faces == nullptr)
        return -1;

    const float thresholds[3] = {0.6F, 0.6F, 0.7F};
    // Both sides must exceed 640 x 480 for the larger least face: a wide but low image keeps the smaller one.
    const int minSize = width >= 641 && height >= 481 ? 70 : 45;
    const cv::Mat img = veldan::wrapImage(image, width, height, 3);
    std::vector<FaceInfo> found = Detect_mtcnn(img, minSize, thresholds, 0.7937F, 3);
    if (found.empty())
        return -1;
    *faceNum = static_cast<int>(found.size());
    // Stable, so that faces of equal area come in the same order each time.
    std::stable_sort(found.begin(), found.end(), CompareFacearea);

    for (std::size_t i = 0; i < found.size(); ++i) {
        const FaceInfo& box = found[i];
        VDFACEINFOEX& face = faces[i];
        face.x = std::clamp(truncate(box.x1), 0, width);
        face.y = std::clamp(truncate(box.y1), 0, height);
        face.width = std::min(std::max(truncate(box.x2 - box.x1), 0), width - face.x);
        face.height = std::min(std::max(truncate(box.y2 - box.y1), 0), height - face.y);
        face.keyPointNum = 5;
        for (int k = 0; k < 5; ++k) {
            face.keyPointX[k] = std::clamp(truncate(box.landmark[2 * k]), 0, width);
            face.keyPointY[k] = std::clamp(truncate(box.landmark[2 * k + 1]), 0, height);
        }
        const cv::Point firstEye(face.keyPointX[0], face.keyPointY[0]);
        const cv::Point secondEye(face.keyPointX[1], face.keyPointY[1]);
        face.eyeDistance = static_cast<int>(std::sqrt(Pointdistance(firstEye, secondEye)));
    }
    return 0;
}

std::vector<FaceInfo> MTCNN::Detect_mtcnn(const cv::Mat& img, int minSize, const float* threshold, float factor,
                                          int stage) {
    if (threshold == nullptr || stage <= 0)
        return {};
    std::vector<FaceInfo> proposals = ProposalNet(img, minSize, threshold[0], factor);
    if (stage == 1)
        return proposals;

    // The boxes in batches through a network, the survivors one after the other.
    const auto refine = [&](const std::vector<FaceInfo>& boxes, int side, int refineStage) {
        std::vector<FaceInfo> survivors;
        std::vector<FaceInfo>& batch = workspace->batch;
        const auto step = static_cast<std::size_t>(batchSize);
        for (std::size_t begin = 0; begin < boxes.size(); begin += step) {
            const std::size_t end = std::min(begin + step, boxes.size());
            batch.assign(boxes.begin() + static_cast<std::ptrdiff_t>(begin),
                         boxes.begin() + static_cast<std::ptrdiff_t>(end));
            const std::vector<FaceInfo> passed =
                NextStage(img, batch, side, side, refineStage, threshold[refineStage - 1]);
            survivors.insert(survivors.end(), passed.begin(), passed.end());
        }
        return survivors;
    };

    std::vector<FaceInfo> refined;
    if (!proposals.empty()) {
        if (proposals.size() > static_cast<std::size_t>(maxProposals))
            proposals.resize(static_cast<std::size_t>(maxProposals));
        BBoxPadSquare(proposals, img.cols, img.rows);
        refined = refine(proposals, 24, 2);
        // Here suppression comes before regression, in the last stage after it: both networks were trained for that.
        refined = NMS(refined, refinedOverlap, 'm');
        BBoxRegression(refined);
    }
    if (stage == 2)
        return refined;

    std::vector<FaceInfo> faces;
    if (!refined.empty()) {
        BBoxPadSquare(refined, img.cols, img.rows);
        faces = refine(refined, 48, 3);
        BBoxRegression(faces);
        faces = NMS(faces, refinedOverlap, 'm');
        BBoxPad(faces, img.cols, img.rows);
        // Regression can overflow; what follows, sorting first of all, relies on numbers.
        faces.erase(
            std::remove_if(faces.begin(), faces.end(), [](const FaceInfo& face) { return !hasFiniteEdges(face); }),
            faces.end());
    }
    return faces;
}

std::vector<FaceInfo> MTCNN::NextStage(const cv::Mat& img, std::vector<FaceInfo>& boxes, int width, int height,
                                       int stage, float threshold) {
    if ((stage != 2 && stage != 3) || boxes.empty() || width <= 0 || height <= 0 || !isImage(img) ||
        (stage == 2 ? rnet : onet).empty())
        return {};

    std::vector<const FaceInfo*>& cropped = workspace->cropped;
    cropped.clear();
    for (const FaceInfo& box : boxes)
        if (veldan::FaceCropper::hasCrop(img, box))
            cropped.push_back(&box);

    const cv::Size size(width, height);
    veldan::BatchPasses& passes = stage == 2 ? workspace->refinement : workspace->output;
    const int count = static_cast<int>(cropped.size());
    std::vector<FaceInfo> survivors;
    for (int begin = 0; begin < count;) {
        const int rows = passes.passSize(count, count - begin);
        const int end = std::min(begin + rows, count);
        // The crops go straight into the blob.
        cv::Mat blob = blobOver(workspace->blob, rows, size);
        {
            const StageTimer timer(workspace->times,
                                   stage == 2 ? &StageTimes::refinementCrops : &StageTimes::outputCrops);
            for (int i = begin; i < end; ++i)
                veldan::writePlanes(workspace->cropper.crop(img, *cropped[static_cast<std::size_t>(i)], size),
                                    pixelMean, pixelScale, blob.ptr<float>(i - begin));
        }
        const std::vector<cv::Mat>* outputs = nullptr;
        {
            const StageTimer timer(workspace->times, stage == 2 ? &StageTimes::refinementNet : &StageTimes::outputNet);
            outputs = &passes.run(blob);
        }
        CV_Assert((*outputs)[0].rows == rows && (*outputs)[0].cols == 2);
        CV_Assert((*outputs)[1].rows == rows && (*outputs)[1].cols == 4);
        if (stage == 3)
            CV_Assert((*outputs)[2].rows == rows && (*outputs)[2].cols == 10);

        for (int row = 0; row < end - begin; ++row) {
            const float score = (*outputs)[0].ptr<float>(row)[1];
            const auto* regression = (*outputs)[1].ptr<float>(row);
            if (!(threshold <= score) || !areFinite(regression, 4))
                continue;
            const FaceInfo& box = *cropped[static_cast<std::size_t>(begin) + static_cast<std::size_t>(row)];
            FaceInfo survivor{};
            survivor.x1 = box.x1;
            survivor.y1 = box.y1;
            survivor.x2 = box.x2;
            survivor.y2 = box.y2;
            survivor.score = score;
            std::copy_n(regression, 4, survivor.regression);
            if (stage == 3) {
                const auto* landmark = (*outputs)[2].ptr<float>(row);
                if (!areFinite(landmark, 10))
                    continue;
                const float w = box.x2 - box.x1 + 1;
                const float h = box.y2 - box.y1 + 1;
                for (int k = 0; k < 5; ++k) {
                    survivor.landmark[2 * k] = landmark[2 * k] * w + box.x1;
                    survivor.landmark[2 * k + 1] = landmark[2 * k + 1] * h + box.y1;
                }
            }
            survivors.push_back(survivor);
        }
        begin = end;
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

std::vector<FaceInfo> MTCNN::ProposalNet(const cv::Mat& img, int minSize, float threshold, float factor) {
    totalBoxes.clear();
    if (!isImage(img) || minSize <= 0 || !(factor > 0 && factor < 1) || pnet.empty())
        return {};

    const std::vector<float> scales =
        veldan::pyramidScales({anchorNum, anchorScale, cellSize}, img.size(), minSize, factor);
    const std::vector<int> visited = veldan::visitedLevels(static_cast<int>(scales.size()));
    for (std::size_t position = 0; position < visited.size(); ++position) {
        const float scale = scales[static_cast<std::size_t>(visited[position])];
        const cv::Size size = veldan::levelSize(img.size(), scale);
        cv::Mat blob = blobOver(workspace->blob, 1, size);
        {
            const StageTimer timer(workspace->times, &StageTimes::pyramid);
            cv::resize(img, workspace->levelImage, size, 1.0, 0, cv::INTER_LINEAR);
            veldan::writePlanes(workspace->levelImage, pixelMean, pixelScale, blob.ptr<float>());
        }
        veldan::SteadyNetwork& network = workspace->level(position);
        {
            const StageTimer timer(workspace->times, &StageTimes::proposalNet);
            network.run(blob, proposalOutputs);
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

std::vector<FaceInfo> MTCNN::NMS(std::vector<FaceInfo>& boxes, float threshold, char mode) {
    const StageTimer timer(workspace->times, &StageTimes::suppression);
    return workspace->suppression.run(boxes, threshold, mode);
}

float MTCNN::IoU(float ax1, float ay1, float ax2, float ay2, float bx1, float by1, float bx2, float by2,
                 bool overSmaller) {
    const float w = std::min(ax2, bx2) - std::max(ax1, bx1) + 1;
    const float h = std::min(ay2, by2) - std::max(ay1, by1) + 1;
    if (!(w > 0 && h > 0))
        return 0;
    const float common = w * h;
    const float a = (ax2 - ax1 + 1) * (ay2 - ay1 + 1);
    const float b = (bx2 - bx1 + 1) * (by2 - by1 + 1);
    return overSmaller ? common / std::min(a, b) : common / (a + b - common);
}

int MTCNN::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
