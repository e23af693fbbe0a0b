// What is done with one face of a frame of 640 x 480: the engines, alignment and where it spends its time, the
// recognizers with a MobileFaceNet beside them, and the tracked flow, which is what a camera's frame costs.

#include "align/similarity_transform.hpp"
#include "engine/network_loader.hpp"
#include "mobilefacenet.hpp"
#include "options.hpp"
#include "scene.hpp"

#include <veldan/align.h>
#include <veldan/face_landmark.hpp>
#include <veldan/face_quality.hpp>
#include <veldan/model_store.hpp>
#include <veldan/onet_landmark.hpp>
#include <veldan/veldan.hpp>

#include <benchmark/benchmark.h>
#include <opencv2/imgproc.hpp>

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

constexpr int persons = 1000;

struct Scene {
    explicit Scene(const BenchOptions& options) : frame(composeFrame(options.photos, {640, 480}, 1)) {
        std::vector<VDFACEINFOEX> found = instance.detect(view);
        if (found.empty())
            throw std::runtime_error("no face found to measure with");
        face = found[0];
        for (int k = 0; k < 5; ++k)
            points[k] = {static_cast<float>(face.keyPointX[k]), static_cast<float>(face.keyPointY[k])};
        align();
        const auto net = [](auto length, auto data, auto textLength, auto text, const char* output, cv::dnn::Net& out) {
            return veldan::loadCaffeNet({length, data}, {textLength, text}, {"", 3, {112, 112}, {{output, 128}}}, out);
        };
        if (net(length_VELDAN_V5_0_0_FaceRecog_Model, data_VELDAN_V5_0_0_FaceRecog_Model,
                length_VELDAN_V5_0_0_FaceRecog_Prototxt, data_VELDAN_V5_0_0_FaceRecog_Prototxt, "fc1_scale", bare) ||
            net(length_VELDAN_V5_2_0_FaceMaskRecog_Model, data_VELDAN_V5_2_0_FaceMaskRecog_Model,
                length_VELDAN_V5_2_0_FaceMaskRecog_Prototxt, data_VELDAN_V5_2_0_FaceMaskRecog_Prototxt, "pre_fc1",
                masked) ||
            landmarks.landmarkInitAlg(nullptr) || refinement.mOnetInitAlg(nullptr))
            throw std::runtime_error("a network does not load");
        // Everybody in the gallery is the same person: the first one is found, and all are compared.
        const veldan::Template own = instance.extract(view, face);
        const veldan::Template ownMasked = instance.extractForEnrolment(view, face, veldan::Kind::Masked);
        for (int person = 0; person < persons; ++person) {
            gallery.add({own});
            maskGallery.add({ownMasked});
        }
        instance.track(view, tracked);
        search();
        if (tracked.empty() || tracked[0].searchFlag < 1)
            throw std::runtime_error("the face is not recognised");
    }

    void align() { alignface_pinv(frame.data, frame.cols, frame.rows, crop.data, 112, 112, &points[0].x); }
    cv::Mat blob() const {
        return cv::dnn::blobFromImage(crop, 0.0078125, cv::Size(), cv::Scalar::all(127.5), true, false, CV_32F);
    }
    void search() { instance.searchTracked(view, tracked, gallery, maskGallery, 70, 70, 0); }

    cv::Mat frame;
    veldan::ImageView view{frame.data, frame.cols, frame.rows};
    veldan::Instance instance{persons};
    vdFaceLandmark landmarks;
    OnetLandmark refinement;
    VDFACEINFOEX face{};
    cv::Point2f points[5];
    cv::Mat crop = cv::Mat::zeros(112, 112, CV_8UC3);
    cv::dnn::Net bare;
    cv::dnn::Net masked;
    MobileFaceNet usual;
    veldan::Gallery gallery;
    veldan::Gallery maskGallery{veldan::Kind::Masked};
    std::vector<VDFACEINFOEX> tracked;
};

} // namespace

