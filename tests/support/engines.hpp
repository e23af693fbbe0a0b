#ifndef VELDAN_TESTS_SUPPORT_ENGINES_HPP
#define VELDAN_TESTS_SUPPORT_ENGINES_HPP

#include "engine/engine_network.hpp"
#include "engine/network_loader.hpp"
#include "support/graph_writer.hpp"

#include <veldan/face_landmark.hpp>
#include <veldan/face_mask.hpp>
#include <veldan/onet_landmark.hpp>
#include <veldan/quality_evaluation.hpp>
#include <veldan/spoof_detection.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

// Engines with networks other than the embedded ones.
struct veldan::EngineAccess {
    template <class Engine>
    static cv::dnn::Net& net(Engine& engine) {
        return engine.network->net;
    }
    static cv::dnn::Net& rgbNet(vdSpoofDetection& engine) { return engine.rgbNet; }
    static cv::dnn::Net& nirNet(vdSpoofDetection& engine) { return engine.nirNet; }
};

template <>
inline cv::dnn::Net& veldan::EngineAccess::net(QUALITYEVALUATION& engine) {
    return engine.net;
}

namespace veldan_tests {

// A network without hidden layers: each output is a weighted sum of the input's samples. With random weights the
// outputs tell what the network was shown.
struct LinearLayer {
    std::vector<float> weights; // inputs x outputs; inputs in rows, columns, channels order
    std::vector<float> bias;

    LinearLayer(std::size_t inputs, std::vector<float> bias_)
        : weights(inputs * bias_.size()), bias(std::move(bias_)) {}

    LinearLayer& randomize(unsigned seed, float deviation) {
        std::mt19937 random(seed);
        std::normal_distribution<float> normal(0, deviation);
        for (float& weight : weights)
            weight = normal(random);
        return *this;
    }

    // The outputs for an image, which is scaled to -1..1 first.
    std::vector<double> of(const cv::Mat& image) const {
        EXPECT_EQ(image.total() * image.elemSize() * bias.size(), weights.size());
        std::vector<double> outputs(bias.begin(), bias.end());
        for (std::size_t i = 0; i < weights.size() / bias.size(); ++i)
            for (std::size_t k = 0; k < bias.size(); ++k)
                outputs[k] += (image.data[i] - 127.5) / 128 * static_cast<double>(weights[i * bias.size() + k]);
        return outputs;
    }
};

// The layer under its MatMul name, as the landmark networks have them.
inline void addLayer(GraphWriter& graph, const std::string& name, const LinearLayer& layer) {
    graph.flatten(name + "/flatten", "input_image", static_cast<int>(layer.weights.size() / layer.bias.size()));
    graph.dense(name, name + "/flatten", layer.weights, layer.bias);
}

// A network whose output of that name is the layer's, where it is not negative: so a test can give any value for a
// probability.
inline std::vector<unsigned char> scoreNetwork(const std::string& output, const LinearLayer& layer) {
    GraphWriter graph;
    addLayer(graph, "fc", layer);
    graph.relu(output, "fc/BiasAdd");
    return graph.bytes();
}

inline void loadInto(cv::dnn::Net& net, const std::vector<unsigned char>& bytes) {
    ASSERT_EQ(veldan::readTensorflowNet(bytes, net), 0);
}

constexpr unsigned char untouched = 0xA5;

// A record that no engine has written to, except for the box.
inline VDFACEINFOEX faceWithBox(int x, int y, int width, int height) {
    VDFACEINFOEX face;
    std::memset(&face, untouched, sizeof(face));
    face.x = x;
    face.y = y;
    face.width = width;
    face.height = height;
    return face;
}

// The words in which two records differ.
inline std::vector<int> changedWords(const VDFACEINFOEX& before, const VDFACEINFOEX& after) {
    std::vector<int> words;
    for (int word = 0; word < 262; ++word)
        if (std::memcmp(reinterpret_cast<const char*>(&before) + word * 4,
                        reinterpret_cast<const char*>(&after) + word * 4, 4) != 0)
            words.push_back(word);
    return words;
}

} // namespace veldan_tests

#endif
