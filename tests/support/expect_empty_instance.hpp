#ifndef VELDAN_TESTS_SUPPORT_EXPECT_EMPTY_INSTANCE_HPP
#define VELDAN_TESTS_SUPPORT_EXPECT_EMPTY_INSTANCE_HPP

#include <veldan/instance.hpp>

#include <gtest/gtest.h>

namespace veldan_tests {

// No engine and no search history: an instance before it was started, after it was freed, or whose start failed.
inline void expectEmpty(const VdFaceAPI& instance) {
    EXPECT_EQ(instance.faceDetector, nullptr);
    EXPECT_EQ(instance.faceQuality, nullptr);
    EXPECT_EQ(instance.faceRecognizer, nullptr);
    EXPECT_EQ(instance.livenessDetector, nullptr);
    EXPECT_EQ(instance.faceMask, nullptr);
    EXPECT_EQ(instance.faceLandmark, nullptr);
    EXPECT_EQ(instance.onetLandmark, nullptr);
    EXPECT_EQ(instance.maskFaceRecognizer, nullptr);
    EXPECT_EQ(instance.searchHistory, nullptr);
}

} // namespace veldan_tests

#endif
