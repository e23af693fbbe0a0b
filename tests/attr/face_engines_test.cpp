// What all engines have in common, and those that write one score: quality, mask and both kinds of liveness.

#include "support/engines.hpp"
#include "support/frames.hpp"

#include <veldan/align.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using veldan::EngineAccess;
using veldan_tests::changedWords;
using veldan_tests::faceWithBox;
using veldan_tests::FrameAtTheEnd;
using veldan_tests::LinearLayer;
using veldan_tests::loadInto;
using veldan_tests::noiseFrame;
using veldan_tests::plainRegion;
using veldan_tests::plainResize;
using veldan_tests::scoreNetwork;

using Evaluate = std::function<int(unsigned char*, int, int, int, VDFACEINFOEX*)>;

// One evaluation of a fresh engine.
struct Evaluation {
    Evaluate evaluate;
    std::function<int(char*)> load; // the embedded network
    std::function<int()> free;
    std::function<int(char*)> dataSize;
    cv::dnn::Net* net;
};

struct FaceEngine {
    const char* name;
    Evaluation (*make)();
    // Only of those that write a score:
    const char* output = nullptr;
    int scoreClass = 0;
    std::size_t samples = 0;
    int word = 0;
    bool looksAtTheBox = false; // else at the key points
};

template <class Engine>
Evaluation makeEvaluation(int (Engine::*evaluate)(unsigned char*, int, int, int, VDFACEINFOEX*),
                          int (Engine::*load)(char*), int (Engine::*free)(), cv::dnn::Net& (*net)(Engine&)) {
    auto engine = std::make_shared<Engine>();
    Engine* const raw = engine.get();
    return {[=](auto... a) { return (engine.get()->*evaluate)(a...); }, [=](char* path) { return (raw->*load)(path); },
            [=] { return (raw->*free)(); }, [=](char* path) { return raw->vdGetDataSize(path); }, &net(*raw)};
}

const FaceEngine engines[] = {
    {"Quality",
     [] {
         return makeEvaluation(&QUALITYEVALUATION::mqQualityEvaluation, &QUALITYEVALUATION::mqInitAlg,
                               &QUALITYEVALUATION::mqFreeAlg, &EngineAccess::net<QUALITYEVALUATION>);
     },
     "softmax/Softmax", 1, 24 * 24 * 3, 248, true},
    {"Mask",
     [] {
         return makeEvaluation(&vdFaceMask::maskEvaluation, &vdFaceMask::maskInitAlg, &vdFaceMask::maskFreeAlg,
                               &EngineAccess::net<vdFaceMask>);
     },
     "Softmax", 1, 48 * 48 * 3, 257, true},
    {"VisibleLiveness",
     [] {
         return makeEvaluation(&vdSpoofDetection::vdSpoofRGBEvaluation, &vdSpoofDetection::vdSpoofInitAlg,
                               &vdSpoofDetection::vdSpoofFreeAlg, &EngineAccess::rgbNet);
     },
     "whatever", 1, 112 * 112 * 3, 250, false},
    {"InfraredLiveness",
     [] {
         return makeEvaluation(&vdSpoofDetection::vdSpoofNIREvaluation, &vdSpoofDetection::vdSpoofInitAlg,
                               &vdSpoofDetection::vdSpoofFreeAlg, &EngineAccess::nirNet);
     },
     "comes/last", 0, 80 * 64, 250, false},
    {"TwoPoints",
     [] {
         return makeEvaluation(&vdFaceLandmark::landmarkEvaluation, &vdFaceLandmark::landmarkInitAlg,
                               &vdFaceLandmark::landmarkFreeAlg, &EngineAccess::net<vdFaceLandmark>);
     }},
    {"Refinement",
     [] {
         return makeEvaluation(&OnetLandmark::mOnetLandmark, &OnetLandmark::mOnetInitAlg, &OnetLandmark::mOnetFreeAlg,
                               &EngineAccess::net<OnetLandmark>);
     }},
};
constexpr std::size_t scoreEngines = 4;

void PrintTo(const FaceEngine& engine, std::ostream* out) {
    *out << engine.name;
}

