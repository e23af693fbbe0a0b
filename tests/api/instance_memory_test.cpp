// Instances with all their engines at work, again and again.

#include <veldan/face_landmark.hpp>
#include <veldan/face_mask.hpp>
#include <veldan/instance.hpp>
#include <veldan/onet_landmark.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/spoof_detection.hpp>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <cstddef>
#include <malloc.h>
#include <vector>

#if defined(__SANITIZE_ADDRESS__)
// GCC comes without the header that declares it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace {

// Bytes that were allocated and not freed yet; 0 when the allocator cannot tell.
std::size_t allocatedBytes() {
#if defined(__SANITIZE_ADDRESS__)
    return __sanitizer_get_current_allocated_bytes();
#elif defined(__SANITIZE_THREAD__)
    return 0;
#else
    const auto usage = mallinfo2();
    return usage.uordblks + usage.hblkhd;
#endif
}

class InstanceAtWork : public testing::Test {
protected:
    void SetUp() override {
        cv::setNumThreads(1);
        const cv::Mat photo = cv::imread(VELDAN_PHOTO_DIR "/astronaut.jpg", cv::IMREAD_COLOR);
        ASSERT_FALSE(photo.empty());
        frame = photo(cv::Rect(120, 20, 200, 200)).clone();
    }

    // Creates an instance, lets every engine judge the face, and frees it.
    void createUseFree() {
        VdFaceAPI instance;
        ASSERT_EQ(instance.vdInitAlg(nullptr, 0, 100), 0);
        std::vector<VDFACEINFOEX> faces(5000);
        int count = 0;
        const auto onFrame = [&](auto operation) { ASSERT_EQ(operation(frame.data, frame.cols, frame.rows), 0); };
        onFrame([&](auto... f) { return instance.vdDetectFace(f..., &count, faces.data()); });
        ASSERT_EQ(count, 1);
        onFrame([&](auto... f) { return instance.faceQuality->mqQualityEvaluation(f..., count, faces.data()); });
        onFrame([&](auto... f) { return instance.faceMask->maskEvaluation(f..., count, faces.data()); });
        onFrame([&](auto... f) { return instance.livenessDetector->vdSpoofRGBEvaluation(f..., count, faces.data()); });
        onFrame([&](auto... f) { return instance.livenessDetector->vdSpoofNIREvaluation(f..., count, faces.data()); });
        onFrame([&](auto... f) { return instance.onetLandmark->mOnetLandmark(f..., count, faces.data()); });
        std::vector<unsigned char> feature(520);
        onFrame([&](auto... f) { return instance.vdExtractFeature(f..., count, faces.data(), feature.data()); });
        onFrame([&](auto... f) { return instance.vdMaskExtractFeature(f..., count, faces.data(), feature.data()); });
        ASSERT_EQ(instance.vdFreeAlg(), 0);
    }

    cv::Mat frame;
};

TEST_F(InstanceAtWork, SixtyLivesLeaveNoMemoryBehind) {
    // What OpenCV keeps for good it has taken by then.
    for (int life = 0; life < 5; ++life)
        ASSERT_NO_FATAL_FAILURE(createUseFree());
    const std::size_t before = allocatedBytes();
    for (int life = 0; life < 60; ++life)
        ASSERT_NO_FATAL_FAILURE(createUseFree());
    const std::size_t after = allocatedBytes();
    // The sanitizer counts exactly. The C library counts what it keeps in its own caches as well: some kilobytes that
    // stop growing. A leak of 330 bytes a life exceeds the limit.
    EXPECT_LE(after, before + 20480);
}

TEST_F(InstanceAtWork, DetectionNeedsTheTwoPointEngine) {
    VdFaceAPI instance;
    ASSERT_EQ(instance.vdInitAlg(nullptr, 0, 0), 0);
    VdFaceAPI::FreeLandmarkEngine(instance.faceLandmark);
    int error = -1;
    instance.faceLandmark = new vdFaceLandmark; // without a network
    std::vector<VDFACEINFOEX> faces(5000);
    int count = 0;
    EXPECT_EQ(instance.vdDetectFace(frame.data, frame.cols, frame.rows, &count, faces.data()), 14);
    EXPECT_EQ(count, 1) << "the face was found all the same";
    VdFaceAPI::FreeLandmarkEngine(instance.faceLandmark);
    instance.faceLandmark = VdFaceAPI::InitFaceLandmarkEngine(nullptr, &error);
    EXPECT_EQ(instance.vdDetectFace(frame.data, frame.cols, frame.rows, &count, faces.data()), 0);
    EXPECT_EQ(instance.vdFreeAlg(), 0);
}

} // namespace
