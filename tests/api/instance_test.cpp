#include "support/expect_empty_instance.hpp"

#include <veldan/instance.hpp>

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace {

// As the entry points do it: raw memory of any content.
class Instance : public testing::Test {
protected:
    struct Free {
        void operator()(VdFaceAPI* instance) const {
            instance->vdFreeAlg();
            std::free(instance);
        }
    };

    static std::unique_ptr<VdFaceAPI, Free> create(int capacity, int mode = 0) {
        void* const memory = std::malloc(sizeof(VdFaceAPI));
        std::memset(memory, 0xA5, sizeof(VdFaceAPI));
        std::unique_ptr<VdFaceAPI, Free> instance(static_cast<VdFaceAPI*>(memory));
        char path[] = "/nowhere";
        EXPECT_EQ(instance->vdInitAlg(path, mode, capacity), 0);
        return instance;
    }
};

TEST_F(Instance, FieldsInOrder) {
    const std::size_t pointer = sizeof(void*);
    const std::size_t faces = 8 * pointer + 8;
    EXPECT_EQ(offsetof(VdFaceAPI, faceDetector), 0 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, faceQuality), 1 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, faceRecognizer), 2 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, livenessDetector), 3 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, faceMask), 4 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, faceLandmark), 5 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, onetLandmark), 6 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, maskFaceRecognizer), 7 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, currentFaceNum), 8 * pointer);
    EXPECT_EQ(offsetof(VdFaceAPI, previousFaceNum), 8 * pointer + 4);
    EXPECT_EQ(offsetof(VdFaceAPI, currentFaces), faces);
    EXPECT_EQ(offsetof(VdFaceAPI, previousFaces), faces + 104800);
    EXPECT_EQ(offsetof(VdFaceAPI, searchHistory), faces + 209600);
    EXPECT_EQ(offsetof(VdFaceAPI, capacity), faces + 209600 + pointer);
}

TEST_F(Instance, HistoryFollowsTheCapacity) {
    // A negative capacity counts as 0, which still gives rows of three words.
    const std::pair<int, int> cases[] = {{15000, 15000}, {1, 1}, {0, 0}, {-1, 0}, {-2147483647 - 1, 0}};
    for (const auto& [asked, expected] : cases) {
        SCOPED_TRACE(asked);
        const auto instance = create(asked, asked % 2);
        EXPECT_NE(instance->faceDetector, nullptr);
        EXPECT_NE(instance->faceQuality, nullptr);
        EXPECT_NE(instance->faceRecognizer, nullptr);
        EXPECT_NE(instance->livenessDetector, nullptr);
        EXPECT_NE(instance->faceMask, nullptr);
        EXPECT_NE(instance->faceLandmark, nullptr);
        EXPECT_NE(instance->onetLandmark, nullptr);
        EXPECT_NE(instance->maskFaceRecognizer, nullptr);
        EXPECT_EQ(instance->capacity, expected);
        EXPECT_EQ(instance->currentFaceNum, 0);
        EXPECT_EQ(instance->previousFaceNum, 0);
        ASSERT_NE(instance->searchHistory, nullptr);
        for (int row = 0; row < 100; ++row) {
            ASSERT_NE(instance->searchHistory[row], nullptr);
            for (int word = 0; word < 3 * (expected + 1); ++word)
                ASSERT_EQ(instance->searchHistory[row][word], 0);
        }
    }
}

TEST_F(Instance, FreeingTwiceIsHarmless) {
    const auto instance = create(5);
    EXPECT_EQ(instance->vdFreeAlg(), 0);
    veldan_tests::expectEmpty(*instance);
    EXPECT_EQ(instance->vdFreeAlg(), 0);
    veldan_tests::expectEmpty(*instance);

    // A freed instance still answers, and may be loaded again.
    std::unique_ptr<unsigned char[]> image(new unsigned char[100 * 100 * 3]());
    VDFACEINFOEX face;
    int faceNum = 9;
    EXPECT_EQ(instance->vdDetectFace(image.get(), 100, 100, &faceNum, &face), 13);
    EXPECT_EQ(faceNum, 0);
    EXPECT_EQ(instance->vdInitAlg(nullptr, 0, 6), 0);
    EXPECT_EQ(instance->capacity, 6);
}

template <auto Init, auto Free>
void expectOperations() {
    EXPECT_EQ(Free(nullptr), 0);
    int error = -1;
    auto* const engine = Init(nullptr, &error);
    EXPECT_EQ(error, 0);
    ASSERT_NE(engine, nullptr);
    EXPECT_EQ(Free(engine), 0);
    EXPECT_EQ(Free(Init(nullptr, nullptr)), 0);
}

TEST_F(Instance, EngineOperations) {
    expectOperations<VdFaceAPI::InitFaceDetectorEngine, VdFaceAPI::FreeFaceDetectorEngine>();
    expectOperations<VdFaceAPI::InitFaceQualityEngine, VdFaceAPI::FreeQualityEngine>();
    expectOperations<VdFaceAPI::InitFaceRecognizerEngine, VdFaceAPI::FreeFaceRecognizerEngine>();
    expectOperations<VdFaceAPI::InitMaskFaceRecognizerEngine, VdFaceAPI::FreeMaskFaceRecognizerEngine>();
    expectOperations<VdFaceAPI::InitLivenessDetectorEngine, VdFaceAPI::FreeLivenessDetectorEngine>();
    expectOperations<VdFaceAPI::InitFaceMaskEngine, VdFaceAPI::FreeMaskEngine>();
    expectOperations<VdFaceAPI::InitFaceLandmarkEngine, VdFaceAPI::FreeLandmarkEngine>();
    expectOperations<VdFaceAPI::InitOnetLandmarkEngine, VdFaceAPI::FreeOnetLandmarkEngine>();
}

TEST_F(Instance, StringCopy) {
    char room[8] = "#######";
    EXPECT_EQ(VdFaceAPI::vdMyStrcpy(room, "abc"), room);
    EXPECT_EQ(std::string(room, 8), std::string("abc\0###\0", 8));
    VdFaceAPI::vdMyStrcpy(room, "");
    EXPECT_EQ(std::string(room, 8), std::string("\0bc\0###\0", 8));
    EXPECT_EQ(VdFaceAPI::vdMyStrcpy(nullptr, "abc"), nullptr);
    EXPECT_EQ(VdFaceAPI::vdMyStrcpy(room, nullptr), room);
}

} // namespace
