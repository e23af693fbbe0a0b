// The shared library as an application uses it.

#include <veldan/face_api.h>

#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>

#include <climits>
#include <cstring>
#include <string>
#include <vector>

namespace {

TEST(EntryPoints, Version) {
    std::string out(VELDAN_VERSION_SIZE + 1, '~');
    ASSERT_EQ(zzGetAlgVersionThread(out.data()), 0);
    EXPECT_EQ(out, std::string("Quilvane_FaceAPI_V5.4.7.20200817\0~", 34));
    EXPECT_EQ(zzGetAlgVersionThread(nullptr), 12);
}

class Detect : public testing::Test {
protected:
    static void SetUpTestSuite() {
        int result = -1;
        handle = zzInitAlgNThread(nullptr, 10, &result);
        ASSERT_EQ(result, 0);
        ASSERT_NE(handle, nullptr);
    }
    static void TearDownTestSuite() { EXPECT_EQ(zzFreeAlgThread(handle), 0); }

    // Runs detection and expects that no record was touched.
    void expectRejected(int code, void* instance, unsigned char* image, int width, int height, int* count) {
        std::memset(faces.data(), 0xA5, faces.size() * sizeof(faces[0]));
        const auto before = faces;
        EXPECT_EQ(zzDetectFaceThread(instance, image, width, height, count, faces.data()), code)
            << width << " x " << height;
        EXPECT_EQ(std::memcmp(faces.data(), before.data(), faces.size() * sizeof(faces[0])), 0);
    }

    static void* handle;
    std::vector<VDFACEINFOEX> faces = std::vector<VDFACEINFOEX>(VELDAN_DETECT_CAPACITY);
};

void* Detect::handle = nullptr;

TEST_F(Detect, NullHandle) {
    unsigned char pixel[3] = {};
    int faceNum = 7;
    expectRejected(12, nullptr, pixel, 99, 500, &faceNum);
    EXPECT_EQ(faceNum, 7) << "nothing is touched without an instance";
    EXPECT_EQ(zzDetectFaceThread(nullptr, nullptr, 0, 0, nullptr, nullptr), 12);
    EXPECT_EQ(zzFreeAlgThread(nullptr), 12);
}

TEST_F(Detect, SmallImages) {
    // One pixel only: a size that is rejected must be rejected before the image is read.
    unsigned char pixel[3] = {};
    const int sizes[][2] = {{99, 500},     {500, 99},     {1, 30000}, {30000, 1},     {0, 0},
                            {0, 500},      {500, 0},      {-1, 500},  {500, -1},      {-500, -500},
                            {99, INT_MAX}, {INT_MAX, 99}, {99, 99},   {INT_MIN, 500}, {500, INT_MIN}};
    for (const auto& size : sizes) {
        int faceNum = 1000;
        expectRejected(27, handle, pixel, size[0], size[1], &faceNum);
        EXPECT_EQ(faceNum, 0);
    }
    EXPECT_EQ(zzDetectFaceThread(handle, nullptr, 50, 50, nullptr, nullptr), 27);
}

TEST_F(Detect, NullPointers) {
    std::vector<unsigned char> image(100 * 100 * 3);
    int faceNum = 1000;
    expectRejected(13, handle, nullptr, 100, 100, &faceNum);
    EXPECT_EQ(faceNum, 0);
    faceNum = 1000;
    EXPECT_EQ(zzDetectFaceThread(handle, image.data(), 100, 100, &faceNum, nullptr), 13);
    EXPECT_EQ(faceNum, 0);
    expectRejected(13, handle, image.data(), 100, 100, nullptr);
}

TEST_F(Detect, NoFace) {
    for (const int size : {100, 333, 700}) {
        std::vector<unsigned char> image(static_cast<std::size_t>(size) * 100 * 3, 128);
        int faceNum = 1000;
        expectRejected(13, handle, image.data(), size, 100, &faceNum);
        EXPECT_EQ(faceNum, 0);
        faceNum = 1000;
        expectRejected(13, handle, image.data(), 100, size, &faceNum);
        EXPECT_EQ(faceNum, 0);
    }
}

TEST_F(Detect, WritesOnlyItsWords) {
    const cv::Mat photo = cv::imread(VELDAN_PHOTO_DIR "/astronaut.jpg", cv::IMREAD_COLOR);
    ASSERT_FALSE(photo.empty());
    const cv::Mat before = photo.clone();
    std::memset(faces.data(), 0xA5, faces.size() * sizeof(faces[0]));
    int faceNum = -1;
    ASSERT_EQ(zzDetectFaceThread(handle, photo.data, photo.cols, photo.rows, &faceNum, faces.data()), 0);
    EXPECT_EQ(cv::norm(photo, before), 0) << "the image belongs to the caller";
    ASSERT_EQ(faceNum, 1);

    // Box, count, key points 0 to 6, eye distance.
    constexpr int written[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 125, 126, 127, 128, 129, 130, 131, 249};
    std::vector<unsigned char> words(2 * sizeof(VDFACEINFOEX), 0xA5);
    for (const int word : written)
        std::memcpy(&words[static_cast<std::size_t>(word) * 4],
                    reinterpret_cast<unsigned char*>(faces.data()) + word * 4, 4);
    EXPECT_EQ(std::memcmp(words.data(), faces.data(), words.size()), 0);

    // The astronaut's face, as seen by eye, to some ten pixels.
    const VDFACEINFOEX& face = faces[0];
    EXPECT_EQ(face.keyPointNum, 5);
    EXPECT_NEAR(2 * face.x + face.width, 2 * 224, 30);
    EXPECT_NEAR(2 * face.y + face.height, 2 * 120, 50);
    EXPECT_NEAR(face.keyPointX[0], 206, 10);
    EXPECT_NEAR(face.keyPointX[1], 242, 10);
    EXPECT_NEAR(face.eyeDistance, 38, 8);
    EXPECT_LT(face.keyPointY[2], face.keyPointY[3]);

    std::vector<VDFACEINFOEX> again(VELDAN_DETECT_CAPACITY);
    std::memset(again.data(), 0xA5, again.size() * sizeof(again[0]));
    ASSERT_EQ(zzDetectFaceThread(handle, photo.data, photo.cols, photo.rows, &faceNum, again.data()), 0);
    EXPECT_EQ(std::memcmp(again.data(), faces.data(), sizeof(VDFACEINFOEX)), 0);
}

} // namespace
