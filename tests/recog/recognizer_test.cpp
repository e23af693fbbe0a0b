// What the recognizers show their networks and make of the answers, with networks that only average: the answer then
// tells what the crop was. Expected values come from the alignment functions and plain loops.

#include "support/averaging_network.hpp"
#include "support/engines.hpp"
#include "support/frames.hpp"

#include <veldan/align.h>
#include <veldan/mask_recognizer.hpp>
#include <veldan/recognizer.hpp>

#include <gtest/gtest.h>
#include <opencv2/imgproc.hpp>

#include <cmath>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace {

constexpr int length = 128;
constexpr int width = 300;
constexpr int height = 260;
using Feature = std::vector<float>;

Feature averagesOf(const cv::Mat& crop) {
    Feature feature;
    for (const int channel : {2, 1}) // red comes first
        for (int row = 0; row < 112; row += 14)
            for (int column = 0; column < 112; column += 14) {
                double sum = 0;
                for (int y = row; y < row + 14; ++y)
                    for (int x = column; x < column + 14; ++x)
                        sum += (crop.at<cv::Vec3b>(y, x)[channel] - 127.5) / 128;
                feature.push_back(static_cast<float>(sum / 196));
            }
    return feature;
}

void expectNear(const Feature& got, const Feature& expected) {
    ASSERT_GE(got.size(), expected.size());
    for (std::size_t i = 0; i < expected.size(); ++i)
        ASSERT_NEAR(got[i], expected[i], 1e-5) << i;
}

// A face of about the template's shape, turned, with the two points elsewhere.
VDFACEINFOEX face(int x, int y) {
    VDFACEINFOEX record;
    std::memset(&record, veldan_tests::untouched, sizeof(record));
    const int points[][2] = {{30, 40}, {80, 48}, {52, 75}, {30, 98}, {68, 106}, {-12, -3}, {118, 125}};
    for (int k = 0; k < 7; ++k) {
        record.keyPointX[k] = x + points[k][0];
        record.keyPointY[k] = y + points[k][1];
    }
    return record;
}

cv::Mat alignedByFive(const cv::Mat& image, const VDFACEINFOEX& record) {
    cv::Mat crop(112, 112, CV_8UC3);
    float points[10];
    for (int k = 0; k < 10; ++k)
        points[k] = static_cast<float>(k % 2 == 0 ? record.keyPointX[k / 2] : record.keyPointY[k / 2]);
    alignface_pinv(image.data, image.cols, image.rows, crop.data, 112, 112, points);
    return crop;
}

cv::Mat alignedByTwo(const cv::Mat& image, const VDFACEINFOEX& record) {
    cv::Mat crop(112, 112, CV_8UC3);
    const float points[] = {static_cast<float>(record.keyPointX[5]), static_cast<float>(record.keyPointY[5]),
                            static_cast<float>(record.keyPointX[6]), static_cast<float>(record.keyPointY[6])};
    alignface_mask(image.data, image.cols, image.rows, crop.data, 112, 112, points);
    return crop;
}

cv::Mat painted(cv::Mat crop) {
    crop.rowRange(56, 112).setTo(cv::Scalar(127, 127, 127));
    return crop;
}

// The three ways to a feature.
class Extraction : public testing::TestWithParam<int> {
protected:
    enum { Bare, MaskedByTwo, MaskedByFive };

    bool isBare() const { return GetParam() == Bare; }
    bool readsFive() const { return GetParam() != MaskedByTwo; }

    void loadAverages() {
        veldan_tests::loadAverages(veldan::EngineAccess::net(bare), "fc1_scale");
        veldan_tests::loadAverages(veldan::EngineAccess::net(masked), "pre_fc1");
    }
    void loadEmbedded() {
        ASSERT_EQ(bare.mfInitAlg(nullptr), 0);
        ASSERT_EQ(masked.maskfInitAlg(nullptr), 0);
    }
    int extract(unsigned char* pixels, int w, int h, int count, VDFACEINFOEX* faces, float* feature) {
        return isBare() ? bare.mfFeatureExtract(pixels, w, h, count, faces, feature)
                        : masked.maskfFeatureExtract(readsFive(), pixels, w, h, count, faces, feature);
    }
    Feature extract(std::vector<VDFACEINFOEX> faces) {
        Feature feature(faces.size() * length, 7);
        EXPECT_EQ(extract(image.data, width, height, static_cast<int>(faces.size()), faces.data(), feature.data()), 0);
        return feature;
    }
    cv::Mat expectedCrop(const VDFACEINFOEX& record) const {
        return isBare() ? alignedByFive(image, record)
                        : painted(readsFive() ? alignedByFive(image, record) : alignedByTwo(image, record));
    }

