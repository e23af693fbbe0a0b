// The combined flows, through the entry points. Quality and mask engines answer what the test wants; the recognizers
// average the crop, so that different places of a noise image are different persons.

#include "support/averaging_network.hpp"
#include "support/engines.hpp"
#include "support/frames.hpp"
#include "support/templates.hpp"

#include <veldan/face_api.h>
#include <veldan/face_flows.hpp>
#include <veldan/instance.hpp>
#include <veldan/mask_recognizer.hpp>
#include <veldan/recognizer.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

using veldan_tests::append;
using veldan_tests::Bytes;
using veldan_tests::decode;
using veldan_tests::encode;
using veldan_tests::similarTo;

constexpr int width = 400;
constexpr int height = 200;
using Faces = std::vector<VDFACEINFOEX>;

class Flows : public testing::Test {
protected:
    void SetUp() override {
        std::memset(static_cast<void*>(&api), 0, sizeof(api));
        ASSERT_EQ(api.vdInitAlg(nullptr, 0, 10), 0);
        veldan_tests::loadAverages(veldan::EngineAccess::net(*api.faceRecognizer), "fc1_scale");
        veldan_tests::loadAverages(veldan::EngineAccess::net(*api.maskFaceRecognizer), "pre_fc1");
        for (int i = 0; i < 2; ++i) {
            VDFACEINFOEX& face = faces[static_cast<std::size_t>(i)];
            face = veldan_tests::faceWithBox(30 + 200 * i, 40, 90, 90);
            face.trackId = i;
            face.searchFlag = face.strangerFlag = 0;
            face.searchId = -7;
            face.searchScore = -8;
            face.quality = 80;
            const int points[][2] = {{30, 40}, {60, 40}, {45, 60}, {32, 75}, {58, 75}, {-2, -2}, {92, 94}};
            for (int k = 0; k < 7; ++k) {
                face.keyPointX[k] = face.x + points[k][0];
                face.keyPointY[k] = face.y + points[k][1];
            }
            bare.push_back(extracted(zzExtractFeatureThread, face));
            masked.push_back(extracted(zzMaskExtractFeatureThread, face));
        }
        answer(0, 80);
    }
    void TearDown() override { api.vdFreeAlg(); }

    // What the engines say of every face, in percent.
    void answer(int mask, int quality) {
        const auto share = [](int percent) { return (static_cast<float>(percent) + 0.5F) / 100; };
        veldan_tests::loadInto(veldan::EngineAccess::net(*api.faceMask),
                               veldan_tests::scoreNetwork("Softmax", {48 * 48 * 3, {0.0F, share(mask)}}));
        veldan_tests::loadInto(veldan::EngineAccess::net(*api.faceQuality),
                               veldan_tests::scoreNetwork("softmax/Softmax", {24 * 24 * 3, {0.0F, share(quality)}}));
    }

    using Extraction = int (*)(void*, unsigned char*, int, int, int, VDFACEINFOEX*, unsigned char*);
    Bytes extracted(Extraction extract, VDFACEINFOEX face) {
        Bytes bytes(veldan_tests::templateSize);
        EXPECT_EQ(extract(&api, image.data, width, height, 1, &face, bytes.data()), 0);
        return bytes;
    }

    // Persons 0 and 1 have two templates and one: strangers but for what is asked.
    Bytes gallery(int kind, int face, double score) const {
        const Bytes& own = (kind == 1 ? bare : masked)[static_cast<std::size_t>(face)];
        const auto feature = decode(own.data(), kind);
        Bytes all;
        append(all, encode(similarTo(feature, 0.405, 5), kind));
        append(all, encode(similarTo(feature, 0.425, 6), kind));
        append(all, encode(similarTo(feature, score, 7), kind));
        return all;
    }

    void expectVerdict(std::size_t face, int flag, int id, int score) const {
        EXPECT_EQ(faces[face].searchFlag, flag);
        EXPECT_EQ(faces[face].searchId, id);
        EXPECT_EQ(faces[face].searchScore, score);
    }
    void expectUntouched(std::size_t face) const { expectVerdict(face, 0, -7, -8); }

    VdFaceAPI api;
    cv::Mat image = veldan_tests::noiseFrame(width, height, 5, 31);
    Faces faces = Faces(2);
    std::vector<Bytes> bare;
    std::vector<Bytes> masked;
    int counts[2] = {2, 1};
};

// The tracked search of one kind, by its entry point or with the kind as an argument.
class TrackedFlow : public Flows, public testing::WithParamInterface<int> {
protected:
    int run(Bytes searched, int threshold, int qualityThreshold = 60) {
        const auto flow = kind == 1 ? zzSearchFaceThread : zzMaskSearchFaceThread;
        return flow(&api, searched.data(), 3, counts, 2, threshold, qualityThreshold, image.data, width, height, 2,
                    faces.data());
    }

