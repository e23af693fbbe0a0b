#include "engine/network_loader.hpp"
#include "models/network_store.hpp"
#include "support/networks.hpp"

#include <veldan/model_store.hpp>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

struct Network {
    const char* name;
    const char* extension;
    int (*length)();
    int (*data)(unsigned char*);
};

class NetworkStore : public testing::TestWithParam<Network> {};

TEST_P(NetworkStore, HoldsTheFile) {
    const Network network = GetParam();
    std::ifstream in(std::string(VELDAN_NETWORK_DIR "/") + network.name + "." + network.extension, std::ios::binary);
    ASSERT_TRUE(in);
    const std::string file((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    ASSERT_EQ(network.length(), static_cast<int>(file.size()));
    std::string out(file.size(), '\0');
    ASSERT_EQ(network.data(reinterpret_cast<unsigned char*>(out.data())), 0);
    EXPECT_TRUE(out == file);
}

#define STORED_NETWORK(NAME, EXTENSION) Network{#NAME, EXTENSION, length_##NAME, data_##NAME},
const Network networks[] = {VELDAN_FOR_EACH_NETWORK(STORED_NETWORK)};

INSTANTIATE_TEST_SUITE_P(Networks, NetworkStore, testing::ValuesIn(networks),
                         [](const auto& info) { return std::string(info.param.name).substr(14); });

int decodeStored(const std::vector<const char*>& chunks, int base64Length, int length, Bytes& out) {
    return veldan::decodeStoredNetwork(chunks.data(), static_cast<int>(chunks.size()), base64Length, length,
                                       out.data());
}

TEST(DecodeStoredNetwork, JoinsChunksAnywhere) {
    Bytes out(6);
    ASSERT_EQ(decodeStored({"Z", "m9vYm", "", "Fy"}, 8, 6, out), 0);
    EXPECT_EQ(out, (Bytes{'f', 'o', 'o', 'b', 'a', 'r'}));
}

TEST(DecodeStoredNetwork, DamageLeavesTheOutputAlone) {
    const struct {
        const char* what;
        std::vector<const char*> chunks;
        int base64Length;
        int length;
    } cases[] = {
        {"length one too large", {"Zm9v", "YmFy"}, 8, 7},
        {"length one too small", {"Zm9v", "YmFy"}, 8, 5},
        {"length of nothing", {"Zm9v", "YmFy"}, 8, 0},
        {"negative length", {"Zm9v", "YmFy"}, 8, -1},
        {"stray character", {"Zm9v", "Ym*y"}, 8, 6},
        {"less text than stored", {"Zm9v", "YmF"}, 8, 6},
        {"more text than stored", {"Zm9v", "YmFyYmFy"}, 8, 6},
        {"text length not a multiple of 4", {"Zm9v", "YmFy"}, 7, 6},
        {"no text length", {"Zm9v", "YmFy"}, 0, 6},
        {"negative text length", {"Zm9v", "YmFy"}, -8, 6},
        {"no chunks", {}, 8, 6},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const Bytes before(16, 0xA5);
        Bytes out = before;
        EXPECT_EQ(decodeStored(c.chunks, c.base64Length, c.length, out), -1);
        EXPECT_EQ(out, before);
    }
}

int lengthOfThree() {
    return 3;
}

const veldan::NetworkForm form{"input_image", 3, {48, 48}, {{"conv5_1/Conv2D", 8}}};

TEST(LoadNetwork, FailureLeavesTheOutputAlone) {
    const veldan::NetworkLength lengths[] = {[] { return 0; }, [] { return -1; }, lengthOfThree};
    for (const auto length : lengths) {
        Bytes bytes{1, 2};
        EXPECT_EQ(veldan::loadNetworkBytes(
                      length, [](unsigned char*) { return -1; }, bytes),
                  20);
        EXPECT_EQ(bytes, (Bytes{1, 2}));
        cv::dnn::Net net;
        EXPECT_EQ(veldan::loadTensorflowNet(
                      length, [](unsigned char*) { return -1; }, form, net),
                  20);
    }
}

TEST(LoadNetwork, BytesThatAreNoNetwork) {
    cv::dnn::Net net;
    ASSERT_EQ(veldan::loadTensorflowNet(length_VELDAN_V5_1_0_FaceDetectP, data_VELDAN_V5_1_0_FaceDetectP, form, net),
              0);
    const auto layers = net.getLayerNames();
    const auto text = [](unsigned char* out) {
        std::copy_n("png", 3, out);
        return 0;
    };
    EXPECT_EQ(veldan::loadTensorflowNet(lengthOfThree, text, form, net), 20);
    EXPECT_EQ(net.getLayerNames(), layers) << "a failed load must not replace the network";
}

} // namespace
