#ifndef VELDAN_TESTS_SUPPORT_TEMPLATES_HPP
#define VELDAN_TESTS_SUPPORT_TEMPLATES_HPP

#include <veldan/feature_template.hpp>

#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <random>
#include <vector>

namespace veldan_tests {

// Features and templates whose similarities are arranged.

using Feature = std::vector<float>;
using Bytes = std::vector<unsigned char>;

constexpr std::size_t featureLength = 128;
constexpr std::size_t templateSize = 520;

inline Feature randomFeature(unsigned seed) {
    std::mt19937 random(seed);
    std::normal_distribution<float> normal;
    Feature feature(featureLength);
    for (float& value : feature)
        value = normal(random);
    return feature;
}

// A feature whose similarity to the given one is `score`, up to the rounding of floats.
inline Feature similarTo(const Feature& feature, double score, unsigned seed = 77) {
    const Feature other = randomFeature(seed);
    double dot = 0;
    double square = 0;
    for (std::size_t j = 0; j < featureLength; ++j) {
        dot += static_cast<double>(feature[j]) * static_cast<double>(other[j]);
        square += static_cast<double>(feature[j]) * static_cast<double>(feature[j]);
    }
    std::vector<double> across(featureLength); // what of the other one is orthogonal
    double acrossSquare = 0;
    for (std::size_t j = 0; j < featureLength; ++j) {
        across[j] = static_cast<double>(other[j]) - dot / square * static_cast<double>(feature[j]);
        acrossSquare += across[j] * across[j];
    }
    const double cosine = 2 * score - 1;
    Feature result(featureLength);
    for (std::size_t j = 0; j < featureLength; ++j)
        result[j] = static_cast<float>(cosine * static_cast<double>(feature[j]) / std::sqrt(square) +
                                       std::sqrt(1 - cosine * cosine) * across[j] / std::sqrt(acrossSquare));
    return result;
}

inline Bytes encode(const Feature& feature, int kind) {
    Bytes bytes(templateSize);
    EXPECT_EQ(TzEncode(kind, reinterpret_cast<const unsigned char*>(feature.data()),
                       static_cast<int>(feature.size() * sizeof(float)), bytes.data()),
              0);
    return bytes;
}

inline Feature decode(const unsigned char* bytes, int kind) {
    Feature feature(featureLength);
    EXPECT_EQ(TzDecode(kind, bytes, static_cast<int>(templateSize), reinterpret_cast<unsigned char*>(feature.data())),
              0);
    return feature;
}

inline void append(Bytes& gallery, const Bytes& bytes) {
    gallery.insert(gallery.end(), bytes.begin(), bytes.end());
}

} // namespace veldan_tests

#endif
