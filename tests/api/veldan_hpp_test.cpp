// veldan.hpp as an application sees it: the shared library and the header.

#include "support/templates.hpp"

#include <veldan/veldan.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <functional>
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

TEST_F(VeldanHpp, TrackedFacesKeepWhatWasFound) {
    const Galleries known(0.95);
    Tracker tracker(*instance);
    const VDFACEINFOEX first = tracker.next(view(photo)).at(0);
    EXPECT_EQ(first.searchId, -1);
    EXPECT_EQ(first.maskScore, -1);
    EXPECT_EQ(first.liveness, -1);
    EXPECT_EQ(std::vector<int>(first.reserved4, first.reserved4 + 3), std::vector<int>(3, 0));
    const VDFACEINFOEX found = follow(tracker, known);
    EXPECT_EQ(found.searchFlag, 1);
    EXPECT_GE(found.maskScore, 0);
    Tracker moved = std::move(tracker);
    const VDFACEINFOEX later = moved.next(view(photo)).at(0);
    EXPECT_EQ(later.trackId, first.trackId);
    EXPECT_EQ(later.searchFlag, 1);
    EXPECT_EQ(later.maskScore, found.maskScore);
    EXPECT_THROW(moved.next({}), Error);
    EXPECT_EQ(moved.faces().size(), 1U) << "as before the call that failed";
    Tracker assigned(*instance);
    assigned = std::move(moved);
    EXPECT_EQ(assigned.next(view(photo)).at(0).searchFlag, 1);
}

TEST_F(VeldanHpp, ImagesThatCannotBeUsedAreNamed) {
    VDFACEINFOEX record = face;
    std::vector<VDFACEINFOEX> faces;
    const Galleries galleries(0.9);
    Tracker tracker(*instance);
    const std::vector<unsigned char> bytes(99 * 120 * 3);
    const ImageView small{bytes.data(), 99, 120};
    const std::vector<std::function<void(ImageView)>> calls = {
        [&](ImageView image) { instance->detect(image); },
        [&](ImageView image) { instance->track(image, faces); },
        [&](ImageView image) { tracker.next(image); },
        [&](ImageView image) { tracker.search(image, galleries.bare, galleries.masked, 70, 70, 0); },
        [&](ImageView image) {
            instance->judgeQuality(image, {&record, 1});
        },
        [&](ImageView image) {
            instance->judgeMask(image, {&record, 1});
        },
        [&](ImageView image) {
            instance->judgeLiveness(image, {&record, 1});
        },
        [&](ImageView image) {
            instance->judgeNearInfraredLiveness(image, {&record, 1});
        },
        [&](ImageView image) { instance->enrolmentQuality(image, record); },
        [&](ImageView image) { instance->extract(image, record); },
        [&](ImageView image) { instance->extractForEnrolment(image, record, Kind::Masked); },
    };
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_THAT(failureOf([&] {
                        calls[i]({nullptr, 200, 200});
                    }),
                    testing::Pair(13, testing::HasSubstr("no pixels")))
            << i;
        EXPECT_THAT(failureOf([&] {
                        calls[i]({bytes.data(), 0, 120});
                    }),
                    testing::Pair(27, testing::HasSubstr("0 x 120")))
            << i;
        if (i < 3) {
            EXPECT_THAT(failureOf([&] { calls[i](small); }), testing::Pair(27, testing::HasSubstr("99 x 120"))) << i;
        }
    }
    EXPECT_THAT(failureOf([&] {
                    instance->judgeMask(view(photo), {nullptr, 1});
                }),
                testing::Pair(13, testing::HasSubstr("no records")));
}

