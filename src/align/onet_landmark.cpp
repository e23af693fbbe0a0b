#include "engine/data_size.hpp"
#include "engine/engine_network.hpp"
#include "engine/evaluation.hpp"
#include "engine/network_loader.hpp"
#include "engine/rounding.hpp"

#include <veldan/model_store.hpp>
#include <veldan/onet_landmark.hpp>
#include <veldan/result_codes.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <vector>

namespace {

using veldan::truncate;

constexpr int inputSide = 48;

const std::vector<cv::String> outputNames = {"bbox_fc/MatMul", "landmark_fc/MatMul"};

} // namespace

OnetLandmark::OnetLandmark() : network(std::make_unique<veldan::EngineNetwork>()) {}
OnetLandmark::~OnetLandmark() = default;

int OnetLandmark::mOnetInitAlg(char* /*path*/) {
    // A copy of its own of the detector's network, which is not reentrant either.
    return veldan::loadTensorflowNet(
        length_VELDAN_V5_1_0_FaceDetectO, data_VELDAN_V5_1_0_FaceDetectO,
        {"input_image", 3, {inputSide, inputSide}, {{outputNames[0], 4}, {outputNames[1], 10}}}, network->net);
}

int OnetLandmark::mOnetLandmark(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces) {
    cv::Mat crop;
    std::vector<cv::Mat> outputs;
    const auto refine = [&](const cv::Mat& frame, VDFACEINFOEX& face) {
        const auto left = static_cast<float>(face.x);
        const auto top = static_cast<float>(face.y);
        const float w = static_cast<float>(face.width) + 1;
        const float h = static_cast<float>(face.height) + 1;
        const float side = std::max(w, h);
        const float x1 = std::round(std::max((w - side) * 0.5F + left, 0.0F));
        const float y1 = std::round(std::max((h - side) * 0.5F + top, 0.0F));
        // From the box's own corner, not from that of the square: a box narrower than tall is cut further out to the
        // left than to the right. The answers are decoded against this very crop, so it must stay.
        const float x2 = std::round(std::min(left + side - 1, static_cast<float>(width - 1)));
        const float y2 = std::round(std::min(top + side - 1, static_cast<float>(height - 1)));

        // Resized from the image itself; a copy of the region would give the same. A region outside of the image
        // raises OpenCV's exception.
        const cv::Point corner(truncate(x1), truncate(y1));
        CV_Assert(x1 < x2 && y1 < y2);
        cv::resize(frame(cv::Rect(corner, cv::Point(truncate(x2), truncate(y2)))), crop, cv::Size(inputSide, inputSide),
                   0, 0, cv::INTER_LINEAR);
        network->net.setInput(veldan::inputBlob(crop), "input_image", 1.0, cv::Scalar());
        network->net.forward(outputs, outputNames);
        const float* const regression = veldan::outputValues(outputs[0], 4);
        const float* const landmark = veldan::outputValues(outputs[1], 10);

        const float bw = x2 - x1 + 1;
        const float bh = y2 - y1 + 1;
        const float nx1 = regression[0] * bw + x1;
        const float ny1 = regression[1] * bh + y1;
        const float nx2 = regression[2] * bw + x2;
        const float ny2 = regression[3] * bh + y2;
        // Nothing is clamped to the image: whoever refines a box that a track carried over must see that it left.
        face.x = truncate(nx1);
        face.y = truncate(ny1);
        face.width = truncate(nx2 - nx1);
        face.height = truncate(ny2 - ny1);
        face.keyPointNum = 5;
        for (int k = 0; k < 5; ++k) {
            face.keyPointX[k] = truncate(landmark[2 * k] * bw + x1);
            face.keyPointY[k] = truncate(landmark[2 * k + 1] * bh + y1);
        }
    };
    return veldan::evaluateFaces(network->net, image, width, height, faceNum, faces, refine);
}

int OnetLandmark::mOnetFreeAlg() {
    return VD_OK;
}

int OnetLandmark::vdGetDataSize(char* path) {
    return veldan::dataSize(path);
}
