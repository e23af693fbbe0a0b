#ifndef VELDAN_TESTS_DETECT_NETWORKS_HPP
#define VELDAN_TESTS_DETECT_NETWORKS_HPP

#include "support/graph_writer.hpp"

#include <array>
#include <random>
#include <vector>

// Networks whose answers a test can work out.

// Proposal network: the face value of each anchor is bias + gain x blue value, -1 to 1, of the window's centre pixel;
// the background value is 0. Regression is the same everywhere. Its one convolution sees 24 x 24 pixels, every 4
// pixels.
inline std::vector<unsigned char> proposalNetwork(const std::array<float, 4>& gain, const std::array<float, 4>& bias,
                                                  const std::array<float, 4>& regression = {}) {
    const std::size_t side = 24;
    std::vector<float> scores(side * side * 3 * 8);
    std::vector<float> scoreBias(8);
    std::vector<float> regressionBias;
    for (std::size_t anchor = 0; anchor < 4; ++anchor) {
        scores[(12 * side + 12) * 3 * 8 + 2 * anchor + 1] = gain[anchor];
        scoreBias[2 * anchor + 1] = bias[anchor];
        regressionBias.insert(regressionBias.end(), regression.begin(), regression.end());
    }
    GraphWriter graph;
    graph.convolution("conv5_1", "input_image", {24, 24, 3, 8}, scores, scoreBias, 4);
    graph.convolution("conv5_2", "input_image", {24, 24, 3, 16}, std::vector<float>(side * side * 3 * 16),
                      regressionBias, 4);
    return graph.bytes();
}

// Refinement (side 24) or output network (side 48): dense layers straight on the pixels, in rows, columns, channels
// order.
struct DenseNetwork {
    int side;
    std::vector<float> faceWeights;       // side x side x 3 values; the background value is 0
    float faceBias = 4;                   // score 0.982
    std::vector<float> regressionWeights; // side x side x 3 x 4 values
    std::vector<float> regressionBias = {0, 0, 0, 0};
    std::vector<float> landmarkWeights; // side x side x 3 x 10 values
    std::vector<float> landmarkBias = std::vector<float>(10);

    explicit DenseNetwork(int side_)
        : side(side_), faceWeights(pixels()), regressionWeights(pixels() * 4), landmarkWeights(pixels() * 10) {}

    std::size_t pixels() const { return static_cast<std::size_t>(side) * static_cast<std::size_t>(side) * 3; }

    std::vector<unsigned char> bytes() const {
        GraphWriter graph;
        graph.flatten("flatten", "input_image", static_cast<int>(pixels()));
        std::vector<float> classWeights;
        for (const float weight : faceWeights)
            classWeights.insert(classWeights.end(), {0, weight});
        graph.dense("cls_fc", "flatten", classWeights, {0, faceBias});
        graph.softmax("cls_fc/Softmax", "cls_fc/BiasAdd");
        graph.dense("bbox_fc", "flatten", regressionWeights, regressionBias);
        if (side == 48)
            graph.dense("landmark_fc", "flatten", landmarkWeights, landmarkBias);
        return graph.bytes();
    }
};

inline std::vector<float> randomWeights(std::size_t count, unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal(0, 0.02F);
    std::vector<float> weights(count);
    for (float& weight : weights)
        weight = normal(random);
    return weights;
}

#endif