int wordOf(const VDFACEINFOEX& face, int word) {
    int value;
    std::memcpy(&value, reinterpret_cast<const char*>(&face) + word * 4, 4);
    return value;
}

// A face with both kinds of key points. The mask score is that of a record nobody wrote to, and so the face is bare.
VDFACEINFOEX someFace() {
    VDFACEINFOEX face = faceWithBox(40, 30, 70, 90);
    const int x[] = {60, 92, 75, 62, 91, 35, 118};
    const int y[] = {70, 72, 88, 107, 106, 28, 110};
    std::copy_n(x, 7, face.keyPointX);
    std::copy_n(y, 7, face.keyPointY);
    return face;
}

class FaceEngines : public testing::TestWithParam<FaceEngine> {
protected:
    int evaluate(VDFACEINFOEX* faces, int count = 1) {
        return engine.evaluate(frame.data, frame.cols, frame.rows, count, faces);
    }

    Evaluation engine = GetParam().make();
    cv::Mat frame = noiseFrame(160, 140);
};

TEST_P(FaceEngines, RefuseWhatMakesNoSense) {
    const VDFACEINFOEX before = someFace();
    VDFACEINFOEX face = before;
    EXPECT_EQ(evaluate(&face), -1) << "without a network";
    ASSERT_EQ(engine.load(nullptr), 0);
    for (const int count : {0, -1, INT_MIN}) {
        EXPECT_EQ(evaluate(&face, count), 0);
        EXPECT_EQ(engine.evaluate(nullptr, 0, 0, count, nullptr), 0);
    }
    EXPECT_EQ(engine.evaluate(nullptr, 160, 140, 1, &face), -1);
    EXPECT_EQ(engine.evaluate(frame.data, 160, 140, 1, nullptr), -1);
    EXPECT_EQ(engine.evaluate(frame.data, 0, 140, 1, &face), -1);
    EXPECT_EQ(engine.evaluate(frame.data, 160, INT_MIN, 1, &face), -1);
    EXPECT_THAT(changedWords(before, face), IsEmpty());
}

TEST_P(FaceEngines, KeepTheNetworkAsLongAsTheObject) {
    char path[] = "/nowhere";
    ASSERT_EQ(engine.load(path), 0);
    EXPECT_EQ(engine.load(nullptr), 0);
    VDFACEINFOEX face = someFace();
    VDFACEINFOEX again = face;
    ASSERT_EQ(evaluate(&face), 0);
    EXPECT_EQ(engine.free(), 0);
    EXPECT_EQ(engine.free(), 0);
    ASSERT_EQ(evaluate(&again), 0);
    EXPECT_THAT(changedWords(face, again), IsEmpty());
    EXPECT_EQ(engine.dataSize(path), 0);
    EXPECT_EQ(engine.dataSize(nullptr), 0);
}

TEST_P(FaceEngines, ReadNothingPastTheFrame) {
    ASSERT_EQ(engine.load(nullptr), 0);
    for (const int width : {140, 161}) {
        frame = noiseFrame(width, 133);
        FrameAtTheEnd end(frame);
        for (const int side : {5, 24, 48, 95}) {
            VDFACEINFOEX expected = faceWithBox(width - side, 133 - side, side, side);
            for (int k = 0; k < 7; ++k) {
                expected.keyPointX[k] = width - side / (k + 1);
                expected.keyPointY[k] = 133 - side / (7 - k);
            }
            VDFACEINFOEX face = expected;
            ASSERT_EQ(evaluate(&expected), 0);
            ASSERT_EQ(engine.evaluate(end.data(), width, 133, 1, &face), 0);
            EXPECT_THAT(changedWords(expected, face), IsEmpty());
        }
    }
}

const auto nameOf = [](const auto& info) { return std::string(info.param.name); };
INSTANTIATE_TEST_SUITE_P(All, FaceEngines, testing::ValuesIn(engines), nameOf);

class ScoreEngines : public FaceEngines {
protected:
    void load(const LinearLayer& layer) { loadInto(*engine.net, scoreNetwork(GetParam().output, layer)); }
    LinearLayer constant(float score) const {
        return {GetParam().samples,
                GetParam().scoreClass == 1 ? std::vector<float>{0.3F, score} : std::vector<float>{score, 0.3F}};
    }
};

