// One instance per thread, all at once: created, used and freed without a lock. Meant for ThreadSanitizer, and checks
// the results in every build.

#include <veldan/face_api.h>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>

#include <cstring>
#include <thread>
#include <vector>

namespace {

struct Found {
    int initResult = -1;
    int code = -1;
    int freeResult = -1;
    std::vector<VDFACEINFOEX> faces;
    std::vector<unsigned char> templates; // of the first face, bare and masked
};

Found createDetectFree(const cv::Mat& photo) {
    Found found;
    void* const handle = zzInitAlgThread(nullptr, &found.initResult);
    std::vector<VDFACEINFOEX> faces(VELDAN_DETECT_CAPACITY);
    int faceNum = 0;
    found.code = zzDetectFaceThread(handle, photo.data, photo.cols, photo.rows, &faceNum, faces.data());
    found.faces.assign(faces.begin(), faces.begin() + faceNum);
    found.templates.resize(2 * 520);
    zzExtractFeatureThread(handle, photo.data, photo.cols, photo.rows, 1, faces.data(), found.templates.data());
    zzMaskExtractFeatureThread(handle, photo.data, photo.cols, photo.rows, 1, faces.data(), &found.templates[520]);
    found.freeResult = zzFreeAlgThread(handle);
    return found;
}

TEST(Threads, FourInstancesAtOnce) {
    // OpenCV's own pool is not what is tested here.
    cv::setNumThreads(1);
    const cv::Mat photo = cv::imread(VELDAN_PHOTO_DIR "/astronaut.jpg", cv::IMREAD_COLOR);
    ASSERT_FALSE(photo.empty());

    std::vector<Found> found(4);
    std::vector<std::thread> threads;
    threads.reserve(found.size());
    for (Found& result : found)
        threads.emplace_back([&result, &photo] { result = createDetectFree(photo); });
    for (std::thread& thread : threads)
        thread.join();

    const Found alone = createDetectFree(photo);
    ASSERT_EQ(alone.initResult, 0);
    ASSERT_EQ(alone.code, 0);
    ASSERT_FALSE(alone.faces.empty());
    for (const Found& result : found) {
        EXPECT_EQ(result.initResult, 0);
        EXPECT_EQ(result.code, 0);
        EXPECT_EQ(result.freeResult, 0);
        ASSERT_EQ(result.faces.size(), alone.faces.size());
        EXPECT_EQ(std::memcmp(result.faces.data(), alone.faces.data(), alone.faces.size() * sizeof(VDFACEINFOEX)), 0);
        EXPECT_EQ(result.templates, alone.templates);
    }
}

} // namespace