    int kind = GetParam();
};

TEST_P(TrackedFlow, SearchesGoodFacesUntilTheyAreKnown) {
    faces[1].quality = 59;
    EXPECT_EQ(run(gallery(kind, 0, 0.855), 70), 0);
    expectVerdict(0, 1, 1, 85);
    expectUntouched(1);
    EXPECT_EQ(faces[0].quality, 80) << "quality is what tracking wrote";

    // The verdict ages; the face is not searched again, also when nobody is like it any more.
    faces[1].quality = 60;
    EXPECT_EQ(run(gallery(kind, 1, 0.905), 70), 0);
    expectVerdict(0, 2, 1, 85);
    expectVerdict(1, 1, 1, 90);
    faces[0].searchFlag = 999999;
    EXPECT_EQ(run(Bytes(3 * 520), 70), 0);
    EXPECT_EQ(faces[0].searchFlag, 1000000);
    EXPECT_EQ(run(Bytes(3 * 520), 70), 0);
    expectVerdict(0, 1, 1, 85);
    expectVerdict(1, 3, 1, 90);
}

TEST_P(TrackedFlow, StrangersAreCountedFromTheVerdictOn) {
    faces[1].quality = 0;
    for (int call = 1; call <= 4; ++call) {
        EXPECT_EQ(run(gallery(kind, 0, 0.705), 75), 0);
        EXPECT_EQ(faces[0].strangerFlag, 0) << call;
    }
    EXPECT_EQ(run(gallery(kind, 0, 0.705), 75), 0);
    EXPECT_EQ(faces[0].strangerFlag, 1);
    expectVerdict(0, 0, -7, 70);
    // Searched on, and counted on, also through the next verdict.
    for (int call = 2; call <= 7; ++call) {
        EXPECT_EQ(run(gallery(kind, 0, 0.705), 75), 0);
        EXPECT_EQ(faces[0].strangerFlag, call);
    }
    faces[0].strangerFlag = 1000000;
    EXPECT_EQ(run(gallery(kind, 0, 0.855), 75), 0);
    EXPECT_EQ(faces[0].strangerFlag, 1);
    expectVerdict(0, 1, 1, 85);
}

TEST_P(TrackedFlow, KindAsAnArgument) {
    Bytes searched = gallery(kind, 0, 0.855);
    EXPECT_EQ(
        SearchFaceThread(kind, &api, searched.data(), 3, counts, 2, 70, 60, image.data, width, height, 1, faces.data()),
        0);
    expectVerdict(0, 1, 1, 85);
    EXPECT_EQ(SearchFaceThread(kind, nullptr, searched.data(), 3, counts, 2, 70, 60, image.data, width, height, 2,
                               faces.data()),
              12);
    expectVerdict(0, 1, 1, 85);
    EXPECT_EQ(
        SearchFaceThread(kind, &api, searched.data(), 3, counts, 2, 70, 60, image.data, width, height, 2, nullptr), 0);
}

std::string nameOfKind(const testing::TestParamInfo<int>& info) {
    return info.param == 1 ? "Bare" : "Masked";
}
INSTANTIATE_TEST_SUITE_P(Kinds, TrackedFlow, testing::Values(1, 2), nameOfKind);

TEST_F(Flows, AllFacesPicksTheKind) {
    Bytes bareGallery = gallery(1, 0, 0.855);
    Bytes maskGallery = gallery(2, 0, 0.905);
    const auto run = [&](int maskScore, int quality) {
        answer(maskScore, 99);
        faces[0].quality = quality;
        faces[0].searchFlag = 0;
        faces[0].searchId = -7;
        faces[0].searchScore = -8;
        EXPECT_EQ(zzSearchAllFaceThread(&api, bareGallery.data(), maskGallery.data(), 3, counts, 2, 70, 75, 61,
                                        image.data, width, height, 1, faces.data()),
                  0);
        EXPECT_EQ(faces[0].maskScore, maskScore);
        EXPECT_EQ(faces[0].quality, quality) << "quality is what tracking wrote";
    };
    run(41, 30); // 61 / 2
    expectVerdict(0, 1, 1, 90);
    run(41, 29);
    expectUntouched(0);
    run(40, 60);
    expectUntouched(0);
    run(40, 61);
    expectVerdict(0, 1, 1, 85);

    // Each kind has its threshold.
    bareGallery = gallery(1, 0, 0.725);
    maskGallery = gallery(2, 0, 0.725);
    for (int call = 0; call < 3; ++call)
        run(40, 80);
    expectVerdict(0, 1, 1, 72);
    for (int call = 0; call < 5; ++call)
        run(41, 80);
    EXPECT_EQ(faces[0].searchFlag, 0);
    EXPECT_EQ(faces[0].strangerFlag, 1);
    EXPECT_EQ(zzSearchAllFaceThread(nullptr, bareGallery.data(), maskGallery.data(), 3, counts, 2, 70, 75, 61,
                                    image.data, width, height, 1, faces.data()),
              12);
}

