// Which bytes can be a template, whatever their checksum says.

#include "support/templates.hpp"

#include <veldan/template.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>

namespace {

using veldan::Kind;
using veldan_tests::Feature;

// A template of the feature, with a checksum that holds.
veldan::Template templateOf(const Feature& feature, Kind kind = Kind::Bare) {
    const veldan_tests::Bytes bytes = veldan_tests::encode(feature, static_cast<int>(kind));
    veldan::Template one{};
    std::copy(bytes.begin(), bytes.end(), one.begin());
    return one;
}

// A feature of that length: 128 equal values.
Feature ofLength(double length) {
    return Feature(veldan_tests::featureLength, static_cast<float>(length / std::sqrt(128.0)));
}

TEST(Template, OfUsualLengthIsPlausible) {
    for (const double length : {0.11, 1.0, 23.0, 75.0, 130.0, 9999.0})
        for (const Kind kind : {Kind::Bare, Kind::Masked})
            EXPECT_STREQ(veldan::flawOf(templateOf(ofLength(length), kind), kind), "") << length;
}

TEST(Template, OfNoFaceIsNot) {
    using Limits = std::numeric_limits<float>;
    Feature oneNaN = ofLength(75);
    oneNaN[127] = Limits::quiet_NaN();
    Feature oneInfinite = ofLength(75);
    oneInfinite[0] = -Limits::infinity();
    for (const Feature& feature :
         {oneNaN, oneInfinite, ofLength(0), ofLength(0.09), ofLength(10001), Feature(128, Limits::denorm_min()),
          Feature(128, Limits::max()), Feature(128, 1e-20F)})
        EXPECT_FALSE(veldan::plausible(templateOf(feature), Kind::Bare)) << feature[0] << ' ' << feature[1];
}

TEST(Template, DamagedOrOfTheOtherKindIsNot) {
    veldan::Template one = templateOf(ofLength(75));
    EXPECT_NE(std::string(veldan::flawOf(one, Kind::Masked)).find("other kind"), std::string::npos);
    one[300] ^= 1U;
    EXPECT_NE(std::string(veldan::flawOf(one, Kind::Bare)).find("checksum"), std::string::npos);
    EXPECT_FALSE(veldan::plausible({}, Kind::Bare));
}

} // namespace
