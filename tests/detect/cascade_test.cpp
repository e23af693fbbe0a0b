#include "detect/networks.hpp"
#include "detect/workspace.hpp"

#include <veldan/mtcnn.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <set>
#include <vector>

namespace {

using veldan::DetectorAccess;

// The proposal network fires with anchor 0 where the centre of a window is bright blue, and nowhere else. The other two
// pass every box unless a test says otherwise.
struct Networks {
    std::array<float, 4> gain = {20, 0, 0, 0};
    std::array<float, 4> bias = {-10, -30, -30, -30};
    std::array<float, 4> proposalRegression = {};
    DenseNetwork refinement{24};
    DenseNetwork output{48};
};

std::unique_ptr<MTCNN> makeDetector(const Networks& networks = {}) {
    auto detector = std::make_unique<MTCNN>();
    EXPECT_EQ(DetectorAccess::loadProposalNet(
                  *detector, proposalNetwork(networks.gain, networks.bias, networks.proposalRegression)),
              0);
    EXPECT_EQ(DetectorAccess::loadRefinementNet(*detector, networks.refinement.bytes()), 0);
    EXPECT_EQ(DetectorAccess::loadOutputNet(*detector, networks.output.bytes()), 0);
    return detector;
}

constexpr float thresholds[] = {0.6F, 0.6F, 0.7F};

// At this least size the first level is the image itself, up to images of 50,000 pixels; with this factor it stays the
// only one up to 480 pixels.
constexpr int sameSize = 12;
constexpr float oneLevel = 0.05F;

// Black but for bright pixels at the centres of windows, `apart` pixels from each other.
struct Grid {
    cv::Mat image;
    std::vector<cv::Point> corners; // of the windows, row after row

    Grid(int columns, int rows, int apart)
        : image(cv::Mat::zeros((rows - 1) * apart + 25, (columns - 1) * apart + 25, CV_8UC3)) {
        for (int row = 0; row < rows; ++row)
            for (int column = 0; column < columns; ++column) {
                corners.emplace_back(column * apart, row * apart);
                blue(corners.back() + cv::Point(12, 12)) = 255;
            }
    }
    unsigned char& blue(cv::Point at) { return image.at<cv::Vec3b>(at)[0]; }
};

std::vector<cv::Point> corners(const std::vector<FaceInfo>& boxes) {
    std::vector<cv::Point> points;
    for (const FaceInfo& box : boxes)
        points.emplace_back(cvRound(box.x1), cvRound(box.y1));
    return points;
}

class BatchSizes : public testing::TestWithParam<int> {};

TEST_P(BatchSizes, EveryBoxGoesThroughOneBatchOf128) {
    const int count = GetParam();
    // The refinement network's score grows with the green of its crop's first pixel, which says who comes after whom.
    Networks networks;
    networks.refinement.faceWeights[1] = 1;
    networks.refinement.faceBias = 2;
    const auto detector = makeDetector(networks);
    Grid grid(20, 13, 24);
    for (std::size_t i = 0; i < grid.corners.size(); ++i) {
        grid.image.at<cv::Vec3b>(grid.corners[i])[1] = static_cast<unsigned char>(i);
        if (static_cast<int>(i) >= count)
            grid.blue(grid.corners[i] + cv::Point(12, 12)) = 0;
    }

    const std::vector<FaceInfo> refined = detector->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, 2);
    std::vector<cv::Point> expected(grid.corners.begin(), grid.corners.begin() + count);
    std::reverse(expected.begin(), expected.end());
    EXPECT_EQ(corners(refined), expected);
}

INSTANTIATE_TEST_SUITE_P(Counts, BatchSizes, testing::Values(1, 127, 128, 129, 255));

TEST(Cascade, HandsTheBest5000ProposalsOn) {
    const auto detector = makeDetector();
    Grid grid(71, 71, 24); // 5041
    for (std::size_t i = 0; i < 41; ++i)
        grid.blue(grid.corners[i * 120] + cv::Point(12, 12)) = 210;
    EXPECT_EQ(detector->Detect_mtcnn(grid.image, sameSize, thresholds, 0.01F, 1).size(), 5041U);
    const std::vector<FaceInfo> refined = detector->Detect_mtcnn(grid.image, sameSize, thresholds, 0.01F, 2);
    ASSERT_EQ(refined.size(), 5000U);
    for (const cv::Point& corner : corners(refined))
        ASSERT_EQ(grid.blue(corner + cv::Point(12, 12)), 255);
}