    cv::Mat image = veldan_tests::noiseFrame(width, height, 11, 9);
    MOBILEFACENET bare;
    MASKMOBILEFACENET masked;
};

TEST_P(Extraction, ShowsTheNetworkTheAlignedCrop) {
    loadAverages();
    // The second face leaves the image: black there, and nothing of the first one.
    const std::vector<VDFACEINFOEX> faces = {face(90, 60), face(230, 180)};
    const Feature got = extract(faces);
    expectNear(got, averagesOf(expectedCrop(faces[0])));
    expectNear(Feature(got.begin() + length, got.end()), averagesOf(expectedCrop(faces[1])));
}

TEST_P(Extraction, ReadsOnlyItsPoints) {
    loadAverages();
    const VDFACEINFOEX before = face(90, 60);
    for (int point = 0; point < 7; ++point) {
        VDFACEINFOEX moved = before;
        moved.keyPointX[point] += 9;
        moved.keyPointY[point] -= 5;
        EXPECT_EQ(extract({moved}) != extract({before}), (point < 5) == readsFive()) << point;
    }
}

TEST_P(Extraction, PaintHidesTheLowerHalf) {
    loadEmbedded();
    // Points of the template itself: crop and image rows agree.
    VDFACEINFOEX record{};
    const int points[][2] = {{38, 52}, {74, 52}, {56, 72}, {42, 92}, {71, 92}, {0, 0}, {112, 112}};
    for (int k = 0; k < 7; ++k) {
        record.keyPointX[k] = points[k][0] + 50;
        record.keyPointY[k] = points[k][1] + 50;
    }
    const Feature before = extract({record});
    image.rowRange(50 + 60, height).setTo(cv::Scalar(0, 200, 30));
    EXPECT_EQ(extract({record}) == before, !isBare());
    image.rowRange(50 + 30, height).setTo(cv::Scalar(0, 200, 30));
    EXPECT_NE(extract({record}), before);
}

TEST_P(Extraction, IsTheSameAlwaysAndInAnyCompany) {
    loadEmbedded();
    const VDFACEINFOEX one = face(90, 60);
    const VDFACEINFOEX two = face(20, 100);
    const Feature alone = extract({one});
    Feature together = extract({two, one});
    EXPECT_EQ(Feature(together.begin() + length, together.end()), alone);
    EXPECT_EQ(Feature(together.begin(), together.begin() + length), extract({two}));
    EXPECT_EQ(extract({one}), alone);
    loadEmbedded();
    EXPECT_EQ(extract({one}), alone) << "a network loaded anew";
}

TEST_P(Extraction, BadArguments) {
    VDFACEINFOEX record = face(90, 60);
    Feature feature(length, 7);
    const Feature before = feature;
    EXPECT_EQ(extract(image.data, width, height, 1, &record, feature.data()), -1) << "not loaded";
    loadAverages();
    EXPECT_EQ(extract(nullptr, width, height, 1, &record, feature.data()), -1);
    EXPECT_EQ(extract(image.data, 0, height, 1, &record, feature.data()), -1);
    EXPECT_EQ(extract(image.data, width, -1, 1, &record, feature.data()), -1);
    EXPECT_EQ(extract(image.data, width, height, 1, nullptr, feature.data()), -1);
    EXPECT_EQ(extract(image.data, width, height, 1, &record, nullptr), -1);
    for (const int none : {0, -1})
        EXPECT_EQ(extract(nullptr, 0, 0, none, nullptr, nullptr), 0);
    EXPECT_EQ(feature, before);

    // Points that all agree give a crop too.
    std::memset(&record, 0, sizeof(record));
    EXPECT_EQ(extract(image.data, width, height, 1, &record, feature.data()), 0);
}

