// YuNet on the frame that Detect/640x480/1 takes, in the same process.

#include "options.hpp"
#include "scene.hpp"

#include <benchmark/benchmark.h>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <iostream>
#include <string>
#include <vector>

namespace {

// YuNet (libfacedetection.train) in OpenCV's dnn, for comparison: the 640 x 640 file with outputs cls, obj, bbox and
// kps at strides 8, 16 and 32, read from where the user has it.
class YuNet {
public:
    explicit YuNet(const std::string& file) : net(cv::dnn::readNetFromONNX(file)) {
        for (const char* kind : {"cls", "obj", "bbox", "kps"})
            for (const int stride : strides)
                names.push_back(std::string(kind) + "_" + std::to_string(stride));
    }

    // The frame at the top left of 640 x 640, smaller if need be, the rest black.
    cv::Mat makeBlob(const cv::Mat& frame) const {
        const double scale = std::min({1.0, double(side) / frame.cols, double(side) / frame.rows});
        cv::Mat scaled = frame;
        if (scale < 1)
            cv::resize(frame, scaled, cv::Size(), scale, scale, cv::INTER_LINEAR);
        cv::Mat padded;
        cv::copyMakeBorder(scaled, padded, 0, side - scaled.rows, 0, side - scaled.cols, cv::BORDER_CONSTANT);
        return cv::dnn::blobFromImage(padded);
    }

    void forward(const cv::Mat& blob) {
        net.setInput(blob);
        net.forward(outputs, names);
    }

    // Boxes of the last forward pass after suppression; the five points are left out.
    std::vector<cv::Rect2d> decode(float scoreThreshold, float overlap) const {
        std::vector<cv::Rect2d> boxes;
        std::vector<float> scores;
        for (std::size_t level = 0; level < 3; ++level) {
            const int stride = strides[level];
            const int columns = side / stride;
            const auto* cls = outputs[level].ptr<float>();
            const auto* obj = outputs[3 + level].ptr<float>();
            const auto* box = outputs[6 + level].ptr<float>();
            for (int cell = 0; cell < columns * columns; ++cell) {
                const float score = std::sqrt(std::clamp(cls[cell], 0.0F, 1.0F) * std::clamp(obj[cell], 0.0F, 1.0F));
                if (score < scoreThreshold)
                    continue;
                const int column = cell % columns;
                const int row = cell / columns;
                const double cx = stride * (column + double(box[4 * cell]));
                const double cy = stride * (row + double(box[4 * cell + 1]));
                const double w = stride * std::exp(double(box[4 * cell + 2]));
                const double h = stride * std::exp(double(box[4 * cell + 3]));
                boxes.emplace_back(cx - w / 2, cy - h / 2, w, h);
                scores.push_back(score);
            }
        }
        std::vector<int> kept;
        cv::dnn::NMSBoxes(boxes, scores, scoreThreshold, overlap, kept);
        std::vector<cv::Rect2d> faces;
        faces.reserve(kept.size());
        for (const int index : kept)
            faces.push_back(boxes[static_cast<std::size_t>(index)]);
        return faces;
    }

private:
    static constexpr int side = 640;
    static constexpr int strides[] = {8, 16, 32};
    cv::dnn::Net net;
    std::vector<std::string> names;
    std::vector<cv::Mat> outputs;
};

void whole(benchmark::State& state, const std::string& file, const cv::Mat& frame) {
    YuNet yunet(file);
    std::size_t faces = 0;
    for (auto _ : state) {
        yunet.forward(yunet.makeBlob(frame));
        faces = yunet.decode(0.6F, 0.3F).size();
    }
    state.counters["faces"] = static_cast<double>(faces);
}

void forwardOnly(benchmark::State& state, const std::string& file, const cv::Mat& frame) {
    YuNet yunet(file);
    const cv::Mat blob = yunet.makeBlob(frame);
    yunet.forward(blob);
    for (auto _ : state)
        yunet.forward(blob);
}

} // namespace

void registerYuNetBenchmarks(const BenchOptions& options) {
    if (options.yunet.empty()) {
        std::cerr << "veldan_bench: no comparison with YuNet: give its file with --yunet=FILE or VELDAN_YUNET\n";
        return;
    }
    const cv::Mat frame = composeFrame(options.photos, cv::Size(640, 480), 1);
    benchmark::RegisterBenchmark("YuNet640/640x480/1/blob_forward_decode", whole, options.yunet, frame)
        ->Unit(benchmark::kMillisecond);
    benchmark::RegisterBenchmark("YuNet640/640x480/1/forward_only", forwardOnly, options.yunet, frame)
        ->Unit(benchmark::kMillisecond);
}
