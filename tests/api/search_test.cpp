// Match and search through the entry points, with templates whose similarities are arranged. A score of 0.705 stands
// for 70 percent: far from both neighbours.

#include "support/templates.hpp"

#include <veldan/face_api.h>
#include <veldan/face_flows.hpp>
#include <veldan/instance.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <memory>
#include <string>
#include <vector>

namespace {

using veldan_tests::append;
using veldan_tests::Bytes;
using veldan_tests::encode;
using veldan_tests::Feature;
using veldan_tests::randomFeature;
using veldan_tests::similarTo;

struct FreeHandle {
    void operator()(void* handle) const { EXPECT_EQ(zzFreeAlgThread(handle), 0); }
};
using Handle = std::unique_ptr<void, FreeHandle>;

Handle instance(int capacity) {
    int result = -1;
    Handle handle(zzInitAlgNThread(nullptr, capacity, &result));
    EXPECT_EQ(result, 0);
    return handle;
}

VDFACEINFOEX record(int trackId = 0) {
    VDFACEINFOEX face;
    std::memset(&face, 0xA5, sizeof(face));
    face.trackId = trackId;
    face.searchFlag = 0;
    face.searchId = -7;
    face.searchScore = -8;
    return face;
}

// Searches of either kind, in galleries of one probe.
class Search : public testing::TestWithParam<int> {
protected:
    static constexpr int capacity = 6;

    // One template a person, similar to the probe as listed.
    Bytes galleryOf(const std::vector<double>& scores) const {
        Bytes gallery;
        for (std::size_t k = 0; k < scores.size(); ++k)
            append(gallery, encode(similarTo(probe, scores[k], 100 + static_cast<unsigned>(k)), kind));
        return gallery;
    }
    int search(Bytes gallery, std::vector<int> counts, int threshold, VDFACEINFOEX& face, int galleryNum = 0) {
        const auto operation = kind == 1 ? zzSearchNFeatureThread : zzMaskSearchNFeatureThread;
        const int persons = static_cast<int>(counts.size());
        return operation(handle.get(), gallery.data(), galleryNum > 0 ? galleryNum : persons, counts.data(), persons,
                         threshold, probeTemplate.data(), &face);
    }
    // One template a person.
    int search(const std::vector<double>& scores, int threshold, VDFACEINFOEX& face) {
        Bytes gallery = galleryOf(scores);
        const auto operation = kind == 1 ? zzSearchFeatureThread : zzMaskSearchFeatureThread;
        return operation(handle.get(), gallery.data(), static_cast<int>(scores.size()), threshold, probeTemplate.data(),
                         &face);
    }

