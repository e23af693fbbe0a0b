// What an instance does when one of its networks is damaged. The accessors below take the place of the library's.

#include "models/network_store.hpp"
#include "support/expect_empty_instance.hpp"
#include "support/networks.hpp"

#include <veldan/face_api.h>
#include <veldan/instance.hpp>
#include <veldan/model_store.hpp>
#include <veldan/spoof_detection.hpp>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

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

std::string networkFile(const std::string& name, const char* extension) {
    std::ifstream in(VELDAN_NETWORK_DIR "/" + name + "." + extension, std::ios::binary);
    if (!in)
        throw std::runtime_error("no network file for " + name);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

int storedLength(const std::string& name) {
    return store.at(name).length;
}

std::vector<std::string> asked; // for their data, in order

int storedData(const std::string& name, unsigned char* out) {
    asked.push_back(name);
    const Stored& network = store.at(name);
    const char* const chunks[] = {network.text.c_str()};
    return veldan::decodeStoredNetwork(chunks, 1, static_cast<int>(network.text.size()), network.length, out);
}

} // namespace

#define STORED_NETWORK(NAME, EXTENSION)                                                                                \
    int length_##NAME() {                                                                                              \
        return storedLength(#NAME);                                                                                    \
    }                                                                                                                  \
    int data_##NAME(unsigned char* out) {                                                                              \
        return storedData(#NAME, out);                                                                                 \
    }

VELDAN_FOR_EACH_NETWORK(STORED_NETWORK)