TEST_P(ScoreEngines, CutTheProductOff) {
    // 0.29 is below 29 hundredths, but its product with 100 is 29 in single precision.
    const std::pair<float, int> scores[] = {{0, 0},          {0.799F, 79},       {0.999F, 99},
                                            {1, 100},        {0.405F, 40},       {0.415F, 41},
                                            {0.29F, 29},     {0.0099F, 0},       {std::nextafter(1.0F, 0.0F), 99},
                                            {3e9F, INT_MAX}, {INFINITY, INT_MAX}};
    for (const auto& [score, expected] : scores) {
        load(constant(score));
        const VDFACEINFOEX before = someFace();
        VDFACEINFOEX faces[] = {before, before, before};
        ASSERT_EQ(evaluate(faces, 2), 0);
        EXPECT_EQ(wordOf(faces[0], GetParam().word), expected) << score;
        EXPECT_THAT(changedWords(before, faces[0]), ElementsAre(GetParam().word));
        EXPECT_THAT(changedWords(faces[0], faces[1]), IsEmpty());
        EXPECT_THAT(changedWords(before, faces[2]), IsEmpty());
    }
}

TEST_P(ScoreEngines, DoNotReadPastAShortAnswer) {
    loadInto(*engine.net, scoreNetwork(GetParam().output, LinearLayer(GetParam().samples, {0.5F})));
    VDFACEINFOEX face = someFace();
    EXPECT_THROW(evaluate(&face), cv::Exception);
}