    int kind = GetParam();
    int otherKind = 3 - kind;
    Feature probe = randomFeature(1);
    Bytes probeTemplate = encode(probe, kind);
    Handle handle = instance(capacity);
    VDFACEINFOEX face = record();
};

void expectVerdict(const VDFACEINFOEX& face, int flag, int id, int score) {
    EXPECT_EQ(face.searchFlag, flag);
    EXPECT_EQ(face.searchId, id);
    EXPECT_EQ(face.searchScore, score);
}

TEST_P(Search, SureMatchIsAcceptedAtOnce) {
    EXPECT_EQ(search({0.605, 0.855, 0.845}, 100, face), 0);
    expectVerdict(face, 1, 1, 85);
    // Recognised faces are not searched again, whatever the gallery.
    EXPECT_EQ(search({0.955}, 100, face), 0);
    expectVerdict(face, 1, 1, 85);
    // One that a flow has aged is.
    face.searchFlag = 2;
    EXPECT_EQ(search({0.955}, 100, face), 0);
    expectVerdict(face, 1, 0, 95);
    // The level of 0.8 does not move with the threshold.
    for (const int threshold : {0, 79, 81, 1000000000}) {
        VDFACEINFOEX fresh = record(3);
        EXPECT_EQ(search({0.795}, threshold, fresh), -1) << threshold;
        EXPECT_EQ(search({0.805}, threshold, fresh), 0) << threshold;
        expectVerdict(fresh, 1, 0, 80);
    }
}

TEST_P(Search, ThreeAttemptsAreAveraged) {
    EXPECT_EQ(search({0.705, 0.5}, 70, face), -1);
    EXPECT_EQ(search({0.725, 0.5}, 70, face), -1);
    expectVerdict(face, 0, -7, -8);
    EXPECT_EQ(search({0.755, 0.5}, 70, face), 0);
    expectVerdict(face, 1, 0, 72); // 70 + 72 + 75 = 217
}

TEST_P(Search, UnknownAfterFiveAttempts) {
    for (const double score : {0.705, 0.725, 0.755, 0.765})
        EXPECT_EQ(search({score}, 80, face), -1) << score;
    expectVerdict(face, 0, -7, -8);
    EXPECT_EQ(search({0.745}, 80, face), -2);
    expectVerdict(face, 0, -7, 75); // of the last three: 75 + 76 + 74 = 225
    // The count begins anew.
    EXPECT_EQ(search({0.705}, 60, face), -1);
    EXPECT_EQ(search({0.705}, 60, face), -1);
    EXPECT_EQ(search({0.705}, 60, face), 0);
}

TEST_P(Search, SumDecidesNotTheBestSingleScore) {
    EXPECT_EQ(search({0.785, 0.705}, 65, face), -1);
    EXPECT_EQ(search({0.505, 0.705}, 65, face), -1);
    EXPECT_EQ(search({0.505, 0.705}, 65, face), 0);
    expectVerdict(face, 1, 1, 70);
    // Of equal sums the first person.
    EXPECT_EQ(search({0.705, 0.655, 0.705}, 65, face = record()), -1);
    EXPECT_EQ(search({0.655, 0.705, 0.655}, 65, face), -1);
    EXPECT_EQ(search({0.655, 0.655, 0.655}, 65, face), 0);
    expectVerdict(face, 1, 0, 66); // 70 + 65 + 65 = 200, twice
}

TEST_P(Search, RowsAreSharedByIdentitiesHundredApart) {
    VDFACEINFOEX other = record(150);
    VDFACEINFOEX third = record(51);
    face.trackId = 50;
    EXPECT_EQ(search({0.705}, 70, face), -1);
    EXPECT_EQ(search({0.705}, 70, other), -1);
    EXPECT_EQ(search({0.705}, 70, third), -1) << "a row of its own";
    EXPECT_EQ(search({0.705}, 70, face), 0);
    // The decision began the third face anew too: it needs three searches again.
    EXPECT_EQ(search({0.705}, 70, third), -1);
    EXPECT_EQ(search({0.705}, 70, third), -1);
    EXPECT_EQ(search({0.705}, 70, third), 0);
}

// Scores of attempts before a decision stay until they are overwritten, and the persons of larger galleries with them.
TEST_P(Search, OlderScoresAreOverwrittenInTurn) {
    EXPECT_EQ(search({0.505, 0.705}, 75, face), -1);
    EXPECT_EQ(search({0.505, 0.705}, 75, face), -1);
    EXPECT_EQ(search({0.505, 0.705}, 75, face), -1);
    EXPECT_EQ(search({0.505}, 75, face), -1); // writes person 0 of the first block only
    EXPECT_EQ(search({0.505, 0.705}, 70, face), 0);
    expectVerdict(face, 1, 1, 70);
}

// Applications see the history: the count, two unused words, three blocks of a score for each person.
TEST_P(Search, HistoryRowsHaveTheirLayout) {
    const auto& api = *static_cast<VdFaceAPI*>(handle.get());
    const auto row = [&](int number) {
        return std::vector<int>(api.searchHistory[number], api.searchHistory[number] + 3 * (capacity + 1));
    };
    face.trackId = 142;
    EXPECT_EQ(search({0.705, 0.605}, 80, face), -1);
    EXPECT_EQ(search({0.715, 0.615}, 80, face), -1);
    EXPECT_EQ(search(std::vector<double>(capacity, 0.625), 80, face), -1);
    std::vector<int> expected = {3, 0, 0, 70, 60, 0, 0, 0, 0, 71, 61, 0, 0, 0, 0, 62, 62, 62, 62, 62, 62};
    EXPECT_EQ(row(42), expected);
    EXPECT_EQ(search({0.735}, 80, face), -1);
    expected[0] = 4;
    expected[3] = 73;
    EXPECT_EQ(row(42), expected);
    EXPECT_EQ(search({0.745}, 80, face), -2);
    expected[0] = 0;
    expected[9] = 74;
    for (int number = 0; number < 100; ++number)
        EXPECT_EQ(row(number), number == 42 ? expected : std::vector<int>(expected.size())) << number;
}

TEST_P(Search, SeveralTemplatesAPerson) {
    Bytes gallery = galleryOf({0.555, 0.605, 0.815, 0.905, 0.655});
    EXPECT_EQ(search(gallery, {2, 0, 2, -3, 1}, 70, face), 0);
    expectVerdict(face, 1, 2, 90);
    // Equal best templates: the first person has it.
    gallery = galleryOf({0.505});
    for (int k = 0; k < 3; ++k)
        append(gallery, probeTemplate);
    EXPECT_EQ(search(gallery, {1, 1, 2}, 70, face = record()), 0);
    expectVerdict(face, 1, 1, 100);
}

TEST_P(Search, UnusableTemplatesArePassedOver) {
    Bytes gallery = galleryOf({0.955, 0.955, 0.855});
    gallery[100] = static_cast<unsigned char>(gallery[100] ^ 1U);
    const Bytes foreign = encode(probe, otherKind);
    std::copy(foreign.begin(), foreign.end(), gallery.begin() + 520);
    EXPECT_EQ(search(gallery, {1, 1, 1}, 70, face), 0);
    expectVerdict(face, 1, 2, 85);

    Bytes zeros = encode(Feature(128, 0), kind);
    Feature strange = probe;
    strange[3] = std::numeric_limits<float>::quiet_NaN();
    append(zeros, encode(strange, kind));
    EXPECT_EQ(search(zeros, {1, 1}, 0, face = record()), -1);
    probeTemplate[200] = static_cast<unsigned char>(probeTemplate[200] ^ 1U);
    EXPECT_EQ(search(galleryOf({0.955}), {1}, 0, face = record(9)), -1) << "a damaged probe is like nobody";
}

TEST_P(Search, EmptyGallery) {
    const int codes[] = {-1, -1, -1, -1, -2, -1};
    for (const int code : codes)
        EXPECT_EQ(search(Bytes(), {}, 1, face), code);
    expectVerdict(face, 0, -7, 0);
    // Nothing reaches a threshold of nothing at the third attempt.
    face = record(1);
    EXPECT_EQ(search(Bytes(), {}, 0, face), -1);
    EXPECT_EQ(search(Bytes(), {}, 0, face), -1);
    EXPECT_EQ(search(Bytes(), {}, 0, face), 0);
    expectVerdict(face, 1, 0, 0);
}

TEST_P(Search, CapacityIsALimit) {
    EXPECT_EQ(search({0.5, 0.5, 0.5, 0.5, 0.5, 0.855}, 70, face), 0);
    expectVerdict(face, 1, 5, 85);
    face = record(4);
    EXPECT_EQ(search(std::vector<double>(capacity + 1, 0.855), 70, face), -3);
    EXPECT_EQ(search(galleryOf({0.855}), {1}, 70, face, capacity + 1), -3) << "the size that the caller names counts";
    EXPECT_EQ(
        search(galleryOf(std::vector<double>(capacity + 1, 0.855)), std::vector<int>(capacity + 1, 1), 70, face, 1),
        -3);
    expectVerdict(face, 0, -7, -8);
    // None of these was an attempt.
    EXPECT_EQ(search({0.705}, 70, face), -1);
    EXPECT_EQ(search({0.705}, 70, face), -1);
    EXPECT_EQ(search({0.705}, 70, face), 0);

    handle = instance(0);
    EXPECT_EQ(search({0.855}, 70, face = record()), -3);
    EXPECT_EQ(search(Bytes(), {}, 70, face), -1);
}

TEST_P(Search, BadArguments) {
    Bytes gallery = galleryOf({0.855});
    int one = 1;
    const auto operation = kind == 1 ? zzSearchNFeatureThread : zzMaskSearchNFeatureThread;
    const auto simple = kind == 1 ? zzSearchFeatureThread : zzMaskSearchFeatureThread;
    EXPECT_EQ(operation(nullptr, gallery.data(), 1, &one, 1, 70, probeTemplate.data(), &face), 12);
    EXPECT_EQ(simple(nullptr, gallery.data(), 1, 70, probeTemplate.data(), &face), 12);
    EXPECT_EQ(operation(handle.get(), nullptr, 1, &one, 1, 70, probeTemplate.data(), &face), 17);
    EXPECT_EQ(operation(handle.get(), gallery.data(), 1, &one, 1, 70, nullptr, &face), 17);
    EXPECT_EQ(operation(handle.get(), gallery.data(), 1, &one, 1, 70, probeTemplate.data(), nullptr), 17);
    expectVerdict(face, 0, -7, -8);
    for (const int track : {-1, -100, -2147483647 - 1}) {
        face = record(track);
        EXPECT_EQ(search({0.705}, 70, face), -1) << track;
    }
}

TEST_P(Search, MatchEntryPoints) {
    const auto match = kind == 1 ? zzMatchFeatureThread : zzMaskMatchFeatureThread;
    for (const double score : {0.0, 0.25, 0.5, 0.73, 1.0}) {
        Bytes other = encode(similarTo(probe, score), kind);
        float got = -1;
        EXPECT_EQ(match(handle.get(), probeTemplate.data(), other.data(), &got), 0);
        EXPECT_NEAR(got, score, 1e-6);
    }
    float got = 9;
    Bytes foreign = encode(probe, otherKind);
    Bytes damaged = probeTemplate;
    damaged[519] = static_cast<unsigned char>(damaged[519] ^ 128U);
    for (Bytes* bad : {&foreign, &damaged}) {
        EXPECT_EQ(match(handle.get(), probeTemplate.data(), bad->data(), &got), 17);
        EXPECT_EQ(match(handle.get(), bad->data(), probeTemplate.data(), &got), 17);
    }
    EXPECT_EQ(match(handle.get(), nullptr, probeTemplate.data(), &got), 17);
    EXPECT_EQ(match(handle.get(), probeTemplate.data(), nullptr, &got), 17);
    EXPECT_EQ(match(handle.get(), probeTemplate.data(), probeTemplate.data(), nullptr), 17);
    EXPECT_EQ(match(nullptr, probeTemplate.data(), probeTemplate.data(), &got), 12);
    EXPECT_EQ(got, 9);
    EXPECT_EQ(zzGetFeatureSizeThread(handle.get()), 520);
    EXPECT_EQ(zzGetFeatureSizeThread(nullptr), 12);
}

// One shot, no history.
TEST_P(Search, OneShot) {
    const auto search = kind == 1 ? zzDetectSearchFeatureThread : zzMaskDetectSearchFeatureThread;
    Bytes gallery = galleryOf({0.605, 0.765, 0.715, 0.765});
    EXPECT_EQ(search(handle.get(), gallery.data(), 4, 76, probeTemplate.data(), &face), 0);
    EXPECT_EQ(face.searchFlag, 1);
    EXPECT_TRUE(face.searchId == 1 || face.searchId == 3) << face.searchId; // equal up to the rounding of floats
    EXPECT_EQ(face.searchScore, 76);
    for (int again = 0; again < 6; ++again)
        EXPECT_EQ(search(handle.get(), gallery.data(), 4, 77, probeTemplate.data(), &face), -1);
    expectVerdict(face, 0, -1, 76);
    // Unlike in the tracked search, a recognised face is searched all the same.
    face.searchFlag = 1;
    EXPECT_EQ(search(handle.get(), gallery.data() + 520, 1, 70, probeTemplate.data(), &face), 0);
    expectVerdict(face, 1, 0, 76);
    EXPECT_EQ(search(handle.get(), gallery.data(), 0, 1, probeTemplate.data(), &face), -1);
    expectVerdict(face, 0, -1, 0);
    // Templates that cannot be compared are passed over.
    gallery = galleryOf({0.955, 0.605});
    gallery[300] = static_cast<unsigned char>(gallery[300] ^ 1U);
    EXPECT_EQ(search(handle.get(), gallery.data(), 2, 60, probeTemplate.data(), &face), 0);
    expectVerdict(face, 1, 1, 60);

    EXPECT_EQ(search(nullptr, gallery.data(), 2, 60, probeTemplate.data(), &face), 12);
    EXPECT_EQ(search(handle.get(), nullptr, 2, 60, probeTemplate.data(), &face), 17);
    EXPECT_EQ(search(handle.get(), gallery.data(), 2, 60, nullptr, &face), 17);
    EXPECT_EQ(search(handle.get(), gallery.data(), 2, 60, probeTemplate.data(), nullptr), 17);
    expectVerdict(face, 1, 1, 60);
}

// A best score of exactly 0.75 reaches 75 percent: both are the same float.
TEST_P(Search, OneShotAtTheThreshold) {
    Feature a(128, 0);
    Feature b(128, 0);
    a[0] = 1;
    b[0] = b[1] = b[2] = b[3] = 1; // cosine 1/2, exactly
    probeTemplate = encode(a, kind);
    Bytes gallery = encode(b, kind);
    EXPECT_EQ(DetectSearchFeatureThread(handle.get(), kind, gallery.data(), 1, 0.75F, probeTemplate.data(), &face), 0);
    expectVerdict(face, 1, 0, 75);
    EXPECT_EQ(DetectSearchFeatureThread(handle.get(), kind, gallery.data(), 1, std::nextafter(0.75F, 1.0F),
                                        probeTemplate.data(), &face),
              -1);
    const auto search = kind == 1 ? zzDetectSearchFeatureThread : zzMaskDetectSearchFeatureThread;
    EXPECT_EQ(search(handle.get(), gallery.data(), 1, 75, probeTemplate.data(), &face), 0);
    EXPECT_EQ(search(handle.get(), gallery.data(), 1, 76, probeTemplate.data(), &face), -1);
}

std::string nameOfKind(const testing::TestParamInfo<int>& info) {
    return info.param == 1 ? "Bare" : "Masked";
}

INSTANTIATE_TEST_SUITE_P(Kinds, Search, testing::Values(1, 2), nameOfKind);

} // namespace
