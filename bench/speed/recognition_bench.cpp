// What the recognizers take for one face of a frame, how much of it the forward pass is, and a MobileFaceNet beside
// them.

#include "engine/network_loader.hpp"
#include "mobilefacenet.hpp"
#include "options.hpp"
#include "scene.hpp"

#include <veldan/align.h>
#include <veldan/face_api.h>
#include <veldan/instance.hpp>
#include <veldan/mask_recognizer.hpp>
#include <veldan/model_store.hpp>
#include <veldan/recognizer.hpp>

#include <benchmark/benchmark.h>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

struct Scene {
    explicit Scene(const BenchOptions& options) : frame(composeFrame(options.photos, {640, 480}, 1)) {
        std::vector<VDFACEINFOEX> faces(VELDAN_DETECT_CAPACITY);
        int count = 0;
        if (!instance || zzDetectFaceThread(instance.get(), frame.data, frame.cols, frame.rows, &count, faces.data()))
            throw std::runtime_error("no face found to recognise");
        face = faces[0];
        for (int k = 0; k < 5; ++k) {
            points[2 * k] = static_cast<float>(face.keyPointX[k]);
            points[2 * k + 1] = static_cast<float>(face.keyPointY[k]);
        }
        align();
        if (veldan::loadCaffeNet({length_VELDAN_V5_0_0_FaceRecog_Model, data_VELDAN_V5_0_0_FaceRecog_Model},
                                 {length_VELDAN_V5_0_0_FaceRecog_Prototxt, data_VELDAN_V5_0_0_FaceRecog_Prototxt},
                                 {"", 3, {112, 112}, {{"fc1_scale", 128}}}, bare) ||
            veldan::loadCaffeNet(
                {length_VELDAN_V5_2_0_FaceMaskRecog_Model, data_VELDAN_V5_2_0_FaceMaskRecog_Model},
                {length_VELDAN_V5_2_0_FaceMaskRecog_Prototxt, data_VELDAN_V5_2_0_FaceMaskRecog_Prototxt},
                {"", 3, {112, 112}, {{"pre_fc1", 128}}}, masked))
            throw std::runtime_error("a recognizer does not load");
    }

    VdFaceAPI& engines() const { return *static_cast<VdFaceAPI*>(instance.get()); }
    void align() { alignface_pinv(frame.data, frame.cols, frame.rows, crop.data, 112, 112, points); }
    cv::Mat blob() const {
        return cv::dnn::blobFromImage(crop, 0.0078125, cv::Size(), cv::Scalar::all(127.5), true, false, CV_32F);
    }

    std::unique_ptr<void, int (*)(void*)> instance{zzInitAlgNThread(nullptr, 0, nullptr), zzFreeAlgThread};
    cv::Mat frame;
    VDFACEINFOEX face{};
    float points[10];
    cv::Mat crop = cv::Mat::zeros(112, 112, CV_8UC3);
    cv::dnn::Net bare;
    cv::dnn::Net masked;
    MobileFaceNet usual;
};

} // namespace

void registerRecognitionBenchmarks(const BenchOptions& options) {
    const auto scene = std::make_shared<Scene>(options);
    const auto add = [&](const std::string& name, const std::function<void(Scene&)>& operation) {
        benchmark::RegisterBenchmark(("Recognition/" + name).c_str(), [scene, operation](benchmark::State& state) {
            for (auto _ : state) {
                operation(*scene);
                benchmark::ClobberMemory();
            }
        })->Unit(benchmark::kMillisecond);
    };
    add("Bare", [](Scene& s) {
        float feature[128];
        s.engines().faceRecognizer->mfFeatureExtract(s.frame.data, s.frame.cols, s.frame.rows, 1, &s.face, feature);
    });
    add("Bare/forward", [blob = scene->blob()](Scene& s) {
        s.bare.setInput(blob);
        s.bare.forward("fc1_scale");
    });
    add("Masked", [](Scene& s) {
        float feature[128];
        s.engines().maskFaceRecognizer->maskfFeatureExtract(false, s.frame.data, s.frame.cols, s.frame.rows, 1, &s.face,
                                                            feature);
    });
    add("Masked/forward", [blob = scene->blob()](Scene& s) {
        s.masked.setInput(blob);
        s.masked.forward("pre_fc1");
    });
    add("MobileFaceNet", [](Scene& s) {
        s.align();
        s.usual.forward(s.blob());
    });
    add("MobileFaceNet/forward", [blob = scene->blob()](Scene& s) { s.usual.forward(blob); });
}