TEST_F(VeldanHpp, GalleriesMustBelongTogether) {
    const Galleries fit(0.9);
    Gallery two(Kind::Masked);
    two.add({});
    two.add({templateOf(maskedFeature, Kind::Masked)});
    Gallery twice(Kind::Masked);
    twice.add({templateOf(maskedFeature, Kind::Masked), templateOf(maskedFeature, Kind::Masked)});
    Gallery manyBare;
    Gallery manyMasked(Kind::Masked);
    for (int person = 0; person <= capacity; ++person) {
        manyBare.add({});
        manyMasked.add({});
    }
    Tracker tracker(*instance);
    std::vector<VDFACEINFOEX> faces(1, face);
    const std::vector<std::function<void(const Gallery&, const Gallery&)>> searches = {
        [&](const Gallery& a, const Gallery& b) { tracker.search(view(photo), a, b, 70, 70, 0); },
        [&](const Gallery& a, const Gallery& b) { instance->searchTracked(view(photo), faces, a, b, 70, 70, 0); }};
    for (const auto& search : searches) {
        EXPECT_EQ(failureOf([&] { search(fit.masked, fit.bare); }).first, 17);
        EXPECT_EQ(failureOf([&] { search(fit.bare, two); }).first, 17);
        EXPECT_EQ(failureOf([&] { search(fit.bare, twice); }).first, 17);
        EXPECT_EQ(failureOf([&] { search(manyBare, manyMasked); }).first, -3);
        EXPECT_EQ(failureOf([&] { search(fit.bare, fit.masked); }).first, 0);
    }
}

TEST_F(VeldanHpp, TemplatesOfNoFaceAreRefusedEverywhere) {
    Gallery gallery;
    const Template good = templateOf(feature);
    EXPECT_EQ(gallery.add({templateOf(veldan_tests::randomFeature(1)), templateOf(veldan_tests::randomFeature(2))}), 0);
    EXPECT_EQ(gallery.add({good}), 1);
    Template damaged = good;
    damaged[9] ^= 1U;
    for (const Template& bad :
         {damaged, Template{}, templateOf(Feature(128, 1e-23F)), templateOf(feature, Kind::Masked)}) {
        EXPECT_EQ(failureOf([&] { gallery.add({good, bad}); }).first, 17);
        EXPECT_EQ(failureOf([&] { instance->match(good, bad); }).first, 17);
        EXPECT_EQ(failureOf([&] { instance->match(bad, good); }).first, 17);
        EXPECT_EQ(failureOf([&] { instance->identify(gallery, bad, 0.7F); }).first, 17);
    }
    EXPECT_EQ(gallery.persons(), 2);
    EXPECT_EQ(gallery.templates(), 3U);
    EXPECT_EQ(instance->identify(gallery, good, 0.9F).first, 1);
    EXPECT_EQ(instance->identify(gallery, templateOf(veldan_tests::similarTo(feature, 0.8)), 0.81F).first, -1);
    EXPECT_EQ(instance->identify(Gallery(), good, 0.0F), std::make_pair(-1, 0.0F));
}

TEST_F(VeldanHpp, InstancesMove) {
    Instance other(3);
    void* const handle = other.handle();
    Instance taken(std::move(other));
    EXPECT_EQ(taken.handle(), handle);
    EXPECT_EQ(failureOf([&] { other.detect(view(photo)); }).first, 12); // NOLINT: what a moved one says
    VDFACEINFOEX judged = face;
    judged.quality = 80;
    EXPECT_EQ(failureOf([&] { other.enrolmentQuality(view(photo), judged); }).first, 12) << "80 was another call's";
    other = std::move(taken);
    EXPECT_EQ(other.detect(view(photo)).at(0).x, face.x);
}

TEST_F(VeldanHpp, LivenessIsTheMedianOverTheFramesOfAFace) {
    Tracker tracker(*instance);
    std::vector<int> scores;
    for (const double light : {1.0, 0.4, 0.7, 1.0, 0.4}) {
        const cv::Mat frame = photo * light;
        std::vector<VDFACEINFOEX> alone = tracker.next(view(frame));
        ASSERT_EQ(alone.size(), 1U);
        instance->judgeMask(view(frame), alone);
        instance->judgeLiveness(view(frame), alone);
        scores.push_back(alone[0].liveness);
        std::vector<int> sorted = scores;
        std::sort(sorted.begin(), sorted.end());
        const VDFACEINFOEX& judged = tracker.judgeLiveness(view(frame)).at(0);
        EXPECT_EQ(judged.liveness, sorted[(sorted.size() - 1) / 2]);
        EXPECT_EQ(judged.maskScore, alone[0].maskScore);
    }
    EXPECT_GT(std::set<int>(scores.begin(), scores.end()).size(), 1U) << "these frames do not differ";

    // A newcomer has no past.
    tracker.next(view(cv::Mat(photo.size(), CV_8UC3, cv::Scalar::all(90))));
    EXPECT_EQ(tracker.next(view(photo)).at(0).liveness, -1);
    EXPECT_EQ(tracker.judgeLiveness(view(photo)).at(0).liveness, scores[0]);
}

} // namespace
