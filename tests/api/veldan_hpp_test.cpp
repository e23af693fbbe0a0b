// veldan.hpp as an application sees it: the shared library and the header.

#include "support/templates.hpp"

#include <veldan/veldan.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using veldan::Error;
using veldan::Gallery;
using veldan::ImageView;
using veldan::Instance;
using veldan::Kind;
using veldan::Template;
using veldan::Tracker;
using veldan_tests::Feature;

Template templateOf(const Feature& feature, Kind kind = Kind::Bare) {
    const veldan_tests::Bytes bytes = veldan_tests::encode(feature, static_cast<int>(kind));
    Template one{};
    std::copy(bytes.begin(), bytes.end(), one.begin());
    return one;
}

// The code and the words of what a call throws.
template <class Call>
std::pair<int, std::string> failureOf(const Call& call) {
    try {
        call();
    } catch (const Error& error) {
        return {error.code(), error.what()};
    }
    return {0, ""};
}

constexpr int threshold = 72;

class VeldanHpp : public testing::Test {
protected:
    static void SetUpTestSuite() {
        photo = cv::imread(VELDAN_PHOTO_DIR "/first-bare.webp", cv::IMREAD_COLOR);
        ASSERT_FALSE(photo.empty());
        instance = new Instance(capacity);
        face = instance->detect(view(photo)).at(0);
        feature = veldan_tests::decode(instance->extract(view(photo), face).data(), 1);
        maskedFeature = veldan_tests::decode(instance->extract(view(photo), face, Kind::Masked).data(), 2);
    }
    static void TearDownTestSuite() { delete instance; }

    static ImageView view(const cv::Mat& image) { return {image.data, image.cols, image.rows}; }

    // Galleries of one person whose templates are that similar to the face of the photo.
    struct Galleries {
        explicit Galleries(double similarity) {
            bare.add({templateOf(veldan_tests::similarTo(feature, similarity))});
            masked.add({templateOf(veldan_tests::similarTo(maskedFeature, similarity), Kind::Masked)});
        }
        Gallery bare{Kind::Bare};
        Gallery masked{Kind::Masked};
    };

    static VDFACEINFOEX follow(Tracker& tracker, const Galleries& galleries) {
        tracker.next(view(photo));
        return tracker.search(view(photo), galleries.bare, galleries.masked, threshold, threshold, 0).at(0);
    }

    static constexpr int capacity = 5;
    static cv::Mat photo;
    static Instance* instance;
    static VDFACEINFOEX face;
    static Feature feature;
    static Feature maskedFeature;
};

cv::Mat VeldanHpp::photo;
Instance* VeldanHpp::instance = nullptr;
VDFACEINFOEX VeldanHpp::face;
Feature VeldanHpp::feature;
Feature VeldanHpp::maskedFeature;

// Two searches at 0.79 and a third at 0.60 average 0.72.
TEST_F(VeldanHpp, EvidenceStaysWithItsVideo) {
    const Galleries known(0.79);
    const Galleries stranger(0.60);
    {
        Tracker first(*instance);
        EXPECT_EQ(follow(first, known).searchFlag, 0);
        EXPECT_EQ(follow(first, known).searchFlag, 0);
    }
    Tracker second(*instance);
    EXPECT_EQ(follow(second, stranger).searchFlag, 0) << "recognised by what another video showed";

    // In turns, too; and what is gathered in one's own video counts.
    Tracker third(*instance);
    for (int frame = 0; frame < 2; ++frame) {
        EXPECT_EQ(follow(third, known).searchFlag, 0);
        EXPECT_EQ(follow(second, stranger).searchFlag, 0);
    }
    EXPECT_EQ(follow(third, known).searchFlag, 1);
    follow(second, stranger);
    EXPECT_EQ(follow(second, stranger).strangerFlag, 1) << "the fifth search gives up";
}

TEST_F(VeldanHpp, EvidenceStaysWithItsFace) {
    const Galleries known(0.79);
    const Galleries stranger(0.60);
    const cv::Mat empty(photo.size(), CV_8UC3, cv::Scalar::all(90));
    Tracker tracker(*instance);
    follow(tracker, known);
    EXPECT_EQ(follow(tracker, known).trackId, 0);
    std::set<int> identities{0};
    for (int i = 1; i <= 100; ++i) { // the hundredth newcomer shares the history's row with the first
        EXPECT_TRUE(tracker.next(view(empty)).empty());
        EXPECT_TRUE(identities.insert(tracker.next(view(photo)).at(0).trackId).second);
    }
    EXPECT_EQ(tracker.search(view(photo), stranger.bare, stranger.masked, threshold, threshold, 0).at(0).searchFlag, 0);

    // Those who track by themselves get a new start from an empty list.
    std::vector<VDFACEINFOEX> faces;
    const auto search = [&](const Galleries& galleries) {
        instance->track(view(photo), faces);
        instance->searchTracked(view(photo), faces, galleries.bare, galleries.masked, threshold, threshold, 0);
        return faces.at(0).searchFlag;
    };
    EXPECT_EQ(search(known), 0);
    EXPECT_EQ(search(known), 0);
    instance->track(view(empty), faces);
    EXPECT_TRUE(faces.empty());
    EXPECT_EQ(search(stranger), 0);
}

} // namespace
