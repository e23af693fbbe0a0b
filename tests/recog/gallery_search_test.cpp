// The search of a gallery: known answers, and every kernel of this processor against the plain form of the search.

#include "engine/rounding.hpp"
#include "recog/gallery_kernels.hpp"
#include "recog/gallery_search.hpp"
#include "recog/similarity.hpp"
#include "support/templates.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <numeric>
#include <random>
#include <set>
#include <string>
#include <vector>

namespace {

using testing::ElementsAre;
using veldan::bareKind;
using veldan::GalleryMatch;
using veldan::maskedKind;
using veldan_tests::append;
using veldan_tests::Bytes;
using veldan_tests::encode;
using veldan_tests::Feature;
using veldan_tests::randomFeature;
using veldan_tests::similarTo;

constexpr std::ptrdiff_t size = veldan::templateSize;

Feature plane(float x, float y) {
    Feature feature(veldan_tests::featureLength);
    feature[3] = x;
    feature[100] = y;
    return feature;
}

Bytes galleryOf(const std::vector<Feature>& features, int kind = bareKind) {
    Bytes gallery;
    for (const Feature& feature : features)
        append(gallery, encode(feature, kind));
    return gallery;
}

int countOf(const Bytes& gallery) {
    return static_cast<int>(gallery.size()) / veldan::templateSize;
}

unsigned below(unsigned limit, std::mt19937& random) {
    return static_cast<unsigned>(random() % limit);
}

// Moves every value by at most one unit in the last place: the similarity moves by about its own last place.
Feature nudged(Feature feature, std::mt19937& random) {
    for (float& value : feature)
        value = std::nextafter(value, below(2, random) == 0 ? -10.0F : 10.0F);
    return feature;
}

// A kernel that errs about as far as it may, up and down in turn: no real one does, whose bounds are for the worst
// case.
void scoreErringly(const unsigned char* templates, int count, const veldan::GalleryProbe& probe, float toBeat,
                   veldan::GalleryScores& scores) {
    const auto percent = [](float score) { return std::max(veldan::percent(score), 0); };
    veldan::portableKernel.score(templates, count, probe, toBeat, scores);
    scores.open = scores.contending = 0;
    for (int k = 0; k < count; ++k) {
        const std::uint64_t bit = std::uint64_t{1} << k;
        scores.score[k] += (k % 2 == 0 ? 0.75F : -0.75F) * veldan::galleryScoreError;
        scores.lower[k] = percent(scores.score[k] - veldan::galleryScoreError);
        scores.upper[k] = percent(scores.score[k] + veldan::galleryScoreError);
        scores.open |= scores.lower[k] != scores.upper[k] ? bit : 0;
        scores.contending |= scores.score[k] + veldan::galleryScoreError > toBeat ? bit : 0;
    }
}

std::vector<veldan::GalleryKernel> allKernels() {
    std::vector<veldan::GalleryKernel> kernels = veldan::galleryKernels();
    kernels.push_back({"erring", scoreErringly});
    return kernels;
}

struct Results {
    GalleryMatch match;
    std::vector<std::int32_t> percents;
};

class GallerySearch : public testing::TestWithParam<veldan::GalleryKernel> {
protected:
    // Searches with the kernel, with and without percents, and expects the results of the plain form.
    static Results search(const Bytes& gallery, const Bytes& probe, const std::vector<int>* nums = nullptr,
                          int kind = bareKind) {
        return search(gallery.data(), countOf(gallery), probe, nums, kind);
    }

    static Results search(const unsigned char* gallery, int count, const Bytes& probe, const std::vector<int>* nums,
                          int kind) {
        const int personNum = nums != nullptr ? static_cast<int>(nums->size()) : count;
        const int* const counts = nums != nullptr ? nums->data() : nullptr;
        Results plain{{}, std::vector<std::int32_t>(static_cast<std::size_t>(personNum), -7)};
        Results fast = plain;
        plain.match =
            veldan::searchGalleryPlainly(kind, gallery, counts, personNum, probe.data(), plain.percents.data());
        fast.match =
            veldan::searchGalleryWith(GetParam(), kind, gallery, counts, personNum, probe.data(), fast.percents.data());
        EXPECT_EQ(fast.percents, plain.percents);
        expectSame(fast.match, plain.match);
        expectSame(veldan::searchGalleryWith(GetParam(), kind, gallery, counts, personNum, probe.data(), nullptr),
                   plain.match);
        return fast;
    }