TEST_F(Flows, OneShotOfTheFirstFace) {
    Bytes bareGallery = gallery(1, 0, 0.795);
    Bytes maskGallery = gallery(2, 0, 0.825);
    const auto run = [&](int threshold, int maskThreshold, int faceNum = 2) {
        return zzMaxFaceRecogThread(&api, bareGallery.data(), maskGallery.data(), 0, counts, 2, threshold,
                                    maskThreshold, 60, image.data, width, height, faceNum, faces.data());
    };
    EXPECT_EQ(run(80, 0), 0);
    expectVerdict(0, -1, -1, 79);
    EXPECT_EQ(run(79, 100), 0);
    expectVerdict(0, 1, 1, 79);
    EXPECT_EQ(faces[0].quality, 80);
    EXPECT_EQ(faces[1].quality, 80) << "judged for all";
    expectUntouched(1);

    answer(41, 30);
    EXPECT_EQ(run(0, 83), 0);
    expectVerdict(0, -1, -1, 82);
    EXPECT_EQ(run(100, 82), 0);
    expectVerdict(0, 1, 1, 82);
    answer(41, 29);
    EXPECT_EQ(run(0, 0), 32);
    answer(40, 59);
    EXPECT_EQ(run(0, 0), 32);
    EXPECT_EQ(run(0, 0, 0), 32);
    expectVerdict(0, 1, 1, 82);

    // One template that cannot be compared is the end of it, wherever it stands.
    answer(0, 80);
    bareGallery[519 + 520] = static_cast<unsigned char>(bareGallery[519 + 520] ^ 1U);
    EXPECT_EQ(run(10, 10), 17);
    expectVerdict(0, -1, -100, 0);
    bareGallery = maskGallery;
    EXPECT_EQ(run(10, 10), 17);
    EXPECT_EQ(zzMaxFaceRecogThread(nullptr, nullptr, nullptr, 0, nullptr, 0, 0, 0, 0, nullptr, 0, 0, 0, nullptr), 12);
}

TEST_F(Flows, OneShotOfEveryGoodFace) {
    for (const int kind : {1, 2}) {
        SCOPED_TRACE(kind);
        Bytes searched = gallery(kind, 1, 0.725);
        const auto run = [&](void* handle, int threshold) {
            return kind == 1 ? zzDetectSearchFaceThread(handle, searched.data(), 3, threshold, 60, image.data, width,
                                                        height, 2, faces.data())
                             : DetectSearchFaceThread(kind, handle, searched.data(), 3, threshold, 60, image.data,
                                                      width, height, 2, faces.data());
        };
        answer(99, 60); // no mask rule here
        EXPECT_EQ(run(&api, 72), 0);
        expectVerdict(1, 1, 2, 72);
        EXPECT_EQ(run(&api, 73), 0);
        expectVerdict(1, 0, -1, 72);
        EXPECT_EQ(faces[0].quality, 60);
        answer(0, 59);
        EXPECT_EQ(run(&api, 10), 0);
        expectVerdict(1, 0, -1, 72);
        EXPECT_EQ(run(nullptr, 10), 0);
    }
}

TEST_F(Flows, OneShotOfEveryGoodFaceOfEitherKind) {
    // The second gallery is not used: masked faces are searched in the first one too.
    Bytes both = gallery(2, 1, 0.755);
    append(both, gallery(1, 1, 0.725));
    Bytes unused(6 * 520);
    const auto run = [&](void* handle, int threshold, int maskThreshold) {
        return zzDetectSearchAllFaceThread(handle, both.data(), unused.data(), 6, threshold, maskThreshold, 60,
                                           image.data, width, height, 2, faces.data());
    };
    EXPECT_EQ(run(&api, 72, 99), 0);
    expectVerdict(1, 1, 5, 72);
    answer(41, 30);
    EXPECT_EQ(run(&api, 99, 75), 0);
    expectVerdict(1, 1, 2, 75);
    EXPECT_EQ(run(&api, 0, 76), 0);
    expectVerdict(1, 0, -1, 75);
    answer(40, 59);
    faces[1].searchScore = -8;
    EXPECT_EQ(run(&api, 0, 0), 0);
    expectVerdict(1, 0, -1, -8);
    EXPECT_EQ(run(nullptr, 0, 0), 0);
}

} // namespace
