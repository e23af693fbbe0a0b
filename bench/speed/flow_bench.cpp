// The tracked flow on a frame of 640 x 480 with one face: what a camera's frame costs. Shares of the single engines
// follow from Detect/640x480/1, Face/* and Recognition/*.

#include "options.hpp"
#include "scene.hpp"

#include <veldan/face_api.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace {

constexpr int persons = 1000;

struct Scene {
    explicit Scene(const BenchOptions& options) : frame(composeFrame(options.photos, {640, 480}, 1)) {
        if (!instance || zzDetectFaceThread(instance.get(), frame.data, frame.cols, frame.rows, &count, faces.data()))
            throw std::runtime_error("no face found to follow");
        // Everybody in the gallery is the same person: the first one is found, and all are compared.
        std::vector<unsigned char> feature(520);
        zzExtractFeatureThread(instance.get(), frame.data, frame.cols, frame.rows, 1, faces.data(), feature.data());
        for (int person = 0; person < persons; ++person)
            gallery.insert(gallery.end(), feature.begin(), feature.end());
        track();
        search();
        if (faces[0].searchFlag < 1)
            throw std::runtime_error("the face is not recognised");
    }

    void track() { zzTrackFaceThread(instance.get(), frame.data, frame.cols, frame.rows, &count, faces.data()); }
    void search() {
        zzSearchAllFaceThread(instance.get(), gallery.data(), gallery.data(), persons, counts.data(), persons, 70, 70,
                              0, frame.data, frame.cols, frame.rows, count, faces.data());
    }

    std::unique_ptr<void, int (*)(void*)> instance{zzInitAlgNThread(nullptr, persons, nullptr), zzFreeAlgThread};
    cv::Mat frame;
    std::vector<VDFACEINFOEX> faces = std::vector<VDFACEINFOEX>(VELDAN_DETECT_CAPACITY);
    int count = 0;
    std::vector<unsigned char> gallery;
    std::vector<int> counts = std::vector<int>(persons, 1);
};

} // namespace

void registerFlowBenchmarks(const BenchOptions& options) {
    const auto scene = std::make_shared<Scene>(options);
    const auto add = [&](const char* name, bool search, bool known) {
        benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
            for (auto _ : state) {
                scene->track();
                if (!known)
                    scene->faces[0].searchFlag = 0;
                if (search)
                    scene->search();
            }
            state.counters["frames/s"] =
                benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
        })->Unit(benchmark::kMillisecond);
    };
    add("Flow/track", false, true);
    add("Flow/track_and_search/known", true, true);
    add("Flow/track_and_search/searching", true, false);
}