void registerFaceBenchmarks(const BenchOptions& options) {
    const auto scene = std::make_shared<Scene>(options);
    const auto add = [&](const std::string& name, std::function<void(Scene&)> operation,
                         benchmark::TimeUnit unit = benchmark::kMillisecond) {
        const bool flow = name.rfind("Flow/", 0) == 0;
        const auto run = [scene, flow, operation = std::move(operation)](benchmark::State& state) {
            for (auto _ : state) {
                operation(*scene);
                benchmark::ClobberMemory();
            }
            if (flow)
                state.counters["frames/s"] =
                    benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
        };
        benchmark::RegisterBenchmark(name.c_str(), run)->Unit(unit);
    };
    add("Face/Quality", [](Scene& s) { s.instance.judgeQuality(s.view, {&s.face, 1}); });
    add("Face/Sharpness", [](Scene& s) {
        benchmark::DoNotOptimize(FaceQuality().Face_blurRGB(s.frame.data, s.frame.cols, s.frame.rows, s.face));
    });
    add("Face/Mask", [](Scene& s) { s.instance.judgeMask(s.view, {&s.face, 1}); });
    add("Face/MaskAtTheBorder", [](Scene& s) {
        VDFACEINFOEX face = s.face;
        face.x = 0;
        face.width = face.height / 2;
        s.instance.judgeMask(s.view, {&face, 1});
    });
    add("Face/TwoPoints", [](Scene& s) {
        VDFACEINFOEX face = s.face;
        s.landmarks.landmarkEvaluation(s.frame.data, s.frame.cols, s.frame.rows, 1, &face);
    });
    add("Face/Refinement", [](Scene& s) {
        VDFACEINFOEX face = s.face;
        s.refinement.mOnetLandmark(s.frame.data, s.frame.cols, s.frame.rows, 1, &face);
    });
    add("Face/LivenessVisible", [](Scene& s) { s.instance.judgeLiveness(s.view, {&s.face, 1}); });
    add("Face/LivenessInfrared", [](Scene& s) { s.instance.judgeNearInfraredLiveness(s.view, {&s.face, 1}); });

    cv::Point2f places[5];
    for (int k = 0; k < 5; ++k)
        places[k] = {templatekeypoints[2 * k], templatekeypoints[2 * k + 1]};
    const cv::Matx23d forward = veldan::fitSimilarity(scene->points, places);
    add(
        "Align/FivePoints", [](Scene& s) { s.align(); }, benchmark::kMicrosecond);
    add(
        "Align/TwoPoints",
        [crop = cv::Mat(112, 112, CV_8UC3)](Scene& s) {
            const float corners[] = {200, 100, 420, 330};
            alignface_mask(s.frame.data, s.frame.cols, s.frame.rows, crop.data, 112, 112, corners);
        },
        benchmark::kMicrosecond);
    add(
        "Align/SolveOnly", [places](Scene& s) { benchmark::DoNotOptimize(veldan::fitSimilarity(s.points, places)); },
        benchmark::kMicrosecond);
    add(
        "Align/WarpOnly",
        [forward](Scene& s) {
            cv::warpAffine(s.frame, s.crop, forward, s.crop.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT,
                           cv::Scalar());
        },
        benchmark::kMicrosecond);

    const cv::Mat blob = scene->blob();
    add("Recognition/Bare", [](Scene& s) { s.instance.extract(s.view, s.face); });
    add("Recognition/Bare/forward", [blob](Scene& s) {
        s.bare.setInput(blob);
        s.bare.forward("fc1_scale");
    });
    add("Recognition/Masked", [](Scene& s) { s.instance.extract(s.view, s.face, veldan::Kind::Masked); });
    add("Recognition/Masked/forward", [blob](Scene& s) {
        s.masked.setInput(blob);
        s.masked.forward("pre_fc1");
    });
    add("Recognition/MobileFaceNet", [](Scene& s) {
        s.align();
        s.usual.forward(s.blob());
    });
    add("Recognition/MobileFaceNet/forward", [blob](Scene& s) { s.usual.forward(blob); });

    add("Flow/track", [](Scene& s) { s.instance.track(s.view, s.tracked); });
    add("Flow/track_and_search/known", [](Scene& s) {
        s.instance.track(s.view, s.tracked);
        s.search();
    });
    add("Flow/track_and_search/searching", [](Scene& s) {
        s.instance.track(s.view, s.tracked);
        s.tracked[0].searchFlag = 0;
        s.search();
    });
}
