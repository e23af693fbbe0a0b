#ifndef VELDAN_TESTS_SUPPORT_AVERAGING_NETWORK_HPP
#define VELDAN_TESTS_SUPPORT_AVERAGING_NETWORK_HPP

#include <gtest/gtest.h>
#include <opencv2/dnn.hpp>

#include <string>

namespace veldan_tests {

// A recognizer whose answer tells what the crop was. Averages of 14 x 14 pixels: 64 values a channel, of which a
// feature holds the first two channels.
inline void loadAverages(cv::dnn::Net& net, const std::string& output) {
    const std::string text = R"(layer { name: "data" type: "Input" top: "data"
              input_param { shape { dim: 1 dim: 3 dim: 112 dim: 112 } } }
      layer { name: ")" + output +
                             R"(" type: "Pooling" bottom: "data" top: "out"
              pooling_param { pool: AVE kernel_size: 14 stride: 14 } })";
    net = cv::dnn::readNetFromCaffe(text.data(), text.size());
    ASSERT_FALSE(net.empty());
}

} // namespace veldan_tests

#endif
