// Suppression of 5,000 boxes, ours beside the plain definition.

#include "options.hpp"
#include "plain_suppression.hpp"

#include <veldan/mtcnn.hpp>

#include <benchmark/benchmark.h>

#include <cmath>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int boxCount = 5000;

FaceInfo makeBox(float cx, float cy, float side, float score) {
    FaceInfo box{};
    box.x1 = cx - side / 2;
    box.y1 = cy - side / 2;
    box.x2 = cx + side / 2;
    box.y2 = cy + side / 2;
    box.score = score;
    return box;
}

// Forty faces, each with proposals all around it: what a crowded frame gives.
std::vector<FaceInfo> crowd() {
    std::mt19937 random(1);
    std::normal_distribution<float> normal(0, 1);
    std::uniform_real_distribution<float> uniform(0, 1);
    std::vector<FaceInfo> faces;
    faces.reserve(40);
    for (int i = 0; i < 40; ++i)
        faces.push_back(makeBox(1920 * uniform(random), 1080 * uniform(random), 70 + 200 * uniform(random), 0));
    std::vector<FaceInfo> boxes;
    boxes.reserve(boxCount);
    for (int i = 0; i < boxCount; ++i) {
        const FaceInfo& face = faces[random() % faces.size()];
        const float side = face.x2 - face.x1;
        boxes.push_back(makeBox(face.x1 + side / 2 + 0.1F * side * normal(random),
                                face.y1 + side / 2 + 0.1F * side * normal(random),
                                side * std::exp(0.2F * normal(random)), uniform(random)));
    }
    return boxes;
}

// Boxes side by side, none of which falls: the worst case of the definition.
std::vector<FaceInfo> carpet() {
    std::mt19937 random(2);
    std::uniform_real_distribution<float> uniform(0, 1);
    std::vector<FaceInfo> boxes;
    boxes.reserve(boxCount);
    for (int i = 0; i < boxCount; ++i) {
        const int column = i % 100;
        const int row = i / 100;
        boxes.push_back(makeBox(static_cast<float>(19 * column), static_cast<float>(21 * row), 24, uniform(random)));
    }
    return boxes;
}

void ours(benchmark::State& state, const std::vector<FaceInfo>& boxes) {
    MTCNN detector;
    std::vector<FaceInfo> given;
    std::size_t kept = 0;
    for (auto _ : state) {
        given = boxes;
        kept = detector.NMS(given, 0.7F, 'u').size();
    }
    state.counters["kept"] = static_cast<double>(kept);
}

void plain(benchmark::State& state, const std::vector<FaceInfo>& boxes) {
    std::vector<FaceInfo> given;
    std::size_t kept = 0;
    for (auto _ : state) {
        given = boxes;
        kept = plainSuppression(given, 0.7F).size();
    }
    state.counters["kept"] = static_cast<double>(kept);
}

} // namespace

void registerSuppressionBenchmarks() {
    const struct {
        const char* name;
        std::vector<FaceInfo> boxes;
    } sets[] = {{"crowd", crowd()}, {"carpet", carpet()}};
    for (const auto& set : sets) {
        const std::string name = std::string("Suppression5000/") + set.name;
        benchmark::RegisterBenchmark((name + "/ours").c_str(), ours, set.boxes)->Unit(benchmark::kMillisecond);
        benchmark::RegisterBenchmark((name + "/plain").c_str(), plain, set.boxes)->Unit(benchmark::kMillisecond);
    }
}
