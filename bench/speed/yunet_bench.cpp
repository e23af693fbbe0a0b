// YuNet on the frame that Detect/640x480/1 takes, in the same process.

#include "options.hpp"
#include "scene.hpp"
#include "yunet.hpp"

#include <benchmark/benchmark.h>

#include <iostream>

namespace {

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
