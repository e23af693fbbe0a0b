// The detector: time a frame, where it goes, and what creating one costs.

#include "detect/workspace.hpp"
#include "options.hpp"
#include "scene.hpp"
#include "support/allocations.hpp"

#include <veldan/mtcnn.hpp>

#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

std::unique_ptr<MTCNN> makeDetector() {
    auto detector = std::make_unique<MTCNN>();
    if (detector->mtcnnInitAlg(nullptr) != 0)
        throw std::runtime_error("an embedded network of the detector cannot be loaded");
    return detector;
}

// The arguments that the detector chooses for itself.
constexpr float thresholds[] = {0.6F, 0.6F, 0.7F};
constexpr float factor = 0.7937F;
int minSize(const cv::Mat& frame) {
    return frame.cols >= 641 && frame.rows >= 481 ? 70 : 45;
}

void detect(benchmark::State& state, cv::Mat frame) {
    const auto detector = makeDetector();
    std::vector<VDFACEINFOEX> faces(5000);
    int count = 0;
    const auto run = [&] { detector->mtcnnFaceDetect(frame.data, frame.cols, frame.rows, &count, faces.data()); };
    run(); // the first frame of a size also sets the networks up for it

    veldan::StageTimes times;
    veldan::DetectorAccess::workspace(*detector).times = &times;
    const Allocations before = allocationsSoFar();
    for (auto _ : state)
        run();
    const Allocations after = allocationsSoFar();
    veldan::DetectorAccess::workspace(*detector).times = nullptr;

    state.counters["proposals"] =
        static_cast<double>(detector->Detect_mtcnn(frame, minSize(frame), thresholds, factor, 1).size());
    state.counters["refined"] =
        static_cast<double>(detector->Detect_mtcnn(frame, minSize(frame), thresholds, factor, 2).size());
    state.counters["faces"] = count;
    const auto perFrame = [&](const char* name, std::size_t total) {
        state.counters[name] = benchmark::Counter(static_cast<double>(total), benchmark::Counter::kAvgIterations);
    };
    perFrame("allocations", after.number - before.number);
    perFrame("allocated", after.bytes - before.bytes);
    // Seconds a frame, shown as 12.3u for microseconds, 1.2m for milliseconds.
    const auto stage = [&](const char* name, double seconds) {
        state.counters[name] = benchmark::Counter(seconds, benchmark::Counter::kAvgIterations);
    };
    stage("1_pyramid", times.pyramid);
    stage("2_pnet", times.proposalNet);
    stage("3_decode", times.decoding);
    stage("4_nms", times.suppression);
    stage("5_rcrops", times.refinementCrops);
    stage("6_rnet", times.refinementNet);
    stage("7_ocrops", times.outputCrops);
    stage("8_onet", times.outputNet);
}

void create(benchmark::State& state) {
    for (auto _ : state)
        benchmark::DoNotOptimize(makeDetector());
}

} // namespace

void registerDetectorBenchmarks(const BenchOptions& options) {
    for (const cv::Size size : {cv::Size(640, 480), cv::Size(1280, 720), cv::Size(1920, 1080)}) {
        for (const int faces : {1, 5, 20}) {
            const std::string name = "Detect/" + std::to_string(size.width) + "x" + std::to_string(size.height) + "/" +
                                     std::to_string(faces);
            benchmark::RegisterBenchmark(name.c_str(), detect, composeFrame(options.photos, size, faces))
                ->Unit(benchmark::kMillisecond);
        }
    }
    benchmark::RegisterBenchmark("CreateDetector", create)->Unit(benchmark::kMillisecond);
}
