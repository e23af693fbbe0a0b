#include "comparison.h"
#include "exact_sums.hpp"
#include "nearest.h"
#include "recog/similarity.hpp"
#include "template_text.h"

#include <veldan/template.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <tuple>
#include <vector>

namespace {

using veldan::Kind;
using veldan::Template;
using Feature = std::array<float, 128>;

Template templateOf(const Feature& feature, Kind kind = Kind::Bare) {
    Template made{};
    TzEncode(static_cast<int>(kind), reinterpret_cast<const unsigned char*>(feature.data()), sizeof(Feature),
             made.data());
    return made;
}

// Features that sums in vectors meet, or could stumble over.
enum class Shape { Plain, Zeros, Sizes, Tiny, Subnormal, Whole, Last };

Feature featureOf(std::mt19937& random, Shape shape) {
    std::normal_distribution<float> normal(0, 6);
    const auto chance = [&](unsigned of) { return random() % of == 0; };
    Feature feature;
    for (float& value : feature) {
        value = normal(random);
        if (shape == Shape::Zeros && chance(4))
            value = 0;
        if (shape == Shape::Sizes)
            value = std::ldexp(value, static_cast<int>(random() % 40) - 20);
        if (shape == Shape::Tiny && chance(20))
            value *= 1e-30F;
        if (shape == Shape::Subnormal && chance(60))
            value = 1e-42F;
        if (shape == Shape::Whole)
            value = std::trunc(value);
    }
    feature[0] = 3; // a feature of zeros is none
    return feature;
}

TEST(ExactSums, AreThoseOfTheDefinitionWhateverTheProcessor) {
    std::mt19937 random(1);
    for (int round = 0; round < 6000; ++round) {
        const auto shapeOf = [](int number) { return static_cast<Shape>(number % static_cast<int>(Shape::Last)); };
        const Feature a = featureOf(random, shapeOf(round));
        const Feature b = featureOf(random, shapeOf(round / 6));
        double dot = 0;
        double na = 0;
        double nb = 0;
        for (std::size_t j = 0; j < a.size(); ++j) {
            dot += static_cast<double>(a[j] * b[j]);
            na += static_cast<double>(a[j] * a[j]);
            nb += static_cast<double>(b[j] * b[j]);
        }
        for (const veldan::exact::NamedSums& one : veldan::exact::allSums())
            if (one.function != nullptr) {
                const veldan::exact::Sums sums = one.function(a.data(), b.data(), nb);
                ASSERT_EQ(sums.dot, dot) << one.name << ", round " << round;
                ASSERT_EQ(sums.squaredNorm, na) << one.name << ", round " << round;
            }
        veldan_probe probe;
        veldan_prepare_probe(&probe, templateOf(b).data());
        ASSERT_EQ(veldan_similarity(templateOf(a).data(), &probe),
                  static_cast<float>(veldan::similarity(a.data(), b.data())));
        ASSERT_EQ(veldan_similarity(templateOf(a, Kind::Masked).data(), &probe), 0);
    }
}

// Searches in parts, as several processes and servers do, against the definition.
class NearestInParts : public testing::TestWithParam<std::tuple<int, int, float>> {};

class Search {
public:
    Search(const Template& probe, int count, float threshold)
        : memory_(veldan_nearest_size(count)),
          search_(veldan_nearest_start(memory_.data(), probe.data(), count, threshold)) {}
    veldan_nearest* get() { return search_; }
    std::vector<veldan_match> finish() {
        int number = 0;
        const veldan_match* matches = veldan_nearest_finish(search_, &number);
        return {matches, matches + number};
    }

private:
    std::vector<unsigned char> memory_;
    veldan_nearest* search_;
};

TEST_P(NearestInParts, IsTheDefinition) {
    const auto [parts, count, threshold] = GetParam();
    std::mt19937 random(2);
    const Feature wanted = featureOf(random, Shape::Plain);
    const Template probe = templateOf(wanted);
    std::vector<Search> searches;
    for (int part = 0; part < parts; ++part)
        searches.emplace_back(probe, count, threshold);
    std::map<std::int64_t, veldan_match> best;
    for (int i = 0; i < 3000; ++i) {
        Feature feature = featureOf(random, static_cast<Shape>(i % static_cast<int>(Shape::Last)));
        if (i % 5 == 0)
            for (std::size_t j = 0; j < feature.size(); ++j)
                feature[j] = std::ldexp(wanted[j], i % 3); // all of them equal
        const Kind kind = i % 7 == 0 ? Kind::Masked : Kind::Bare;
        const Template one = templateOf(feature, kind);
        const veldan_match match = {static_cast<std::int64_t>(random() % 1000), i,
                                    static_cast<float>(veldan::similarity(feature.data(), wanted.data()))};
        veldan_nearest_add(searches[random() % searches.size()].get(), match.person, match.photo, one.data());
        if (kind == Kind::Masked || !(match.similarity >= threshold))
            continue;
        const auto [known, added] = best.emplace(match.person, match);
        if (!added && match.similarity > known->second.similarity)
            known->second = match;
    }
    std::vector<veldan_match> expected;
    for (const auto& [person, match] : best)
        expected.push_back(match);
    std::stable_sort(expected.begin(), expected.end(),
                     [](const veldan_match& a, const veldan_match& b) { return a.similarity > b.similarity; });
    expected.resize(std::min(expected.size(), static_cast<std::size_t>(count)));

    Search joined(probe, count, threshold);
    for (Search& part : searches)
        for (const veldan_match& match : part.finish())
            veldan_nearest_offer(joined.get(), &match);
    const std::vector<veldan_match> found = joined.finish();
    ASSERT_EQ(found.size(), expected.size());
    for (std::size_t i = 0; i < found.size(); ++i) {
        EXPECT_EQ(found[i].person, expected[i].person) << i;
        EXPECT_EQ(found[i].photo, expected[i].photo) << i;
        EXPECT_EQ(found[i].similarity, expected[i].similarity) << i;
    }
}

INSTANTIATE_TEST_SUITE_P(All, NearestInParts,
                         testing::Combine(testing::Values(1, 3), testing::Values(1, 10, 900),
                                          testing::Values(-1.0F, 0.52F)));

TEST(TemplateText, BothFormsGiveTheBytesBack) {
    std::mt19937 random(3);
    for (const Kind kind : {Kind::Bare, Kind::Masked}) {
        const Template one = templateOf(featureOf(random, Shape::Plain), kind);
        EXPECT_EQ(veldan_template_kind(one.data()), static_cast<int>(kind));
        std::string hex(VELDAN_HEX_LENGTH, '?');
        std::string base64(VELDAN_BASE64_LENGTH, '?');
        veldan_template_to_hex(one.data(), hex.data());
        veldan_template_to_base64(one.data(), base64.data());
        for (const std::string& text : {hex, base64}) {
            Template back{};
            EXPECT_STREQ(veldan_template_from_text(text.data(), text.size(), back.data()), nullptr);
            EXPECT_EQ(back, one);
        }
        // Every digit matters: a single damaged bit is found.
        for (std::size_t i = 2; i < hex.size(); ++i) {
            std::string damaged = hex;
            damaged[i] = damaged[i] == '0' ? '1' : '0';
            Template back{};
            EXPECT_STRNE(veldan_template_from_text(damaged.data(), damaged.size(), back.data()), nullptr) << i;
        }
    }
}

} // namespace