TEST_P(ScoreEngines, HostileRecordsEndWithAScoreOrAnException) {
    load(constant(0.5F));
    for (const int a : {INT_MIN, -1, 0, 1, INT_MAX}) {
        for (const int b : {INT_MIN, -1, 0, 50, INT_MAX}) {
            for (const int masked : {0, 100}) {
                VDFACEINFOEX face = faceWithBox(a, b, b, a);
                std::fill_n(face.keyPointX, 120, a);
                std::fill_n(face.keyPointY, 120, b);
                face.maskScore = masked;
                if (!GetParam().looksAtTheBox) {
                    EXPECT_EQ(evaluate(&face), 0);
                    EXPECT_EQ(face.liveness, 50);
                } else {
                    try {
                        evaluate(&face);
                        EXPECT_EQ(wordOf(face, GetParam().word), 50);
                    } catch (const cv::Exception&) {
                        EXPECT_EQ(face.maskScore, masked); // nothing was written
                    }
                }
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(All, ScoreEngines, testing::ValuesIn(engines, engines + scoreEngines), nameOf);

// What each network is shown, told by a score that is a weighted sum of all samples: some 10, in hundredths.
class ShownCrop : public testing::Test {
protected:
    void use(const FaceEngine& scoreEngine) {
        kind = &scoreEngine;
        engine = scoreEngine.make();
        layer = std::make_unique<LinearLayer>(LinearLayer(scoreEngine.samples, {10, 10}).randomize(6, 0.03F));
        loadInto(*engine.net, scoreNetwork(scoreEngine.output, *layer));
    }
    void expectShown(const cv::Mat& crop, VDFACEINFOEX face, double tolerance = 1) {
        ASSERT_EQ(engine.evaluate(frame.data, frame.cols, frame.rows, 1, &face), 0);
        const double expected = 100 * layer->of(crop)[static_cast<std::size_t>(kind->scoreClass)];
        ASSERT_GT(expected, 0);
        EXPECT_NEAR(wordOf(face, kind->word), std::trunc(expected), tolerance);
    }

    const FaceEngine* kind = nullptr;
    Evaluation engine;
    std::unique_ptr<LinearLayer> layer;
    cv::Mat frame = noiseFrame(640, 480);
};

TEST_F(ShownCrop, QualityClipsTheSquareAndStretchesIt) {
    use(engines[0]);
    const struct {
        cv::Rect box;
        cv::Rect shown;
    } cases[] = {
        {{100, 50, 40, 60}, {90, 50, 60, 60}},     {{10, 10, 61, 40}, {10, 0, 61, 61}}, // half of -21 is -10
        {{200, 100, 24, 24}, {200, 100, 24, 24}},  {{0, 0, 50, 80}, {0, 0, 65, 80}},
        {{600, 400, 60, 100}, {580, 400, 60, 80}}, {{-30, -40, 100, 100}, {0, 0, 70, 60}},
        {{-10, -10, 900, 700}, {0, 0, 640, 480}},  {{639, 479, 1, 1}, {639, 479, 1, 1}},
        {{300, 200, -7, 50}, {272, 200, 50, 50}}, // half of -57 is -28
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.box);
        expectShown(plainResize(plainRegion(frame, c.shown), 24),
                    faceWithBox(c.box.x, c.box.y, c.box.width, c.box.height));
    }
    for (const cv::Rect& box : {cv::Rect(640, 100, 50, 50), {-60, 100, 50, 60}, {10, 10, 0, 0}, {10, 10, -4, -4}}) {
        VDFACEINFOEX face = faceWithBox(box.x, box.y, box.width, box.height);
        EXPECT_THROW(engine.evaluate(frame.data, 640, 480, 1, &face), cv::Exception) << box;
    }
}

TEST_F(ShownCrop, MaskPadsTheSquare) {
    use(engines[1]);
    expectShown(plainResize(plainRegion(frame, {10, 30, 100, 100}), 48), faceWithBox(10, 50, 100, 60));
    expectShown(plainResize(plainRegion(frame, {-10, 30, 100, 100}), 48), faceWithBox(0, 30, 80, 100));
    expectShown(plainResize(plainRegion(frame, {600, 430, 90, 90}), 48), faceWithBox(600, 430, 90, 90));
}

TEST_F(ShownCrop, LivenessAlignsBareAndMaskedFacesTheirOwnWay) {
    for (const FaceEngine* liveness : {&engines[2], &engines[3]}) {
        use(*liveness);
        for (const int maskScore : {INT_MIN, -1, 0, 39, 40, 41, 100}) {
            SCOPED_TRACE(testing::Message() << liveness->name << ", mask score " << maskScore);
            VDFACEINFOEX face = someFace();
            face.maskScore = maskScore;
            cv::Mat crop(112, 112, CV_8UC3);
            if (maskScore < 40) {
                const float points[] = {60, 70, 92, 72, 75, 88, 62, 107, 91, 106};
                alignface_pinv(frame.data, 640, 480, crop.data, 112, 112, points);
            } else {
                const float points[] = {35, 28, 118, 110};
                alignface_mask(frame.data, 640, 480, crop.data, 112, 112, points);
            }
            if (liveness == &engines[2]) {
                expectShown(crop, face);
                continue;
            }
            // Grey, with the weight of red on blue and that of blue on red; rows 24 to 87, columns 16 to 95.
            cv::Mat grey(64, 80, CV_8UC1);
            for (int y = 0; y < 64; ++y)
                for (int x = 0; x < 80; ++x) {
                    const auto& pixel = crop.at<cv::Vec3b>(y + 24, x + 16);
                    grey.at<unsigned char>(y, x) =
                        cv::saturate_cast<unsigned char>(0.299 * pixel[0] + 0.587 * pixel[1] + 0.114 * pixel[2]);
                }
            expectShown(grey, face, 2);
        }
    }
}

TEST(Rounding, PositiveHalvesGoToEvenNegativeOnesAway) {
    QUALITYEVALUATION engine;
    const std::pair<float, int> cases[] = {{2.5F, 2},
                                           {3.5F, 4},
                                           {0.5F, 0},
                                           {1.5F, 2},
                                           {-2.5F, -3},
                                           {-0.5F, -1},
                                           {-1.5F, -2},
                                           {2.4F, 2},
                                           {2.6F, 3},
                                           {-2.4F, -2},
                                           {-2.6F, -3},
                                           {0, 0},
                                           {4194303.5F, 4194304},
                                           {8388607, 8388607},
                                           {3e9F, INT_MAX},
                                           {-3e9F, INT_MIN},
                                           {NAN, 0},
                                           {INFINITY, INT_MAX},
                                           {std::nextafter(0.5F, 0.0F), 0}};
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(engine.np_round(value), expected) << value;
}

} // namespace