namespace {

// What loading an engine of its own reports, for every engine that uses the network.
template <auto Init, auto Free>
int loadEngine() {
    int error = -1;
    auto* const engine = Init(nullptr, &error);
    EXPECT_NE(engine, nullptr) << "the engine comes back although its network did not load";
    EXPECT_EQ(Free(engine), 0);
    return error;
}
using Api = VdFaceAPI;
const auto detector = loadEngine<Api::InitFaceDetectorEngine, Api::FreeFaceDetectorEngine>;
const auto quality = loadEngine<Api::InitFaceQualityEngine, Api::FreeQualityEngine>;
const auto recognizer = loadEngine<Api::InitFaceRecognizerEngine, Api::FreeFaceRecognizerEngine>;
const auto maskRecognizer = loadEngine<Api::InitMaskFaceRecognizerEngine, Api::FreeMaskFaceRecognizerEngine>;
const auto liveness = loadEngine<Api::InitLivenessDetectorEngine, Api::FreeLivenessDetectorEngine>;
const auto mask = loadEngine<Api::InitFaceMaskEngine, Api::FreeMaskEngine>;
const auto landmark = loadEngine<Api::InitFaceLandmarkEngine, Api::FreeLandmarkEngine>;
const auto refinement = loadEngine<Api::InitOnetLandmarkEngine, Api::FreeOnetLandmarkEngine>;

const std::map<std::string, std::vector<int (*)()>> users = {
    {"VELDAN_V5_1_0_FaceDetectP", {detector}},
    {"VELDAN_V5_1_0_FaceDetectR", {detector}},
    {"VELDAN_V5_1_0_FaceDetectO", {detector, refinement}},
    {"VELDAN_V5_0_0_FaceQuality", {quality}},
    {"VELDAN_V5_0_0_LiveDetect_RGB", {liveness}},
    {"VELDAN_V5_1_0_LiveDetect_NIR", {liveness}},
    {"VELDAN_V5_1_0_FaceMaskDetect", {mask}},
    {"VELDAN_V5_1_0_FaceMaskAlign", {landmark}},
    {"VELDAN_V5_0_0_FaceRecog_Model", {recognizer}},
    {"VELDAN_V5_0_0_FaceRecog_Prototxt", {recognizer}},
    {"VELDAN_V5_2_0_FaceMaskRecog_Model", {maskRecognizer}},
    {"VELDAN_V5_2_0_FaceMaskRecog_Prototxt", {maskRecognizer}},
};

#define NETWORK_NAME(NAME, EXTENSION) #NAME,
const char* const names[] = {VELDAN_FOR_EACH_NETWORK(NETWORK_NAME)};

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

const std::map<std::string, Stored>& wholeNetworks() {
    static const std::map<std::string, Stored> whole = [] {
        std::map<std::string, Stored> networks;
#define WHOLE_NETWORK(NAME, EXTENSION) networks[#NAME] = stored(networkFile(#NAME, EXTENSION));
        VELDAN_FOR_EACH_NETWORK(WHOLE_NETWORK)
        return networks;
    }();
    return whole;
}

TEST(WholeNetworks, AreLoadedInTheFixedOrder) {
    store = wholeNetworks();
    asked.clear();
    int result = -1;
    void* const handle = zzInitAlgThread(nullptr, &result);
    EXPECT_EQ(result, 0);
    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(zzFreeAlgThread(handle), 0);
    std::vector<std::string> expected(std::begin(names), std::end(names));
    expected.emplace_back("VELDAN_V5_1_0_FaceDetectO"); // the refinement's own copy comes last
    EXPECT_EQ(asked, expected);
}

class DamagedNetwork : public testing::TestWithParam<std::tuple<const char*, Damage>> {};

TEST_P(DamagedNetwork, LeavesNoInstance) {
    store = wholeNetworks();
    const std::string name = std::get<0>(GetParam());
    std::get<1>(GetParam()).apply(store[name]);

    int result = -1;
    EXPECT_EQ(zzInitAlgThread(nullptr, &result), nullptr);
    EXPECT_EQ(result, 20);
    result = -1;
    EXPECT_EQ(zzInitAlgNThread(nullptr, 7, &result), nullptr);
    EXPECT_EQ(result, 20);
    EXPECT_EQ(zzInitAlgThread(nullptr, nullptr), nullptr);

    VdFaceAPI instance;
    std::memset(static_cast<void*>(&instance), 0xA5, sizeof(instance));
    asked.clear();
    EXPECT_EQ(instance.vdInitAlg(nullptr, 0, 10), 20);
    veldan_tests::expectEmpty(instance);
    // Nothing is loaded after the engine that failed. A length that makes no sense is seen before the data is asked
    // for.
    const auto* const last = std::find(std::begin(names), std::end(names), name);
    // What is wrong with the weights of a Caffe network is seen only beside its text, which comes next.
    const std::size_t files = name.find("_Model") == std::string::npos ? 1 : 2;
    EXPECT_LE(asked.size(), static_cast<std::size_t>(last - std::begin(names)) + files);
    EXPECT_EQ(instance.vdFreeAlg(), 0);

    for (const auto load : users.at(name))
        EXPECT_EQ(load(), 20);
}

// Each network where each other one belongs: the files are whole, and some of them even take the same input.
TEST(SwappedNetworks, AreRefused) {
    const auto isGraph = [](const std::string& name) {
        return name.find("FaceRecog") == std::string::npos && name.find("FaceMaskRecog") == std::string::npos;
    };
    for (const std::string name : names)
        for (const std::string other : names) {
            if (name == other || !isGraph(name) || !isGraph(other))
                continue;
            store = wholeNetworks();
            store[name] = wholeNetworks().at(other);
            for (const auto load : users.at(name))
                EXPECT_EQ(load(), 20) << other << " as " << name;
        }
    store = wholeNetworks();
    std::swap(store["VELDAN_V5_0_0_FaceRecog_Model"], store["VELDAN_V5_2_0_FaceMaskRecog_Model"]);
    EXPECT_EQ(recognizer(), 20);
    EXPECT_EQ(maskRecognizer(), 20);
    std::swap(store["VELDAN_V5_0_0_FaceRecog_Prototxt"], store["VELDAN_V5_2_0_FaceMaskRecog_Prototxt"]);
    EXPECT_EQ(recognizer(), 20);
    EXPECT_EQ(maskRecognizer(), 20);
}

// The liveness engine is usable for visible light when only the other network is damaged.
TEST(DamagedInfraredNetwork, LeavesVisibleLight) {
    store = wholeNetworks();
    store["VELDAN_V5_1_0_LiveDetect_NIR"].length = 0;
    vdSpoofDetection engine;
    EXPECT_EQ(engine.vdSpoofInitAlg(nullptr), 20);
    std::vector<unsigned char> image(120 * 120 * 3, 100);
    VDFACEINFOEX face{};
    EXPECT_EQ(engine.vdSpoofRGBEvaluation(image.data(), 120, 120, 1, &face), 0);
    EXPECT_EQ(engine.vdSpoofNIREvaluation(image.data(), 120, 120, 1, &face), -1);
}

INSTANTIATE_TEST_SUITE_P(Networks, DamagedNetwork,
                         testing::Combine(testing::ValuesIn(names), testing::ValuesIn(damages)), [](const auto& info) {
                             return std::string(std::get<0>(info.param)).substr(14) + std::get<1>(info.param).what;
                         });

} // namespace