TEST(Cascade, ProposalsAreSuppressedBeforeTheyAreRegressed) {
    Networks networks;
    networks.proposalRegression = {1, 0, std::log(6.0F) / 0.2F, std::log(6.0F) / 0.2F}; // six times as large
    const auto detector = makeDetector(networks);
    Grid grid(2, 1, 24);
    const std::vector<FaceInfo> proposals = detector->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, 1);
    // Apart as anchors; regressed, their overlap is far above the limit.
    ASSERT_EQ(proposals.size(), 2U);
    for (std::size_t i = 0; i < 2; ++i) {
        EXPECT_NEAR(proposals[i].x2 - proposals[i].x1, 149, 0.01); // 25 x 6 - 1
        // Centre 12 moved by a tenth of 25.
        EXPECT_NEAR((proposals[i].x1 + proposals[i].x2) / 2, 24 * static_cast<float>(i) + 14.5F, 0.01);
        EXPECT_NEAR((proposals[i].y1 + proposals[i].y2) / 2, 12, 0.01);
    }
    EXPECT_GT(detector->IoU(proposals[0].x1, proposals[0].y1, proposals[0].x2, proposals[0].y2, proposals[1].x1,
                            proposals[1].y1, proposals[1].x2, proposals[1].y2, false),
              0.7F);
}

// Two boxes 8 pixels apart overlap by 17 of 25 columns, below the limit; widened by 2.5 pixels on both sides, by 22
// of 30.
TEST(Cascade, RefinedBoxesAreSuppressedBeforeAndFacesAfterRegression) {
    Grid grid(2, 1, 8);
    const std::vector<float> widen = {-0.1F, 0, 0.1F, 0};
    const std::vector<float> stay = {0, 0, 0, 0};
    const auto found = [&](const std::vector<float>& refinement, const std::vector<float>& output, int stage) {
        Networks networks;
        networks.refinement.regressionBias = refinement;
        networks.output.regressionBias = output;
        return makeDetector(networks)->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, stage);
    };
    EXPECT_EQ(found(stay, stay, 3).size(), 2U);
    const std::vector<FaceInfo> refined = found(widen, stay, 2);
    ASSERT_EQ(refined.size(), 2U);
    EXPECT_FLOAT_EQ(refined[0].x1, -2.5F);
    EXPECT_FLOAT_EQ(refined[0].x2, 26.5F);
    EXPECT_EQ(found(stay, widen, 3).size(), 1U);
}

TEST(Cascade, RefinedBoxesInsideOfAnotherFall) {
    Networks networks;
    networks.gain[3] = 20;
    networks.bias[3] = -10;
    const auto detector = makeDetector(networks);
    Grid grid(1, 1, 24);
    // Anchors of 24 and 12 pixels about the same point: a quarter by union, all of the smaller one.
    EXPECT_EQ(detector->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, 1).size(), 2U);
    EXPECT_EQ(detector->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, 2).size(), 1U);
}

TEST(Cascade, RefinedBoxesAreSquaredAndFacesClamped) {
    Grid grid(3, 3, 24);
    for (std::size_t i = 0; i < 9; ++i)
        grid.blue(grid.corners[i] + cv::Point(12, 12)) = i == 4 ? 255 : 0;
    Networks networks;
    networks.refinement.regressionBias = {-0.1F, 0, 0.1F, 0};
    const auto face = [&] {
        const auto found = makeDetector(networks)->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, 3);
        EXPECT_EQ(found.size(), 1U);
        return found.empty() ? std::vector<float>()
                             : std::vector<float>{found[0].x1, found[0].y1, found[0].x2, found[0].y2};
    };
    // 24..48, widened to 21.5..50.5: 30 x 25, squared to 30 x 30 from (22, 22) on.
    EXPECT_THAT(face(), testing::ElementsAre(22, 22, 51, 51));
    // Moved by 30 x (-1, -0.8, 0.01, 1), the far edges of the image being 72.
    networks.output.regressionBias = {-1, -0.8F, 0.01F, 1};
    EXPECT_THAT(face(), testing::ElementsAre(0, 0, 51, 72));
}