    static void expectSame(const GalleryMatch& a, const GalleryMatch& b) {
        EXPECT_EQ(a.score, b.score); // to the last bit; never "not a number"
        EXPECT_EQ(a.person, b.person);
        EXPECT_EQ(a.refused, b.refused);
    }
};

INSTANTIATE_TEST_SUITE_P(Kernels, GallerySearch, testing::ValuesIn(allKernels()),
                         [](const auto& kernel) { return std::string(kernel.param.name); });

// Angles whose cosines are -1, 0, 0.6 and 1.
TEST_P(GallerySearch, FindsKnownAngles) {
    std::vector<Feature> features = {plane(-2, 0), plane(0, 7), plane(3, 4), plane(1, 0), plane(5, 0)};
    const Bytes probe = encode(plane(0.5F, 0), bareKind);
    // As many again that are further away, so that whole groups are searched as well.
    features.insert(features.end(), 10, plane(-3, 4));
    const Results each = search(galleryOf(features), probe);
    EXPECT_EQ(each.match.score, 1);
    EXPECT_EQ(each.match.person, 3);
    EXPECT_FALSE(each.match.refused);
    std::vector<std::int32_t> expected = {0, 50, 80, 100, 100};
    expected.insert(expected.end(), 10, 20);
    EXPECT_EQ(each.percents, expected);

    const std::vector<int> nums = {0, 3, -4, 1, 0, 11};
    const Results several = search(galleryOf(features), probe, &nums);
    EXPECT_EQ(several.match.person, 3);
    EXPECT_THAT(several.percents, ElementsAre(0, 80, 0, 100, 0, 100));
}

TEST_P(GallerySearch, EqualsThePlainFormForAnySizes) {
    std::mt19937 random(11);
    for (const int kind : {bareKind, maskedKind}) {
        const Bytes probe = encode(randomFeature(1), kind);
        for (const unsigned count : {0U, 1U, 7U, 8U, 9U, 63U, 64U, 65U, 71U, 72U, 130U, 300U}) {
            std::vector<Feature> features;
            std::vector<int> nums;
            for (unsigned i = 0; i < count; ++i)
                features.push_back(similarTo(randomFeature(1), below(1000, random) / 1000.0, below(9999, random)));
            for (int left = static_cast<int>(count); left > 0; left -= std::max(nums.back(), 0))
                nums.push_back(std::min(left, static_cast<int>(below(count / 3 + 4, random)) - 2));
            nums.push_back(0);
            search(galleryOf(features, kind), probe, nullptr, kind);
            search(galleryOf(features, kind), probe, &nums, kind);
        }
    }
}

// Scores so close to where a percent, or a decision at 0.8, changes that only the exact sums tell the side.
TEST_P(GallerySearch, EqualsThePlainFormAtBoundariesOfPercents) {
    std::mt19937 random(12);
    const Feature wanted = randomFeature(2);
    for (const int boundary : {1, 2, 33, 49, 50, 64, 79, 80, 81, 99}) {
        std::vector<Feature> features;
        for (int i = -75; i < 75; ++i)
            for (const double step : {4e-9, 4e-8})
                features.push_back(similarTo(wanted, boundary / 100.0 + i * step, below(9999, random)));
        const Bytes gallery = galleryOf(features);
        const Results each = search(gallery, encode(wanted, bareKind));
        EXPECT_THAT(std::set<int>(each.percents.begin(), each.percents.end()), ElementsAre(boundary - 1, boundary));
        const std::vector<int> nums = {1, 2, 3, 60, 4, 220, 10};
        search(gallery, encode(wanted, bareKind), &nums);
    }
}

// More templates within a few last places than the search keeps in mind, some of them equal.
TEST_P(GallerySearch, FindsTheFirstOfTheBest) {
    std::mt19937 random(13);
    const Feature wanted = randomFeature(3);
    std::vector<Feature> features;
    for (int i = 0; i < 400; ++i)
        features.push_back(i % 5 == 4 ? features[random() % features.size()]
                                      : nudged(similarTo(wanted, 0.9, static_cast<unsigned>(i % 3)), random));
    const auto score = [&](const Feature& feature) { return veldan::similarity(feature.data(), wanted.data()); };
    const auto less = [&](const Feature& a, const Feature& b) { return score(a) < score(b); };
    const Bytes probe = encode(wanted, bareKind);
    for (int order = 0; order < 3; ++order) {
        if (order != 0)
            std::stable_sort(features.begin(), features.end(), less);
        if (order == 2)
            std::reverse(features.begin(), features.end());
        const Results results = search(galleryOf(features), probe);
        // Several doubles make one float; the first of those with the greatest float is wanted.
        std::vector<float> scores;
        for (const Feature& feature : features)
            scores.push_back(static_cast<float>(score(feature)));
        EXPECT_EQ(results.match.person, std::max_element(scores.begin(), scores.end()) - scores.begin());
        const std::vector<int> nums = {100, 0, 29, 1, 270};
        search(galleryOf(features), probe, &nums);
    }
    search(galleryOf(std::vector<Feature>(100, wanted)), probe);
}

TEST_P(GallerySearch, EqualsThePlainFormForOddValues) {
    using Limits = std::numeric_limits<float>;
    std::mt19937 random(14);
    const Feature wanted = randomFeature(4);
    std::vector<Feature> odd = {Feature(wanted.size()),
                                plane(Limits::quiet_NaN(), 1),
                                plane(Limits::infinity(), 0),
                                plane(-Limits::infinity(), 1),
                                Feature(wanted.size(), Limits::denorm_min()),
                                Feature(wanted.size(), Limits::max())};
    for (const float scale :
         {0x1p-140F, 0x1p-120F, 0x1p-75F, 0x1p-70F, 0x1p-33F, 0x1p-29F, 0x1p25F, 0x1p28F, 0x1p56F, 0x1p62F, 0x1p120F}) {
        odd.push_back(similarTo(wanted, 0.7, 5));
        for (float& value : odd.back())
            value *= scale;
    }
    odd.push_back(wanted);
    odd.back()[127] = Limits::quiet_NaN();
    odd.push_back(wanted);
    odd.back()[0] = Limits::max();
    std::vector<Feature> features = odd;
    for (int i = 0; i < 150; ++i)
        features.push_back(below(4, random) == 0 ? odd[random() % odd.size()] : randomFeature(below(9999, random)));
    odd.push_back(wanted);
    const Bytes gallery = galleryOf(features);
    const std::vector<int> nums = {3, 20, 70, 1, 1, 60};
    for (const Feature& probe : odd) {
        search(gallery, encode(probe, bareKind));
        search(gallery, encode(probe, bareKind), &nums);
    }
}

TEST_P(GallerySearch, RefusesDamageAnywhere) {
    const Feature wanted = randomFeature(6);
    const Bytes probe = encode(wanted, bareKind);
    std::vector<Feature> features;
    for (unsigned i = 0; i < 75; ++i)
        features.push_back(similarTo(wanted, 0.995 - 0.01 * i, i));
    const Bytes intact = galleryOf(features);
    EXPECT_FALSE(search(intact, probe).match.refused);
    const auto expectRefused = [&](const Bytes& gallery, std::size_t person) {
        const Results results = search(gallery, probe);
        EXPECT_TRUE(results.match.refused) << person;
        EXPECT_EQ(results.percents[person], 0);
        EXPECT_EQ(results.match.person, person == 0 ? 1 : 0);
    };
    for (std::size_t byte = 0; byte < static_cast<std::size_t>(size); byte += byte < 16 ? 1 : 3) {
        const std::size_t person = byte % features.size();
        Bytes damaged = intact;
        damaged[person * static_cast<std::size_t>(size) + byte] ^= static_cast<unsigned char>(1U << byte % 8);
        expectRefused(damaged, person);
    }
    // Another tag with the checksum that goes with it.
    for (std::size_t byte = 0; byte < 7; ++byte) {
        const std::size_t person = 10 * byte;
        Bytes other = intact;
        for (const std::size_t position : {byte, std::size_t{7}})
            other[person * static_cast<std::size_t>(size) + position] ^= 0x11;
        expectRefused(other, person);
    }
    search(galleryOf(features, maskedKind), probe);
}

TEST_P(GallerySearch, RefusesADamagedProbeOnlyWhereThereAreTemplates) {
    Bytes probe = encode(randomFeature(7), bareKind);
    probe[300] ^= 1;
    const std::vector<int> none = {0, -1};
    EXPECT_FALSE(search(Bytes(), probe, &none).match.refused);
    EXPECT_TRUE(search(galleryOf({randomFeature(8)}), probe).match.refused);
    EXPECT_TRUE(search(galleryOf({randomFeature(8)}), encode(randomFeature(7), maskedKind)).match.refused);
}

TEST_P(GallerySearch, TakesAGalleryAtAnyAddress) {
    std::vector<Feature> features;
    for (unsigned i = 0; i < 70; ++i)
        features.push_back(randomFeature(i));
    const Bytes gallery = galleryOf(features);
    for (const std::size_t offset : {1U, 3U, 4U, 8U, 37U}) {
        // Ends with the last template, for the sanitizer to notice any step too far.
        Bytes moved(offset);
        append(moved, gallery);
        EXPECT_EQ(search(moved.data() + offset, 70, encode(features[66], bareKind), nullptr, bareKind).match.person,
                  66);
    }
}

// What the settling of close calls relies on.
TEST_P(GallerySearch, KernelsKeepTheirBounds) {
    std::mt19937 random(15);
    for (int round = 0; round < 40; ++round) {
        const Feature wanted = randomFeature(below(9999, random));
        double square = 0;
        for (const float value : wanted)
            square += static_cast<double>(value) * static_cast<double>(value);
        veldan::GalleryProbe probe;
        for (std::size_t j = 0; j < wanted.size(); ++j)
            probe.halfDirection[j] = static_cast<float>(static_cast<double>(wanted[j]) / std::sqrt(square) / 2);
        std::memcpy(probe.tag, "VD_V5.0", sizeof probe.tag);

        const int count = 1 + static_cast<int>(below(veldan::galleryBlock, random));
        std::vector<Feature> features;
        for (int i = 0; i < count; ++i)
            features.push_back(similarTo(wanted, below(1001, random) / 1000.0, below(9999, random)));
        const Bytes gallery = galleryOf(features);
        veldan::GalleryScores scores;
        GetParam().score(gallery.data(), count, probe, 0.5F, scores);
        EXPECT_EQ(scores.refused | scores.unsafe, 0U);
        for (int i = 0; i < count; ++i) {
            const auto exact =
                static_cast<float>(veldan::similarity(features[static_cast<std::size_t>(i)].data(), wanted.data()));
            EXPECT_NEAR(scores.score[i], exact, veldan::galleryScoreError);
            EXPECT_LE(scores.lower[i], veldan::percent(exact));
            EXPECT_GE(scores.upper[i], veldan::percent(exact));
            EXPECT_EQ(scores.open >> i & 1U, scores.lower[i] != scores.upper[i] ? 1U : 0U);
            if (exact > 0.5F) {
                EXPECT_EQ(scores.contending >> i & 1U, 1U);
            }
        }
    }
}

TEST(FastestKernel, IsTheOneThatASearchTakes) {
    EXPECT_EQ(std::string(veldan::fastestGalleryKernel().name), veldan::galleryKernels().front().name);
    const Bytes gallery = galleryOf({plane(0, 1), plane(3, 4)});
    std::int32_t percents[2];
    const GalleryMatch match =
        veldan::searchGallery(bareKind, gallery.data(), nullptr, 2, encode(plane(1, 0), bareKind).data(), percents);
    EXPECT_EQ(match.person, 1);
    EXPECT_EQ(match.score, 0.8F);
    EXPECT_THAT(percents, ElementsAre(50, 80));
}

} // namespace
