#include "detect/face_crop.hpp"
#include "detect/networks.hpp"
#include "detect/workspace.hpp"

#include <veldan/mtcnn.hpp>

#include <gtest/gtest.h>
#include <opencv2/dnn.hpp>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

namespace {

FaceInfo makeBox(float x1, float y1, float x2, float y2) {
    FaceInfo box{};
    box.x1 = x1;
    box.y1 = y1;
    box.x2 = x2;
    box.y2 = y2;
    return box;
}

cv::Mat noise(int width, int height) {
    cv::Mat image(height, width, CV_8UC3);
    cv::RNG random(3);
    random.fill(image, cv::RNG::UNIFORM, 0, 256);
    // Smooth enough that shifting by a pixel shows, not so random that resizing averages it away.
    cv::GaussianBlur(image, image, cv::Size(5, 5), 0);
    cv::normalize(image, image, 0, 255, cv::NORM_MINMAX);
    return image;
}

// The crop of a whole-numbered box by its definition: pixel after pixel, black outside of the image.
cv::Mat plainCrop(const cv::Mat& image, const FaceInfo& box, int side) {
    const int left = static_cast<int>(box.x1);
    const int top = static_cast<int>(box.y1);
    cv::Mat crop = cv::Mat::zeros(static_cast<int>(box.y2) - top, static_cast<int>(box.x2) - left, CV_8UC3);
    for (int y = 0; y < crop.rows; ++y)
        for (int x = 0; x < crop.cols; ++x)
            if (cv::Rect(0, 0, image.cols, image.rows).contains({left + x, top + y}))
                crop.at<cv::Vec3b>(y, x) = image.at<cv::Vec3b>(top + y, left + x);
    cv::resize(crop, crop, cv::Size(side, side), 0, 0, cv::INTER_LINEAR);
    return crop;
}

std::vector<FaceInfo> boxesAround(int width, int height) {
    const auto w = static_cast<float>(width);
    const auto h = static_cast<float>(height);
    std::vector<FaceInfo> boxes = {
        makeBox(0, 0, w, h),               // the whole image, edges included
        makeBox(20, 30, 44, 54),           // exactly the network's size, or half of it
        makeBox(20, 30, 68, 78),           // the double
        makeBox(20, 30, 21, 31),           // one pixel
        makeBox(w - 50, h - 50, w, h),     // touches the far edges
        makeBox(-30, 10, 40, 80),          // leaves at the left
        makeBox(10, -30, 80, 40),          // at the top
        makeBox(w - 30, 10, w + 40, 80),   // at the right
        makeBox(10, h - 30, 80, h + 40),   // at the bottom
        makeBox(-25, -35, w + 25, h + 45), // all around
        makeBox(-1, 5, 30, 36),            // by a single pixel
        makeBox(w - 30, 5, w + 1, 36),
        makeBox(-400, -300, -350, -250), // far outside: black
        makeBox(w + 10, h + 10, w + 60, h + 60),
        makeBox(-3000, -3000, 1000, 1000), // the image a few pixels large
    };
    std::mt19937 random(11);
    for (int i = 0; i < 100; ++i) {
        const auto side = static_cast<float>(2 + random() % 150);
        const float x = static_cast<float>(random() % static_cast<unsigned>(width + 60)) - 60;
        const float y = static_cast<float>(random() % static_cast<unsigned>(height + 60)) - 60;
        boxes.push_back(makeBox(x, y, x + side, y + side));
    }
    return boxes;
}

class Crops : public testing::TestWithParam<int> {};

TEST_P(Crops, AreWhatTheDefinitionGivesBitForBit) {
    const cv::Mat image = noise(180, 140);
    const cv::Mat padded = cv::Mat::zeros(200, 300, CV_8UC3);
    const cv::Mat view = padded(cv::Rect(40, 20, 180, 140)); // rows further apart than they are long
    image.copyTo(view);
    veldan::FaceCropper cropper;
    const int side = GetParam();
    for (const FaceInfo& box : boxesAround(180, 140)) {
        SCOPED_TRACE(testing::Message() << box.x1 << ' ' << box.y1 << ' ' << box.x2 << ' ' << box.y2);
        const cv::Mat expected = plainCrop(image, box, side);
        ASSERT_TRUE(veldan::FaceCropper::hasCrop(view, box));
        EXPECT_EQ(cv::norm(cropper.crop(view, box, cv::Size(side, side)), expected, cv::NORM_INF), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(BothStages, Crops, testing::Values(24, 48));

TEST(Planes, AreThoseOfOpenCvsBlob) {
    const cv::Mat image = noise(37, 29);
    std::vector<float> planes(image.total() * 3);
    veldan::writePlanes(image, 127.5F, 0.0078125F, planes.data());
    const cv::Mat blob = cv::dnn::blobFromImage(image, 0.0078125, cv::Size(37, 29), cv::Scalar(127.5, 127.5, 127.5),
                                                false, false, CV_32F);
    ASSERT_EQ(blob.total(), planes.size());
    EXPECT_EQ(std::memcmp(blob.data, planes.data(), planes.size() * sizeof(float)), 0);
}

// The networks of the two stages as random projections: their answers tell what they were shown, and where.
class NextStage : public testing::TestWithParam<int> {
protected:
    void SetUp() override {
        network.regressionWeights = randomWeights(network.regressionWeights.size(), 1);
        network.landmarkWeights = randomWeights(network.landmarkWeights.size(), 2);
        network.faceWeights = randomWeights(network.faceWeights.size(), 3);
        network.regressionBias = {0.1F, -0.2F, 0.3F, -0.4F};
        network.landmarkBias = {0, 0.1F, 0.2F, 0.3F, 0.4F, 0.5F, 0.6F, 0.7F, 0.8F, 0.9F};
        network.faceBias = 0.3F;
        const int error = stage == 2 ? veldan::DetectorAccess::loadRefinementNet(detector, network.bytes())
                                     : veldan::DetectorAccess::loadOutputNet(detector, network.bytes());
        ASSERT_EQ(error, 0);
    }

    std::vector<double> project(const cv::Mat& crop, const std::vector<float>& weights,
                                const std::vector<float>& bias) {
        std::vector<double> values(bias.begin(), bias.end());
        for (std::size_t i = 0; i < network.pixels(); ++i)
            for (std::size_t k = 0; k < bias.size(); ++k)
                values[k] += (crop.data[i] - 127.5) / 128 * static_cast<double>(weights[i * bias.size() + k]);
        return values;
    }

    const int stage = GetParam();
    const int side = stage == 2 ? 24 : 48;
    MTCNN detector;
    DenseNetwork network{side};
    cv::Mat image = noise(180, 140);
};

TEST_P(NextStage, ShowsTheCropsAndReadsTheAnswers) {
    std::vector<FaceInfo> boxes = boxesAround(180, 140);
    const std::vector<FaceInfo> survivors = detector.NextStage(image, boxes, side, side, stage, 0);
    ASSERT_EQ(survivors.size(), boxes.size());
    for (std::size_t i = 0; i < boxes.size(); ++i) {
        SCOPED_TRACE(i);
        const cv::Mat crop = plainCrop(image, boxes[i], side);
        const FaceInfo& face = survivors[i];
        EXPECT_EQ(face.x1, boxes[i].x1);
        EXPECT_EQ(face.y1, boxes[i].y1);
        EXPECT_EQ(face.x2, boxes[i].x2);
        EXPECT_EQ(face.y2, boxes[i].y2);
        const double logit = project(crop, network.faceWeights, {network.faceBias})[0];
        EXPECT_NEAR(face.score, 1 / (1 + std::exp(-logit)), 1e-5);
        const std::vector<double> regression = project(crop, network.regressionWeights, network.regressionBias);
        for (std::size_t k = 0; k < 4; ++k)
            EXPECT_NEAR(face.regression[k], regression[k], 1e-4);
        const std::vector<double> landmark = project(crop, network.landmarkWeights, network.landmarkBias);
        const double w = boxes[i].x2 - boxes[i].x1 + 1;
        const double h = boxes[i].y2 - boxes[i].y1 + 1;
        for (std::size_t k = 0; k < 10 && stage == 3; ++k)
            EXPECT_NEAR(face.landmark[k], k % 2 == 0 ? landmark[k] * w + boxes[i].x1 : landmark[k] * h + boxes[i].y1,
                        1e-4 * w + 1e-3);
    }
}

TEST_P(NextStage, KeepsScoresAtTheThresholdAndTheInputOrder) {
    std::vector<FaceInfo> boxes = boxesAround(180, 140);
    const std::vector<FaceInfo> all = detector.NextStage(image, boxes, side, side, stage, 0);
    std::vector<float> scores;
    for (const FaceInfo& face : all)
        scores.push_back(face.score);
    std::nth_element(scores.begin(), scores.begin() + 50, scores.end());
    const float threshold = scores[50];
    std::vector<float> expected;
    for (const FaceInfo& face : all)
        if (face.score >= threshold)
            expected.push_back(face.x1);
    ASSERT_LT(expected.size(), all.size());
    std::vector<float> actual;
    for (const FaceInfo& face : detector.NextStage(image, boxes, side, side, stage, threshold))
        actual.push_back(face.x1);
    EXPECT_EQ(actual, expected);
}

TEST_P(NextStage, LeavesOutBoxesWithoutACrop) {
    const float inf = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    std::vector<FaceInfo> boxes = {
        makeBox(10, 10, 50, 50),          // 0: kept
        makeBox(10, 10, 10, 50),          // no width
        makeBox(50, 50, 10, 10),          // inverted
        makeBox(-10, 10, -20, 50),        // inverted, outside
        makeBox(-10.25F, 10, -9.75F, 60), // less than a pixel
        makeBox(nan, 10, 50, 50),
        makeBox(10, 10, 50, nan),
        makeBox(-inf, 10, 50, 50),
        makeBox(10, 10, inf, inf),
        makeBox(-3e38F, -3e38F, 3e38F, 3e38F),
        makeBox(10, 10, 3e9F, 3e9F),
        makeBox(-5000, -5000, 5000, 5000),       // larger than 4096 pixels and than twice the image
        makeBox(60, 60, 90, 90),                 // 12: kept
        makeBox(-2.5F, -3.75F, 40.5F, 41.25F),   // 13: kept, edges between pixels
        makeBox(170.5F, 100.5F, 181.25F, 111.5F) // 14: kept
    };
    const std::vector<FaceInfo> survivors = detector.NextStage(image, boxes, side, side, stage, 0);
    std::vector<float> lefts;
    for (const FaceInfo& face : survivors)
        lefts.push_back(face.x1);
    EXPECT_EQ(lefts, (std::vector<float>{10, 60, -2.5F, 170.5F}));
    std::vector<FaceInfo> hopeless(boxes.begin() + 1, boxes.begin() + 12);
    EXPECT_TRUE(detector.NextStage(image, hopeless, side, side, stage, 0).empty());
}

TEST_P(NextStage, IsEmptyForArgumentsThatMakeNoSense) {
    std::vector<FaceInfo> boxes = {makeBox(10, 10, 50, 50)};
    std::vector<FaceInfo> none;
    EXPECT_TRUE(detector.NextStage(image, none, side, side, stage, 0).empty());
    EXPECT_TRUE(detector.NextStage(cv::Mat(), boxes, side, side, stage, 0).empty());
    EXPECT_TRUE(detector.NextStage(cv::Mat(140, 180, CV_8UC1), boxes, side, side, stage, 0).empty());
    EXPECT_TRUE(detector.NextStage(image, boxes, 0, side, stage, 0).empty());
    EXPECT_TRUE(detector.NextStage(image, boxes, side, side, 4, 0).empty());
    EXPECT_TRUE(detector.NextStage(image, boxes, side, side, stage, std::nanf("")).empty());
    MTCNN unloaded;
    EXPECT_TRUE(unloaded.NextStage(image, boxes, side, side, stage, 0).empty());
}

TEST_P(NextStage, DropsAnswersThatAreNotNumbers) {
    network.regressionBias[2] = std::numeric_limits<float>::infinity();
    MTCNN odd;
    ASSERT_EQ(stage == 2 ? veldan::DetectorAccess::loadRefinementNet(odd, network.bytes())
                         : veldan::DetectorAccess::loadOutputNet(odd, network.bytes()),
              0);
    std::vector<FaceInfo> boxes = {makeBox(10, 10, 50, 50)};
    EXPECT_TRUE(odd.NextStage(image, boxes, side, side, stage, 0).empty());
}

INSTANTIATE_TEST_SUITE_P(BothStages, NextStage, testing::Values(2, 3));

} // namespace