TEST(Cascade, StopsAfterTheStageAskedFor) {
    Networks networks;
    networks.output.landmarkBias = {0, 0, 1, 0, 0.5F, 0.5F, 0, 1, 1, 1};
    networks.refinement.faceBias = 3;
    networks.output.faceBias = 2;
    const auto detector = makeDetector(networks);
    Grid grid(3, 2, 32);
    const auto stage = [&](int number) {
        return detector->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, number);
    };
    EXPECT_TRUE(stage(0).empty());
    EXPECT_TRUE(stage(-1).empty());
    ASSERT_EQ(stage(1).size(), 6U);
    EXPECT_NEAR(stage(1)[0].score, 1 / (1 + std::exp(-(20 * 127.5 / 128 - 10))), 1e-6);
    ASSERT_EQ(stage(2).size(), 6U);
    EXPECT_NEAR(stage(2)[0].score, 1 / (1 + std::exp(-3.0)), 1e-6);
    ASSERT_EQ(stage(3).size(), 6U);
    EXPECT_NEAR(stage(3)[0].score, 1 / (1 + std::exp(-2.0)), 1e-6);
    ASSERT_EQ(stage(7).size(), 6U);
    // Landmarks are relative to a side of 25: one more than the difference of the edges.
    EXPECT_THAT(stage(7)[4].landmark, testing::ElementsAre(32, 32, 57, 32, 44.5F, 44.5F, 32, 57, 57, 57));

    // A stage that lets nothing pass ends the cascade.
    const float strict[] = {0.6F, 0.99F, 0.7F};
    EXPECT_TRUE(detector->Detect_mtcnn(grid.image, sameSize, strict, oneLevel, 3).empty());
    const float strictest[] = {0.6F, 0.6F, 0.9F};
    EXPECT_TRUE(detector->Detect_mtcnn(grid.image, sameSize, strictest, oneLevel, 3).empty());
    EXPECT_EQ(detector->Detect_mtcnn(grid.image, sameSize, strictest, oneLevel, 2).size(), 6U);
    const float stricter[] = {1.0F, 0.6F, 0.7F};
    EXPECT_TRUE(detector->Detect_mtcnn(grid.image, sameSize, stricter, oneLevel, 3).empty());
}

TEST(Cascade, ScoresTheLevelsThatItShould) {
    Networks networks;
    networks.bias = {5, -30, -30, -30}; // anchor 0 everywhere
    networks.gain = {};
    const auto detector = makeDetector(networks);
    const struct {
        cv::Size image;
        int minSize;
        std::vector<int> levels;
    } cases[] = {{{640, 480}, 45, {0, 3, 6, 7}},
                 {{1280, 720}, 70, {0, 3, 6, 7}},
                 {{200, 150}, 45, {0, 2}},
                 {{100, 120}, 45, {0}}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.image);
        // With nothing to regress the sides of the proposals are 24 pixels of their level.
        std::set<int> sides;
        for (const FaceInfo& box :
             detector->ProposalNet(cv::Mat::zeros(expected.image, CV_8UC3), expected.minSize, 0.6F, 0.7937F))
            sides.insert(cvRound((box.x2 - box.x1) * 10));
        std::set<int> expectedSides;
        for (const int level : expected.levels)
            expectedSides.insert(cvRound(10 * expected.minSize / (std::pow(0.7937, 3) * std::pow(0.7937, level))));
        EXPECT_EQ(sides, expectedSides);
    }
}

TEST(Cascade, ProposalsOfAllLevelsAreDistinctAndOrdered) {
    Networks networks;
    networks.bias = {0.5F, 0.6F, 0.7F, 0.8F};
    networks.gain = {3, -3, 2, -2};
    const auto detector = makeDetector(networks);
    cv::Mat image(300, 400, CV_8UC3);
    cv::randu(image, 0, 256);
    cv::blur(image, image, cv::Size(9, 9));
    cv::normalize(image, image, 0, 255, cv::NORM_MINMAX);
    std::vector<FaceInfo> proposals = detector->ProposalNet(image, 45, 0.6F, 0.7937F);
    ASSERT_GT(proposals.size(), 100U);
    EXPECT_TRUE(std::is_sorted(proposals.begin(), proposals.end(), CompareBBox));
    EXPECT_GE(proposals.back().score, 0.6F);
    const std::size_t count = proposals.size();
    EXPECT_EQ(detector->NMS(proposals, 0.7F, 'u').size(), count);
}

