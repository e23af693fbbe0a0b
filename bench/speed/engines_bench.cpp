// What the engines take for one face, and where alignment spends its time.

#include "align/similarity_transform.hpp"
#include "options.hpp"
#include "scene.hpp"

#include <veldan/align.h>
#include <veldan/face_api.h>
#include <veldan/face_landmark.hpp>
#include <veldan/face_mask.hpp>
#include <veldan/face_quality.hpp>
#include <veldan/instance.hpp>
#include <veldan/onet_landmark.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/spoof_detection.hpp>

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

// A frame of 640 x 480 with one face, and an instance to judge it.
struct Scene {
    explicit Scene(const BenchOptions& options) : frame(composeFrame(options.photos, {640, 480}, 1)) {
        std::vector<VDFACEINFOEX> faces(VELDAN_DETECT_CAPACITY);
        int count = 0;
        if (!instance || zzDetectFaceThread(instance.get(), frame.data, frame.cols, frame.rows, &count, faces.data()))
            throw std::runtime_error("no face found to measure the engines with");
        face = faces[0];
        face.maskScore = 0;
        for (int k = 0; k < 5; ++k)
            points[k] = {static_cast<float>(face.keyPointX[k]), static_cast<float>(face.keyPointY[k])};
    }

    VdFaceAPI& engines() const { return *static_cast<VdFaceAPI*>(instance.get()); }

    std::unique_ptr<void, int (*)(void*)> instance{zzInitAlgNThread(nullptr, 0, nullptr), zzFreeAlgThread};
    cv::Mat frame;
    VDFACEINFOEX face{};
    cv::Point2f points[5];
};

void add(const std::string& name, benchmark::TimeUnit unit, std::function<void()> operation) {
    benchmark::RegisterBenchmark(name.c_str(), [operation = std::move(operation)](benchmark::State& state) {
        for (auto _ : state) {
            operation();
            benchmark::ClobberMemory();
        }
    })->Unit(unit);
}

} // namespace

void registerEngineBenchmarks(const BenchOptions& options) {
    const auto scene = std::make_shared<Scene>(options);

    const auto addEngine = [&](const std::string& name, auto operation) {
        add("Face/" + name, benchmark::kMillisecond, [scene, operation] {
            VDFACEINFOEX face = scene->face;
            operation(scene->engines(), scene->frame, face);
        });
    };
    addEngine("Quality", [](VdFaceAPI& engines, const cv::Mat& frame, VDFACEINFOEX& face) {
        engines.faceQuality->mqQualityEvaluation(frame.data, frame.cols, frame.rows, 1, &face);
    });
    addEngine("Sharpness", [](VdFaceAPI& /*engines*/, const cv::Mat& frame, VDFACEINFOEX& face) {
        benchmark::DoNotOptimize(FaceQuality().Face_blurRGB(frame.data, frame.cols, frame.rows, face));
    });
    addEngine("Mask", [](VdFaceAPI& engines, const cv::Mat& frame, VDFACEINFOEX& face) {
        engines.faceMask->maskEvaluation(frame.data, frame.cols, frame.rows, 1, &face);
    });
    addEngine("MaskAtTheBorder", [](VdFaceAPI& engines, const cv::Mat& frame, VDFACEINFOEX& face) {
        face.x = 0;
        face.width = face.height / 2;
        engines.faceMask->maskEvaluation(frame.data, frame.cols, frame.rows, 1, &face);
    });
    addEngine("TwoPoints", [](VdFaceAPI& engines, const cv::Mat& frame, VDFACEINFOEX& face) {
        engines.faceLandmark->landmarkEvaluation(frame.data, frame.cols, frame.rows, 1, &face);
    });
    addEngine("Refinement", [](VdFaceAPI& engines, const cv::Mat& frame, VDFACEINFOEX& face) {
        engines.onetLandmark->mOnetLandmark(frame.data, frame.cols, frame.rows, 1, &face);
    });
    addEngine("LivenessVisible", [](VdFaceAPI& engines, const cv::Mat& frame, VDFACEINFOEX& face) {
        engines.livenessDetector->vdSpoofRGBEvaluation(frame.data, frame.cols, frame.rows, 1, &face);
    });
    addEngine("LivenessInfrared", [](VdFaceAPI& engines, const cv::Mat& frame, VDFACEINFOEX& face) {
        engines.livenessDetector->vdSpoofNIREvaluation(frame.data, frame.cols, frame.rows, 1, &face);
    });

    const auto crop = std::make_shared<cv::Mat>(112, 112, CV_8UC3);
    add("Align/FivePoints", benchmark::kMicrosecond, [scene, crop] {
        alignface_pinv(scene->frame.data, scene->frame.cols, scene->frame.rows, crop->data, 112, 112,
                       &scene->points[0].x);
    });
    add("Align/TwoPoints", benchmark::kMicrosecond, [scene, crop] {
        const float corners[] = {200, 100, 420, 330};
        alignface_mask(scene->frame.data, scene->frame.cols, scene->frame.rows, crop->data, 112, 112, corners);
    });
    cv::Point2f places[5];
    for (int k = 0; k < 5; ++k)
        places[k] = {templatekeypoints[2 * k], templatekeypoints[2 * k + 1]};
    const cv::Matx23d forward = veldan::fitSimilarity(scene->points, places);
    add("Align/SolveOnly", benchmark::kMicrosecond,
        [scene, places] { benchmark::DoNotOptimize(veldan::fitSimilarity(scene->points, places)); });
    add("Align/WarpOnly", benchmark::kMicrosecond, [scene, crop, forward] {
        cv::warpAffine(scene->frame, *crop, forward, crop->size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT, cv::Scalar());
    });
}
