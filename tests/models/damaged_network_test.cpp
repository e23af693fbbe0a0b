// What an instance does when one of its networks is damaged. The accessors below take the place of the library's.

#include "models/network_store.hpp"

#include <veldan/face_api.h>
#include <veldan/instance.hpp>
#include <veldan/model_store.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>

namespace {

// A network in its storage form, in one chunk.
struct Stored {
    std::string text;
    int length = 0;
};

std::map<std::string, Stored> store;

Stored stored(const std::string& bytes) {
    Stored result;
    result.length = static_cast<int>(bytes.size());
    result.text.resize((bytes.size() + 2) / 3 * 4);
    B64Encode(reinterpret_cast<const unsigned char*>(bytes.data()), result.length, result.text.data(),
              static_cast<int>(result.text.size()));
    return result;
}

std::string networkFile(const std::string& name) {
    std::ifstream in(VELDAN_NETWORK_DIR "/" + name + ".pb", std::ios::binary);
    if (!in)
        throw std::runtime_error("no network file for " + name);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

int storedLength(const std::string& name) {
    return store.at(name).length;
}

int storedData(const std::string& name, unsigned char* out) {
    const Stored& network = store.at(name);
    const char* const chunks[] = {network.text.c_str()};
    return veldan::decodeStoredNetwork(chunks, 1, static_cast<int>(network.text.size()), network.length, out);
}

} // namespace

#define STORED_NETWORK(NAME)                                                                                           \
    int length_##NAME() {                                                                                              \
        return storedLength(#NAME);                                                                                    \
    }                                                                                                                  \
    int data_##NAME(unsigned char* out) {                                                                              \
        return storedData(#NAME, out);                                                                                 \
    }

STORED_NETWORK(VELDAN_V5_1_0_FaceDetectP)
STORED_NETWORK(VELDAN_V5_1_0_FaceDetectR)
STORED_NETWORK(VELDAN_V5_1_0_FaceDetectO)

namespace {

const char* const names[] = {"VELDAN_V5_1_0_FaceDetectP", "VELDAN_V5_1_0_FaceDetectR", "VELDAN_V5_1_0_FaceDetectO"};

struct Damage {
    const char* what;
    std::function<void(Stored&)> apply;
};

const Damage damages[] = {
    {"StoredLengthOneLarger", [](Stored& network) { ++network.length; }},
    {"StoredLengthOneSmaller", [](Stored& network) { --network.length; }},
    {"StoredLengthZero", [](Stored& network) { network.length = 0; }},
    {"StoredLengthNegative", [](Stored& network) { network.length = -1; }},
    {"StrayCharacter", [](Stored& network) { network.text[network.text.size() / 2] = '*'; }},
    {"TextCut", [](Stored& network) { network.text.resize(network.text.size() / 2 / 4 * 4); }},
    {"OtherKindOfFile", [](Stored& network) { network = stored("layer { name: \"data\" type: \"Input\" }"); }},
    {"FileCut",
     [](Stored& network) {
         std::string bytes(static_cast<std::size_t>(network.length), '\0');
         B64Decode(network.text.data(), static_cast<int>(network.text.size()),
                   reinterpret_cast<unsigned char*>(bytes.data()));
         network = stored(bytes.substr(0, bytes.size() / 2));
     }},
};

class DamagedNetwork : public testing::TestWithParam<std::tuple<const char*, Damage>> {
protected:
    void SetUp() override {
        for (const char* name : names)
            store[name] = stored(networkFile(name));
    }
};

TEST_P(DamagedNetwork, LeavesNoInstance) {
    int result = -1;
    void* handle = zzInitAlgThread(nullptr, &result);
    ASSERT_EQ(result, 0) << "with all networks whole";
    ASSERT_NE(handle, nullptr);
    zzFreeAlgThread(handle);

    const auto& [name, damage] = GetParam();
    damage.apply(store[name]);

    EXPECT_EQ(zzInitAlgThread(nullptr, &result), nullptr);
    EXPECT_EQ(result, 20);
    result = -1;
    EXPECT_EQ(zzInitAlgNThread(nullptr, 7, &result), nullptr);
    EXPECT_EQ(result, 20);
    EXPECT_EQ(zzInitAlgThread(nullptr, nullptr), nullptr);

    VdFaceAPI instance;
    std::memset(static_cast<void*>(&instance), 0xA5, sizeof(instance));
    EXPECT_EQ(instance.vdInitAlg(nullptr, 0, 10), 20);
    EXPECT_EQ(instance.faceDetector, nullptr);
    EXPECT_EQ(instance.searchHistory, nullptr);
    EXPECT_EQ(instance.vdFreeAlg(), 0);

    // The engine comes back although its network did not load, and is still to be released.
    int error = -1;
    MTCNN* const engine = VdFaceAPI::InitFaceDetectorEngine(nullptr, &error);
    EXPECT_EQ(error, 20);
    EXPECT_NE(engine, nullptr);
    EXPECT_EQ(VdFaceAPI::FreeFaceDetectorEngine(engine), 0);
}

INSTANTIATE_TEST_SUITE_P(Networks, DamagedNetwork,
                         testing::Combine(testing::ValuesIn(names), testing::ValuesIn(damages)), [](const auto& info) {
                             return std::string(std::get<0>(info.param)).substr(14) + std::get<1>(info.param).what;
                         });

} // namespace
