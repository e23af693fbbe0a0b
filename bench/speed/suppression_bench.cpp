// Suppression of 5,000 boxes, ours beside the plain definition.

#include "options.hpp"

#include <veldan/mtcnn.hpp>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int boxCount = 5000;

// Suppression as it is defined: every survivor against every box after it. What the grid of veldan::BoxSuppression is
// measured against.
std::vector<FaceInfo> plainSuppression(std::vector<FaceInfo>& boxes, float threshold) {
    std::sort(boxes.begin(), boxes.end(), CompareBBox);
    std::vector<char> suppressed(boxes.size());
    std::vector<FaceInfo> kept;
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        if (suppressed[i])
            continue;
        const FaceInfo& a = boxes[i];
        kept.push_back(a);
        const float area = (a.x2 - a.x1 + 1) * (a.y2 - a.y1 + 1);
        for (std::size_t j = i + 1; j < boxes.size(); ++j) {
            if (suppressed[j])
                continue;
            const FaceInfo& b = boxes[j];
            const float w = std::min(a.x2, b.x2) - std::max(a.x1, b.x1) + 1;
            const float h = std::min(a.y2, b.y2) - std::max(a.y1, b.y1) + 1;
            if (w <= 0 || h <= 0)
                continue;
            const float common = w * h;
            if (common / (area + (b.x2 - b.x1 + 1) * (b.y2 - b.y1 + 1) - common) > threshold)
                suppressed[j] = 1;
        }
    }
    return kept;
}

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

template <class Suppress>
void suppress(benchmark::State& state, const std::vector<FaceInfo>& boxes, const Suppress& operation) {
    std::vector<FaceInfo> given;
    std::size_t kept = 0;
    for (auto _ : state) {
        given = boxes;
        kept = operation(given).size();
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
        const auto add = [&](const char* whose, auto operation) {
            benchmark::RegisterBenchmark((name + whose).c_str(), [boxes = set.boxes,
                                                                  operation](benchmark::State& state) {
                suppress(state, boxes, operation);
            })->Unit(benchmark::kMillisecond);
        };
        add("/ours", [detector = std::make_shared<MTCNN>()](std::vector<FaceInfo>& boxes) {
            return detector->NMS(boxes, 0.7F, 'u');
        });
        add("/plain", [](std::vector<FaceInfo>& boxes) { return plainSuppression(boxes, 0.7F); });
    }
}
