// Every network, run in the library's reader, answers what the trainer's own forward pass answered when the network was
// written. The input is made here from a formula, so only the answers are stored.

#include "engine/network_loader.hpp"

#include <veldan/model_store.hpp>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/dnn.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

// The name is that of the file with the answers.
struct StoredNetwork {
    const char* name;
    std::function<int(cv::dnn::Net&)> load;
};

void PrintTo(const StoredNetwork& network, std::ostream* out) {
    *out << network.name;
}

class NetworkAnswers : public testing::TestWithParam<StoredNetwork> {};

TEST_P(NetworkAnswers, AreThoseOfTheTrainer) {
    const std::string path = std::string(VELDAN_ANSWERS_DIR) + "/" + GetParam().name + ".json";
    std::ifstream file(path);
    ASSERT_TRUE(file) << path;
    const nlohmann::json expected = nlohmann::json::parse(file);

    cv::dnn::Net net;
    ASSERT_EQ(GetParam().load(net), 0);
    cv::Mat input(expected["input"]["shape"].get<std::vector<int>>(), CV_32F);
    for (std::uint32_t i = 0; i < input.total(); ++i) {
        input.ptr<float>()[i] = static_cast<float>(static_cast<double>(i * 2654435761U) / 2147483648.0 - 1.0);
    }
    net.setInput(input, expected["input"]["name"].get<std::string>());
    std::vector<std::string> names;
    for (const auto& output : expected["outputs"]) {
        names.push_back(output["name"].get<std::string>());
    }
    std::vector<cv::Mat> outputs;
    net.forward(outputs, names);

    for (std::size_t k = 0; k < names.size(); ++k) {
        const auto shape = expected["outputs"][k]["shape"].get<std::vector<int>>();
        const auto values = expected["outputs"][k]["values"].get<std::vector<float>>();
        ASSERT_EQ(std::vector<int>(outputs[k].size.p, outputs[k].size.p + outputs[k].dims), shape) << names[k];
        float range = 0;
        float worst = 0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            range = std::max(range, std::abs(values[i]));
            worst = std::max(worst, std::abs(values[i] - outputs[k].ptr<float>()[i]));
        }
        EXPECT_GT(range, 0.0F) << names[k];
        EXPECT_LE(worst, 1e-4F * std::max(range, 1.0F)) << names[k];
    }
}

#define GRAPH(NAME)                                                                                                    \
    StoredNetwork {                                                                                                    \
#NAME, [](cv::dnn::Net & net) {                                                                               \
            std::vector<unsigned char> bytes;                                                                          \
            const int error = veldan::loadNetworkBytes(length_##NAME, data_##NAME, bytes);                             \
            return error == 0 ? veldan::readTensorflowNet(bytes, net) : error;                                         \
        }        \
    }
#define CAFFE(NAME, OUTPUT)                                                                                            \
    StoredNetwork {                                                                                                    \
#NAME "_Model", [](cv::dnn::Net& net) {                                                                        \
            return veldan::loadCaffeNet({length_##NAME##_Model, data_##NAME##_Model},                                  \
                                        {length_##NAME##_Prototxt, data_##NAME##_Prototxt},                            \
                                        {"", 3, {112, 112}, {{OUTPUT, 128}}}, net);                                    \
        }       \
    }
const StoredNetwork networks[] = {GRAPH(VELDAN_V5_1_0_FaceDetectP),
                                  GRAPH(VELDAN_V5_1_0_FaceDetectR),
                                  GRAPH(VELDAN_V5_1_0_FaceDetectO),
                                  GRAPH(VELDAN_V5_0_0_FaceQuality),
                                  GRAPH(VELDAN_V5_0_0_LiveDetect_RGB),
                                  GRAPH(VELDAN_V5_1_0_LiveDetect_NIR),
                                  GRAPH(VELDAN_V5_1_0_FaceMaskDetect),
                                  GRAPH(VELDAN_V5_1_0_FaceMaskAlign),
                                  CAFFE(VELDAN_V5_0_0_FaceRecog, "fc1_scale"),
                                  CAFFE(VELDAN_V5_2_0_FaceMaskRecog, "pre_fc1")};

INSTANTIATE_TEST_SUITE_P(Models, NetworkAnswers, testing::ValuesIn(networks),
                         [](const testing::TestParamInfo<StoredNetwork>& info) {
                             return std::string(info.param.name);
                         });

} // namespace