// A detector that gives many different answers all over an image: what comes out is judged against the definition of
// the records, not against what networks should find.
class Records : public testing::Test {
protected:
    Records() {
        Networks networks;
        networks.gain = {4, -4, 3, -3};
        networks.bias = {1, 1, 1, 1};
        networks.refinement.faceWeights = randomWeights(networks.refinement.pixels(), 1);
        networks.refinement.faceBias = 1;
        networks.refinement.regressionWeights = randomWeights(networks.refinement.pixels() * 4, 2);
        networks.output.faceWeights = randomWeights(networks.output.pixels(), 3);
        networks.output.faceBias = 1.5F;
        networks.output.regressionWeights = randomWeights(networks.output.pixels() * 4, 4);
        networks.output.landmarkWeights = randomWeights(networks.output.pixels() * 10, 5);
        detector = makeDetector(networks);
        other = makeDetector(networks);
        cv::setRNGSeed(5);
    }

    static cv::Mat noise(int width, int height) {
        cv::Mat image(height, width, CV_8UC3);
        cv::randu(image, 0, 256);
        cv::blur(image, image, cv::Size(15, 15));
        cv::normalize(image, image, 0, 255, cv::NORM_MINMAX);
        return image;
    }

    static std::vector<VDFACEINFOEX> detect(MTCNN& with, cv::Mat image) {
        std::vector<VDFACEINFOEX> faces(5001);
        std::memset(faces.data(), 0x5a, faces.size() * sizeof(VDFACEINFOEX));
        int count = -7;
        const int code = with.mtcnnFaceDetect(image.data, image.cols, image.rows, &count, faces.data());
        EXPECT_EQ(code, count > 0 ? 0 : -1);
        EXPECT_GE(count, 0);
        for (const std::int32_t* word = &faces[static_cast<std::size_t>(count)].x; word != &faces.back().x; ++word)
            if (*word != 0x5a5a5a5a) {
                ADD_FAILURE() << "a record behind the last face was written";
                break;
            }
        faces.resize(static_cast<std::size_t>(count));
        return faces;
    }

    std::unique_ptr<MTCNN> detector;
    std::unique_ptr<MTCNN> other;
};

TEST_F(Records, AreTheFacesCutOffClampedAndOrderedByArea) {
    const cv::Mat image = noise(400, 300);
    const std::vector<VDFACEINFOEX> records = detect(*detector, image);
    std::vector<FaceInfo> faces = other->Detect_mtcnn(image, 45, thresholds, 0.7937F, 3);
    ASSERT_EQ(records.size(), faces.size());
    ASSERT_GT(faces.size(), 20U);
    EXPECT_TRUE(std::is_sorted(faces.begin(), faces.end(), CompareBBox));
    std::stable_sort(faces.begin(), faces.end(), CompareFacearea);
    EXPECT_FALSE(std::is_sorted(faces.begin(), faces.end(), CompareBBox));

    bool pointOutside = false;
    for (std::size_t i = 0; i < faces.size(); ++i) {
        const VDFACEINFOEX& record = records[i];
        VDFACEINFOEX expected;
        std::memset(&expected, 0x5a, sizeof(expected));
        const FaceInfo& face = faces[i];
        expected.x = std::min(std::max(static_cast<int>(face.x1), 0), 400);
        expected.y = std::min(std::max(static_cast<int>(face.y1), 0), 300);
        expected.width = std::max(static_cast<int>(face.x2 - face.x1), 0);
        if (expected.x + expected.width > 400)
            expected.width = 400 - expected.x;
        expected.height = std::max(static_cast<int>(face.y2 - face.y1), 0);
        if (expected.y + expected.height > 300)
            expected.height = 300 - expected.y;
        expected.keyPointNum = 5;
        for (int k = 0; k < 5; ++k) {
            const int x = static_cast<int>(face.landmark[2 * k]);
            const int y = static_cast<int>(face.landmark[2 * k + 1]);
            expected.keyPointX[k] = std::min(std::max(x, 0), 400);
            expected.keyPointY[k] = std::min(std::max(y, 0), 300);
            pointOutside = pointOutside || x < 0 || x > 400 || y < 0 || y > 300;
        }
        expected.eyeDistance = static_cast<int>(
            std::hypot(expected.keyPointX[0] - expected.keyPointX[1], expected.keyPointY[0] - expected.keyPointY[1]));
        EXPECT_EQ(std::memcmp(&record, &expected, sizeof(expected)), 0) << "record " << i;
    }
    EXPECT_TRUE(pointOutside) << "the networks should put a point outside of the image";
}

