// The embedded networks from frame to frame: what changes with the number of crops, and what must not.

#include "support/allocations.hpp"

#include <veldan/model_store.hpp>
#include <veldan/mtcnn.hpp>

#include <gtest/gtest.h>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <iterator>
#include <vector>

namespace {

cv::dnn::Net network(int (*length)(), int (*data)(unsigned char*)) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(length()));
    EXPECT_EQ(data(bytes.data()), 0);
    return cv::dnn::readNetFromTensorflow(bytes);
}

class Threads : public testing::TestWithParam<int> {
protected:
    void SetUp() override { cv::setNumThreads(GetParam()); }
    void TearDown() override { cv::setNumThreads(-1); }

    // NextStage() against one pass of all crops, bit for bit.
    static void expectOnePass(MTCNN& detector, int stage, cv::dnn::Net net, const std::vector<cv::String>& outputs) {
        const int side = stage == 2 ? 24 : 48;
        cv::Mat image(300, 400, CV_8UC3);
        cv::RNG random(7);
        random.fill(image, cv::RNG::UNIFORM, 0, 256);
        cv::GaussianBlur(image, image, cv::Size(), 3);
        for (const int count : {1, 2, 3, 5, 7, 8, 9, 39, 128}) {
            SCOPED_TRACE(count);
            std::vector<FaceInfo> boxes(static_cast<std::size_t>(count));
            std::vector<cv::Mat> crops;
            for (FaceInfo& box : boxes) {
                const cv::Rect place(random.uniform(0, 300), random.uniform(0, 200), 80, 80);
                box.x1 = static_cast<float>(place.x);
                box.y1 = static_cast<float>(place.y);
                box.x2 = static_cast<float>(place.br().x);
                box.y2 = static_cast<float>(place.br().y);
                cv::resize(image(place), crops.emplace_back(), cv::Size(side, side), 0, 0, cv::INTER_LINEAR);
            }
            net.setInput(cv::dnn::blobFromImages(crops, 0.0078125, cv::Size(), cv::Scalar::all(127.5)), "input_image");
            std::vector<cv::Mat> expected;
            net.forward(expected, outputs);

            const std::vector<FaceInfo> found = detector.NextStage(image, boxes, side, side, stage, 0);
            ASSERT_EQ(found.size(), boxes.size());
            for (int i = 0; i < count; ++i) {
                const FaceInfo& face = found[static_cast<std::size_t>(i)];
                ASSERT_EQ(face.score, expected[0].at<float>(i, 1)) << i;
                ASSERT_TRUE(
                    std::equal(std::begin(face.regression), std::end(face.regression), expected[1].ptr<float>(i)))
                    << i;
                if (stage == 2)
                    continue;
                const auto& box = boxes[static_cast<std::size_t>(i)];
                for (int k = 0; k < 10; ++k)
                    ASSERT_EQ(face.landmark[k], expected[2].at<float>(i, k) * 81 + (k % 2 == 0 ? box.x1 : box.y1));
            }
        }
    }
};

TEST_P(Threads, ABatchGivesWhatOnePassOfItGives) {
    MTCNN detector;
    ASSERT_EQ(detector.mtcnnInitAlg(nullptr), 0);
    expectOnePass(detector, 2, network(length_VELDAN_V5_1_0_FaceDetectR, data_VELDAN_V5_1_0_FaceDetectR),
                  {"cls_fc/Softmax", "bbox_fc/MatMul"});
    expectOnePass(detector, 3, network(length_VELDAN_V5_1_0_FaceDetectO, data_VELDAN_V5_1_0_FaceDetectO),
                  {"cls_fc/Softmax", "bbox_fc/MatMul", "landmark_fc/MatMul"});
}

INSTANTIATE_TEST_SUITE_P(Numbers, Threads, testing::Values(1, 2, 3, 16));

TEST(Memory, AsMuchAfterAnotherNumberOfFacesAsAfterTheSame) {
    if (allocationsSoFar().number == 0)
        GTEST_SKIP() << "the allocator cannot be counted";
    cv::setNumThreads(1);
    const cv::Mat photo = cv::imread(VELDAN_PHOTO_DIR "/astronaut.jpg");
    ASSERT_FALSE(photo.empty());
    cv::Mat head;
    cv::resize(photo(cv::Rect(137, 26, 180, 180)), head, cv::Size(120, 120), 0, 0, cv::INTER_AREA);
    MTCNN detector;
    ASSERT_EQ(detector.mtcnnInitAlg(nullptr), 0);
    std::vector<VDFACEINFOEX> faces(5000);
    int count = 0;
    const auto bytesFor = [&](cv::Mat& frame) {
        const std::size_t before = allocationsSoFar().bytes;
        detector.mtcnnFaceDetect(frame.data, frame.cols, frame.rows, &count, faces.data());
        return allocationsSoFar().bytes - before;
    };
    cv::Mat frame(480, 600, CV_8UC3, cv::Scalar::all(90));
    const int numbers[] = {20, 1, 0, 2, 3, 5, 8, 14};
    // Twice round, since scratch grows in the first.
    for (int step = 0; step < 16; ++step) {
        const int heads = numbers[step % 8];
        SCOPED_TRACE(heads);
        frame.setTo(cv::Scalar::all(90));
        for (int i = 0; i < heads; ++i)
            head.copyTo(frame(cv::Rect(i % 5 * 120, i / 5 * 120, 120, 120)));
        const std::size_t after = bytesFor(frame);
        const std::size_t again = bytesFor(frame);
        EXPECT_NEAR(count, heads, 2);
        if (step >= 8) {
            // It makes no difference what the frame before held, but for scratch that vectors swapped. Layers made anew
            // are megabytes.
            EXPECT_NEAR(static_cast<double>(after), static_cast<double>(again), 200e3);
        }
    }
    cv::setNumThreads(-1);
}

} // namespace
