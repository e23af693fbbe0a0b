#include "photo/liveness_rates.hpp"

#include <gtest/gtest.h>

using namespace veldan::kit;

namespace {

const std::vector<int> live = {40, 60, 80, 100};
const std::vector<int> attacks = {0, 10, 50, 60};

TEST(LivenessRates, CountAFaceAsLiveFromTheThresholdOn) {
    EXPECT_DOUBLE_EQ(livenessRates(live, attacks, 60).letIn, 0.25);
    EXPECT_DOUBLE_EQ(livenessRates(live, attacks, 60).refused, 0.25);
    EXPECT_DOUBLE_EQ(livenessRates(live, attacks, 61).letIn, 0);
    EXPECT_DOUBLE_EQ(livenessRates(live, attacks, 61).refused, 0.5);
    EXPECT_DOUBLE_EQ(livenessRates(live, attacks, 61).mean(), 0.25);
}

TEST(ChooseThreshold, TakesTheMiddleOfTheBestOnes) {
    // One error in four is the least: from 11 to 40 two attacks are let in, from 51 to 60 one of each class errs.
    EXPECT_EQ(chooseThreshold(live, attacks, std::nullopt)->threshold, 25);
    EXPECT_EQ(chooseThreshold({90}, {10}, std::nullopt)->threshold, 50);
}

TEST(ChooseThreshold, KeepsToTheLimit) {
    EXPECT_EQ(chooseThreshold(live, attacks, 0.25)->threshold, 55); // 51 to 60
    EXPECT_EQ(chooseThreshold(live, attacks, 0)->threshold, 70);    // 61 to 80
    EXPECT_DOUBLE_EQ(chooseThreshold(live, attacks, 0)->refused, 0.5);
    EXPECT_FALSE(chooseThreshold({100}, {100}, 0.5).has_value());
}

TEST(Separation, IsTheShareOfPairsInOrder) {
    // 40 beats two, 60 three and a half, 80 and 100 all four.
    EXPECT_DOUBLE_EQ(separation(live, attacks), 13.5 / 16);
}

} // namespace