TEST_F(Records, AreTheSameFromCallToCallAndFromDetectorToDetector) {
    const cv::Mat first = noise(500, 300);
    const cv::Mat second = noise(320, 420);
    const std::vector<VDFACEINFOEX> expected = detect(*detector, first);
    ASSERT_FALSE(expected.empty());
    const auto expectSame = [&](const std::vector<VDFACEINFOEX>& faces) {
        ASSERT_EQ(faces.size(), expected.size());
        EXPECT_EQ(std::memcmp(faces.data(), expected.data(), faces.size() * sizeof(VDFACEINFOEX)), 0);
    };
    expectSame(detect(*detector, first));
    detect(*detector, second); // other sizes and counts in between must leave no trace
    expectSame(detect(*detector, first));
    expectSame(detect(*other, first));
}

TEST_F(Records, StayInsideOfImagesOfManyShapes) {
    for (const cv::Size size : {cv::Size(1, 1), cv::Size(1, 30000), cv::Size(30000, 1), cv::Size(91, 92),
                                cv::Size(99, 500), cv::Size(5000, 100), cv::Size(641, 481), cv::Size(100, 100)}) {
        SCOPED_TRACE(size);
        for (const VDFACEINFOEX& face : detect(*detector, noise(size.width, size.height))) {
            EXPECT_GE(face.x, 0);
            EXPECT_GE(face.y, 0);
            EXPECT_GE(face.width, 0);
            EXPECT_GE(face.height, 0);
            EXPECT_LE(face.x + face.width, size.width);
            EXPECT_LE(face.y + face.height, size.height);
        }
    }
}

TEST(FaceDetect, LooksForLargerFacesOnlyWhenBothSidesAreLarge) {
    Networks networks;
    networks.bias = {-30, -30, -30, 5}; // the smallest anchor everywhere
    networks.gain = {};
    const auto detector = makeDetector(networks);
    const struct {
        cv::Size size;
        int smallest;
    } cases[] = {{{640, 480}, 45}, {{641, 481}, 70}, {{1280, 480}, 45}, {{640, 1000}, 45}};
    for (const auto& expected : cases) {
        SCOPED_TRACE(expected.size);
        cv::Mat image = cv::Mat::zeros(expected.size, CV_8UC3);
        int count = 0;
        std::vector<VDFACEINFOEX> faces(5000);
        ASSERT_EQ(detector->mtcnnFaceDetect(image.data, image.cols, image.rows, &count, faces.data()), 0);
        int smallest = 10000;
        for (int i = 0; i < count; ++i)
            smallest = std::min(smallest, faces[static_cast<std::size_t>(i)].width);
        EXPECT_NEAR(smallest, expected.smallest, 1);
    }
}

// Wild regressions and landmarks: whatever the networks say, records stay inside of the image and nothing overflows.
TEST(FaceDetect, SurvivesNetworksThatAnswerNonsense) {
    const float inf = std::numeric_limits<float>::infinity();
    for (const float wild : {30.0F, -30.0F, 1e9F, -1e9F, 3e38F, -3e38F, inf, -inf, std::nanf("")}) {
        for (int where = 0; where < 4; ++where) {
            SCOPED_TRACE(testing::Message() << wild << " at " << where);
            Networks networks;
            networks.bias = {2, 2, -30, -30};
            networks.gain = {};
            if (where == 0)
                networks.proposalRegression = {0, 0, wild, -wild};
            if (where == 1)
                networks.refinement.regressionBias = {wild, 0, -wild, wild};
            if (where == 2)
                networks.output.regressionBias = {wild, wild, wild, 0};
            networks.output.landmarkBias.assign(10, where == 3 ? wild : 0.5F);
            const auto detector = makeDetector(networks);
            cv::Mat image = cv::Mat::zeros(200, 300, CV_8UC3);
            std::vector<VDFACEINFOEX> faces(5000);
            int count = -1;
            detector->mtcnnFaceDetect(image.data, image.cols, image.rows, &count, faces.data());
            if (where == 2 && wild > 1e38F) {
                EXPECT_EQ(count, 0) << "a face without edges";
            }
            for (int i = 0; i < count; ++i) {
                const VDFACEINFOEX& face = faces[static_cast<std::size_t>(i)];
                ASSERT_TRUE(face.x >= 0 && face.y >= 0 && face.width >= 0 && face.height >= 0);
                ASSERT_TRUE(face.x + face.width <= 300 && face.y + face.height <= 200);
                for (int k = 0; k < 5; ++k) {
                    ASSERT_TRUE(face.keyPointX[k] >= 0 && face.keyPointX[k] <= 300);
                    ASSERT_TRUE(face.keyPointY[k] >= 0 && face.keyPointY[k] <= 200);
                }
            }
        }
    }
}