std::string nameOfWay(const testing::TestParamInfo<int>& info) {
    const char* const names[] = {"Bare", "MaskedByTwoPoints", "MaskedByFivePoints"};
    return names[info.param];
}

INSTANTIATE_TEST_SUITE_P(Ways, Extraction, testing::Values(0, 1, 2), nameOfWay);

TEST(Recognizers, Sizes) {
    EXPECT_EQ(MOBILEFACENET().mfFeatureSize(), length);
    EXPECT_EQ(MASKMOBILEFACENET().maskfFeatureSize(), length);
    EXPECT_EQ(MOBILEFACENET().mfFreeAlg(), 0);
    EXPECT_EQ(MASKMOBILEFACENET().maskfFreeAlg(), 0);
    char missing[] = "/no/such/file";
    EXPECT_EQ(MOBILEFACENET().vdGetDataSize(missing), 0);
    EXPECT_EQ(MASKMOBILEFACENET().vdGetDataSize(missing), 0);
}

Feature randomFeature(unsigned seed, float scale = 1) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0, scale);
    Feature feature(length);
    for (float& value : feature)
        value = normal(random);
    return feature;
}

TEST(Match, IsHalfOfCosinePlusOne) {
    MOBILEFACENET engine;
    for (unsigned seed = 0; seed < 20; ++seed) {
        const Feature a = randomFeature(2 * seed);
        Feature b = randomFeature(2 * seed + 1);
        for (int j = 0; j < length; ++j)
            b[static_cast<std::size_t>(j)] += 0.1F * static_cast<float>(seed) * a[static_cast<std::size_t>(j)];
        long double dot = 0;
        long double na = 0;
        long double nb = 0;
        for (std::size_t j = 0; j < length; ++j) {
            dot += static_cast<long double>(a[j]) * b[j];
            na += static_cast<long double>(a[j]) * a[j];
            nb += static_cast<long double>(b[j]) * b[j];
        }
        EXPECT_NEAR(engine.mfFeatureMatch(a.data(), b.data()), static_cast<double>((dot / sqrtl(na * nb) + 1) / 2),
                    1e-7);
        EXPECT_NEAR(engine.mfFeatureMatch(a.data(), b.data()), engine.mfFeatureMatch(b.data(), a.data()), 1e-15);

        Feature scaled = b;
        for (float& value : scaled)
            value *= 1024; // exact, so nothing else changes
        EXPECT_EQ(engine.mfFeatureMatch(a.data(), scaled.data()), engine.mfFeatureMatch(a.data(), b.data()));
        Feature negated = a;
        for (float& value : negated)
            value = -value;
        EXPECT_NEAR(engine.mfFeatureMatch(a.data(), a.data()), 1.0, 1e-15);
        EXPECT_NEAR(engine.mfFeatureMatch(a.data(), negated.data()), 0.0, 1e-15);
    }
    Feature x(length, 0);
    Feature y(length, 0);
    x[0] = 3;
    y[1] = 5;
    EXPECT_EQ(engine.mfFeatureMatch(x.data(), y.data()), 0.5);
}

// Products are rounded to single precision before they are added: 1 + 2^-23 squared loses its last term.
TEST(Match, RoundsProductsToSinglePrecision) {
    Feature a(length, 0);
    Feature b(length, 0);
    a[0] = 1.0F + std::numeric_limits<float>::epsilon();
    b[0] = a[0];
    b[1] = 1;
    const double square = 1.0 + 2.0 * static_cast<double>(std::numeric_limits<float>::epsilon());
    const double expected = (square / std::sqrt(square) / std::sqrt(square + 1.0) + 1.0) / 2.0;
    EXPECT_EQ(MOBILEFACENET().mfFeatureMatch(a.data(), b.data()), expected);
}

TEST(Match, WithoutDirection) {
    const Feature a = randomFeature(1);
    const Feature zeros(length, 0);
    MOBILEFACENET engine;
    EXPECT_TRUE(std::isnan(engine.mfFeatureMatch(a.data(), zeros.data())));
    EXPECT_TRUE(std::isnan(engine.mfFeatureMatch(zeros.data(), a.data())));
    EXPECT_EQ(engine.mfFeatureMatch(nullptr, a.data()), 0.0);
    EXPECT_EQ(engine.mfFeatureMatch(a.data(), nullptr), 0.0);
}

} // namespace
