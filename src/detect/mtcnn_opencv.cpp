// The detector: its networks are loaded and its stages put together here; the stages are in units of their own.

#include "detect/workspace.hpp"
#include "engine/data_size.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"
#include "tool/image_buffer.hpp"

#include <veldan/model_store.hpp>
#include <veldan/mtcnn.hpp>
#include <veldan/result_codes.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <memory>

static_assert(sizeof(FaceInfo) == 29 * sizeof(float));

namespace {

using veldan::truncate;

constexpr float refinedOverlap = 0.7F;

bool hasFiniteEdges(const FaceInfo& box) {
    return std::isfinite(box.x1) && std::isfinite(box.y1) && std::isfinite(box.x2) && std::isfinite(box.y2);
}

void writeRecord(const FaceInfo& box, int width, int height, VDFACEINFOEX& face) {
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

    for (std::size_t i = 0; i < found.size(); ++i)
        writeRecord(found[i], width, height, faces[i]);
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

std::vector<FaceInfo> MTCNN::NMS(std::vector<FaceInfo>& boxes, float threshold, char mode) {
    const veldan::StageTimer timer(workspace->times, &veldan::StageTimes::suppression);
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