TEST(FaceDetect, FindsNothingWithArgumentsThatMakeNoSense) {
    const auto detector = makeDetector();
    Grid grid(8, 8, 24);
    VDFACEINFOEX face;
    int count = 3;
    unsigned char* const pixels = grid.image.data;
    EXPECT_EQ(detector->mtcnnFaceDetect(nullptr, 192, 192, &count, &face), -1);
    EXPECT_EQ(count, 0);
    for (const auto& [width, height] : {std::pair{0, 192}, {192, 0}, {-1, 192}, {192, -2147483647 - 1}}) {
        count = 3;
        EXPECT_EQ(detector->mtcnnFaceDetect(pixels, width, height, &count, &face), -1);
        EXPECT_EQ(count, 0);
    }
    count = 3;
    EXPECT_EQ(detector->mtcnnFaceDetect(pixels, 192, 192, &count, nullptr), -1);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(detector->mtcnnFaceDetect(pixels, 192, 192, nullptr, &face), -1);

    const auto found = [&](const cv::Mat& image, int minSize, const float* threshold, float factor) {
        return detector->Detect_mtcnn(image, minSize, threshold, factor, 3).size();
    };
    ASSERT_GT(found(grid.image, sameSize, thresholds, oneLevel), 0U);
    EXPECT_EQ(found(grid.image, 0, thresholds, oneLevel), 0U);
    EXPECT_EQ(found(grid.image, -5, thresholds, oneLevel), 0U);
    EXPECT_EQ(found(grid.image, sameSize, nullptr, oneLevel), 0U);
    for (const float factor : {1.0F, 1.5F, 0.0F, -0.5F, std::numeric_limits<float>::infinity(), std::nanf("")})
        EXPECT_EQ(found(grid.image, sameSize, thresholds, factor), 0U);
    EXPECT_EQ(found(cv::Mat(), sameSize, thresholds, oneLevel), 0U);
    EXPECT_EQ(found(cv::Mat(192, 192, CV_8UC1), sameSize, thresholds, oneLevel), 0U);
    EXPECT_EQ(found(cv::Mat(192, 192, CV_32FC3), sameSize, thresholds, oneLevel), 0U);
}

TEST(Loading, KeepsWhatWasThereWhenBytesAreDamaged) {
    const auto detector = makeDetector();
    std::vector<unsigned char> damaged = DenseNetwork(24).bytes();
    damaged.resize(damaged.size() / 2);
    EXPECT_EQ(DetectorAccess::loadProposalNet(*detector, damaged), 20);
    EXPECT_EQ(DetectorAccess::loadRefinementNet(*detector, damaged), 20);
    EXPECT_EQ(DetectorAccess::loadOutputNet(*detector, {}), 20);
    Grid grid(3, 3, 24);
    EXPECT_EQ(detector->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, 3).size(), 9U);
    EXPECT_EQ(detector->mtcnnFreeAlg(), 0); // releases nothing
    EXPECT_EQ(detector->Detect_mtcnn(grid.image, sameSize, thresholds, oneLevel, 3).size(), 9U);
}

TEST(Loading, AnUnloadedDetectorFindsNothing) {
    MTCNN detector;
    Grid grid(8, 8, 24);
    VDFACEINFOEX face;
    int count = 3;
    EXPECT_EQ(detector.mtcnnFaceDetect(grid.image.data, grid.image.cols, grid.image.rows, &count, &face), -1);
    EXPECT_EQ(count, 0);
}

} // namespace
