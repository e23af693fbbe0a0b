// Tracking and the operations that run one engine over a frame. What the frame before held is the caller's to say, so
// every situation is arranged by handing in made-up records beside a real photo.

#include "support/engines.hpp"

#include <veldan/face_api.h>
#include <veldan/instance.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

namespace {

using Faces = std::vector<VDFACEINFOEX>;

TEST(Iou, OfTwoBoxes) {
    EXPECT_EQ(VdFaceAPI::vdIou(3, 4, 10, 10, 3, 4, 10, 10), 1.0);
    EXPECT_EQ(VdFaceAPI::vdIou(0, 0, 10, 10, 5, 0, 10, 10), 50.0 / 150.0);
    EXPECT_EQ(VdFaceAPI::vdIou(0, 0, 10, 10, -5, 5, 10, 10), 25.0 / 175.0);
    EXPECT_EQ(VdFaceAPI::vdIou(0, 0, 100, 100, 40, 40, 10, 10), 100.0 / 10000.0);
    EXPECT_EQ(VdFaceAPI::vdIou(0, 0, 10, 10, 10, 0, 10, 10), 0.0) << "they only touch";
    EXPECT_EQ(VdFaceAPI::vdIou(0, 0, 10, 10, 0, 10, 10, 10), 0.0);
    EXPECT_EQ(VdFaceAPI::vdIou(0, 0, 10, 10, 50, 50, 10, 10), 0.0);
    EXPECT_EQ(VdFaceAPI::vdIou(0, 0, 0, 0, 0, 0, 0, 0), 0.0);
    VdFaceAPI::vdIou(INT_MAX, INT_MAX, INT_MAX, INT_MAX, INT_MIN, INT_MIN, INT_MIN, INT_MIN); // no overflow
}

TEST(Round, HalvesAboveZeroGoToTheEvenNeighbour) {
    const std::pair<float, int> cases[] = {{0.5F, 0},   {1.5F, 2},   {2.5F, 2},   {3.5F, 4}, {2.4F, 2}, {2.6F, 3},
                                           {-0.5F, -1}, {-2.5F, -3}, {-2.4F, -2}, {0.0F, 0}, {7.0F, 7}};
    for (const auto& [value, expected] : cases)
        EXPECT_EQ(VdFaceAPI::np_round(value), expected) << value;
}

class Tracking : public testing::Test {
protected:
    static void SetUpTestSuite() {
        photo = cv::imread(VELDAN_PHOTO_DIR "/rows.webp", cv::IMREAD_COLOR);
        ASSERT_FALSE(photo.empty());
        api = new VdFaceAPI();
        ASSERT_EQ(api->vdInitAlg(nullptr, 0, 5), 0);
        found = detect(photo);
        ASSERT_GE(found.size(), 4U);
    }
    static void TearDownTestSuite() {
        api->vdFreeAlg();
        delete api;
    }

    static Faces detect(const cv::Mat& image) {
        Faces faces(VELDAN_DETECT_CAPACITY);
        int count = 0;
        EXPECT_EQ(api->vdDetectFace(image.data, image.cols, image.rows, &count, faces.data()), 0);
        faces.resize(static_cast<std::size_t>(count));
        return faces;
    }

    // Tracks from what the frame before held. Records of this frame come back, over those of the caller.
    static Faces track(const Faces& before, int code = 0, const cv::Mat& image = photo) {
        Faces faces(VELDAN_DETECT_CAPACITY);
        std::memset(faces.data(), 0xA5, faces.size() * sizeof(faces[0]));
        std::copy(before.begin(), before.end(), faces.begin());
        int count = static_cast<int>(before.size());
        EXPECT_EQ(api->vdTrackFace(image.data, image.cols, image.rows, &count, faces.data()), code);
        faces.resize(static_cast<std::size_t>(count));
        return faces;
    }

    // As the frame before may have held it.
    static VDFACEINFOEX known(const VDFACEINFOEX& where, int trackId) {
        VDFACEINFOEX face = where;
        face.trackId = trackId;
        face.searchFlag = 10 + trackId;
        face.searchId = 20 + trackId;
        face.searchScore = 30 + trackId;
        face.strangerFlag = 40 + trackId;
        return face;
    }
    static VDFACEINFOEX elsewhere(int trackId) {
        return known(veldan_tests::faceWithBox(-5000 - 100 * trackId, -5000, 50, 50), trackId);
    }
    static void expectInherited(const VDFACEINFOEX& face, int trackId) {
        EXPECT_EQ(face.trackId, trackId);
        EXPECT_EQ(face.searchFlag, 10 + trackId);
        EXPECT_EQ(face.searchId, 20 + trackId);
        EXPECT_EQ(face.searchScore, 30 + trackId);
        EXPECT_EQ(face.strangerFlag, 40 + trackId);
    }

    static cv::Mat photo;
    static VdFaceAPI* api;
    static Faces found;
};

cv::Mat Tracking::photo;
VdFaceAPI* Tracking::api = nullptr;
Faces Tracking::found;

TEST_F(Tracking, FirstFrame) {
    track({elsewhere(7)});
    const Faces faces = track({});
    ASSERT_EQ(faces.size(), found.size());
    VDFACEINFOEX expected;
    std::memset(&expected, 0xFF, sizeof(expected)); // the default record: -1 everywhere
    expected.trackId = 0;
    expected.searchFlag = 0;
    EXPECT_TRUE(veldan_tests::changedWords(expected, api->previousFaces[0]).empty()) << "nobody was there before";
    for (std::size_t i = 0; i < faces.size(); ++i) {
        if (i > 0)
            std::memset(&expected, 0xA5, sizeof(expected)); // the others keep what the caller had
        // Box, points 0 to 6, count and eye distance are those of detection; quality is new.
        std::memcpy(&expected.x, &found[i].x, 5 * sizeof(int));
        std::copy_n(found[i].keyPointX, 7, expected.keyPointX);
        std::copy_n(found[i].keyPointY, 7, expected.keyPointY);
        expected.eyeDistance = found[i].eyeDistance;
        expected.quality = faces[i].quality;
        EXPECT_TRUE(veldan_tests::changedWords(expected, faces[i]).empty()) << i;
        EXPECT_GE(faces[i].quality, 0);
        EXPECT_LE(faces[i].quality, 100);
    }
}

TEST_F(Tracking, VerdictsFollowTheFaces) {
    Faces before;
    for (std::size_t i = 0; i < found.size(); ++i) // in another order than this frame's
        before.insert(before.begin(), known(found[i], static_cast<int>(i)));
    const Faces faces = track(before);
    ASSERT_EQ(faces.size(), found.size());
    for (std::size_t i = 0; i < faces.size(); ++i)
        expectInherited(faces[i], static_cast<int>(i));
    EXPECT_EQ(api->currentFaceNum, static_cast<int>(found.size()));
    EXPECT_EQ(api->previousFaceNum, static_cast<int>(found.size()));
    EXPECT_EQ(std::memcmp(api->currentFaces, faces.data(), faces.size() * sizeof(faces[0])), 0);
    EXPECT_EQ(std::memcmp(api->previousFaces, before.data(), before.size() * sizeof(faces[0])), 0);
}

TEST_F(Tracking, FacesFarFromAllInheritFaceZero) {
    for (const VDFACEINFOEX& face : track({elsewhere(4), elsewhere(9)}))
        expectInherited(face, 4);
}

TEST_F(Tracking, WhoeverOverlapsLessGetsANewIdentity) {
    // Face 1 stands where face 0 of the frame before stood, so all the others lose its identity to face 1.
    const Faces faces = track({known(found[1], 0), elsewhere(3), elsewhere(7), elsewhere(-1)});
    expectInherited(faces[1], 0);
    int expected = 7;
    for (std::size_t i = 0; i < faces.size(); ++i) {
        if (i == 1)
            continue;
        EXPECT_EQ(faces[i].trackId, ++expected);
        EXPECT_EQ(faces[i].searchFlag, 0);
        if (i >= 4) {
            EXPECT_EQ(static_cast<unsigned>(faces[i].searchId), 0xA5A5A5A5U)
                << "beyond the records handed in: whatever the caller had there";
        }
    }
    EXPECT_EQ(faces[2].searchId, 27) << "the words of the record that was handed in at this index";
}

TEST_F(Tracking, EveryBetterClaimTakesANumber) {
    // A box over the whole picture: overlaps grow with the faces' areas, which are sorted.
    const Faces faces = track({known(veldan_tests::faceWithBox(0, 0, photo.cols, photo.rows), 5)});
    expectInherited(faces[0], 5);
    int highest = 5;
    for (std::size_t i = 1; i < faces.size(); ++i) {
        int better = 0;
        for (const VDFACEINFOEX& other : faces)
            better += other.width * other.height > faces[i].width * faces[i].height ? 1 : 0;
        highest += better;
        if (better > 0) {
            EXPECT_EQ(faces[i].trackId, highest) << i;
        } else {
            expectInherited(faces[i], 5);
        }
    }
}

TEST_F(Tracking, FailuresAndBadArguments) {
    const cv::Mat empty(200, 200, CV_8UC3, cv::Scalar(128, 128, 128));
    EXPECT_TRUE(track({elsewhere(1)}, 13, empty).empty());
    EXPECT_TRUE(track({}, 13, empty).empty());
    EXPECT_TRUE(track({elsewhere(1)}, 13, cv::Mat(99, 300, CV_8UC3, cv::Scalar())).empty());
    int count = 0;
    VDFACEINFOEX face;
    EXPECT_EQ(api->vdTrackFace(photo.data, photo.cols, photo.rows, nullptr, &face), 13);
    EXPECT_EQ(api->vdTrackFace(photo.data, photo.cols, photo.rows, &count, nullptr), 13);
    EXPECT_EQ(zzTrackFaceThread(nullptr, photo.data, photo.cols, photo.rows, &count, &face), 12);

    // Counts that no frame can have had.
    for (const int claimed : {-1, 101, 4000, INT_MAX}) {
        Faces faces(VELDAN_DETECT_CAPACITY);
        count = claimed;
        EXPECT_EQ(zzTrackFaceThread(api, photo.data, photo.cols, photo.rows, &count, faces.data()), 0) << claimed;
        EXPECT_EQ(count, static_cast<int>(found.size()));
    }

    cv::dnn::Net& net = veldan::EngineAccess::net(*api->faceQuality);
    const cv::dnn::Net whole = net;
    net = cv::dnn::Net();
    track({elsewhere(1)}, 32);
    net = whole;
}

TEST_F(Tracking, AHundredFacesAtMost) {
    const cv::Mat portrait = cv::imread(VELDAN_PHOTO_DIR "/astronaut.jpg");
    const VDFACEINFOEX face = detect(portrait)[0];
    const cv::Rect around(face.x - face.width / 2, face.y - face.height / 2, 2 * face.width, 2 * face.height);
    cv::Mat tile;
    cv::resize(portrait(around & cv::Rect({}, portrait.size())), tile, cv::Size(150, 150), 0, 0, cv::INTER_AREA);
    const cv::Mat crowd = cv::repeat(tile, 11, 11);
    ASSERT_GT(detect(crowd).size(), 100U);
    EXPECT_EQ(track({elsewhere(1)}, 0, crowd).size(), 100U);

    Faces faces(VELDAN_DETECT_CAPACITY);
    int count = 0;
    EXPECT_EQ(zzDetectFaceThread(api, crowd.data, crowd.cols, crowd.rows, &count, faces.data()), 23);
    EXPECT_GT(count, 100);
    EXPECT_GT(faces[100].width, 0) << "the records are written all the same";
}

// Each operation writes its words and no others, and its engine's failure becomes its code.
TEST_F(Tracking, OneEngineOverAFrame) {
    using Words = std::vector<int>;
    const struct {
        const char* name;
        int (*entryPoint)(void*, unsigned char*, int, int, int, VDFACEINFOEX*);
        int (VdFaceAPI::*operation)(unsigned char*, int, int, int, VDFACEINFOEX*);
        Words words;
        int failure;
    } cases[] = {
        {"quality", zzFaceQualityThread, &VdFaceAPI::vdFaceQuality, {248}, 32},
        {"mask", zzFaceMaskThread, &VdFaceAPI::vdFaceMaskRGB, {257}, 32},
        {"visible", zzVisLivenessDetectThread, &VdFaceAPI::vdVisLivenessDetect, {250}, -1},
        {"infrared", zzNirLivenessDetectThread, &VdFaceAPI::vdNirLivenessDetect, {250}, -1},
        {"two points", nullptr, &VdFaceAPI::vdFaceLandMarkRGB, {10, 11, 130, 131}, 32},
    };
    VdFaceAPI freed;
    std::memset(static_cast<void*>(&freed), 0, sizeof(freed));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        Faces before = found;
        for (VDFACEINFOEX& face : before) // values that no engine gives
            for (const int word : c.words)
                reinterpret_cast<int*>(&face)[word] = -12345;
        Faces faces = before;
        const int count = static_cast<int>(faces.size());
        EXPECT_EQ((api->*c.operation)(photo.data, photo.cols, photo.rows, count, faces.data()), 0);
        for (std::size_t i = 0; i < faces.size(); ++i)
            EXPECT_EQ(veldan_tests::changedWords(before[i], faces[i]), c.words);
        EXPECT_EQ((api->*c.operation)(nullptr, photo.cols, photo.rows, count, faces.data()), c.failure);
        EXPECT_EQ((freed.*c.operation)(photo.data, photo.cols, photo.rows, count, faces.data()), c.failure);
        if (c.entryPoint != nullptr) {
            Faces again = before;
            EXPECT_EQ(c.entryPoint(api, photo.data, photo.cols, photo.rows, count, again.data()), 0);
            EXPECT_EQ(std::memcmp(again.data(), faces.data(), faces.size() * sizeof(faces[0])), 0);
            EXPECT_EQ(c.entryPoint(nullptr, photo.data, photo.cols, photo.rows, count, again.data()), 12);
        }
    }
}

TEST_F(Tracking, RefinementMovesBoxAndPoints) {
    using testing::IsSubsetOf;
    Faces faces = found;
    const int count = static_cast<int>(faces.size());
    EXPECT_EQ(api->vdOnetLandmark(photo.data, photo.cols, photo.rows, count, faces.data()), 0);
    for (std::size_t i = 0; i < faces.size(); ++i) {
        EXPECT_THAT(veldan_tests::changedWords(found[i], faces[i]),
                    IsSubsetOf({0, 1, 2, 3, 5, 6, 7, 8, 9, 125, 126, 127, 128, 129}));
        EXPECT_GT(VdFaceAPI::vdIou(found[i].x, found[i].y, found[i].width, found[i].height, faces[i].x, faces[i].y,
                                   faces[i].width, faces[i].height),
                  0.5);
    }
    EXPECT_EQ(api->vdOnetLandmark(nullptr, photo.cols, photo.rows, count, faces.data()), 14);
}

TEST_F(Tracking, QualityForEnrolment) {
    cv::Mat portrait = cv::imread(VELDAN_PHOTO_DIR "/astronaut.jpg");
    Faces faces = detect(portrait);
    ASSERT_EQ(faces.size(), 1U);
    const auto judged = [&](const cv::Mat& image) {
        const int result = zzFaceQuality4RegisterThread(api, image.data, image.cols, image.rows, 1, faces.data());
        EXPECT_EQ(result, faces[0].quality);
        return result;
    };
    const auto plain = [&](const cv::Mat& image) {
        EXPECT_EQ(zzFaceQualityThread(api, image.data, image.cols, image.rows, 1, faces.data()), 0);
        return faces[0].quality;
    };
    EXPECT_EQ(judged(portrait), plain(portrait)) << "sharp";

    // Blurred, and with a quality of 90 or so all the same: the network's answer is arranged.
    cv::Mat blurred;
    cv::GaussianBlur(portrait, blurred, cv::Size(), 3);
    cv::dnn::Net& net = veldan::EngineAccess::net(*api->faceQuality);
    const cv::dnn::Net whole = net;
    veldan_tests::loadInto(net, veldan_tests::scoreNetwork("softmax/Softmax", {24 * 24 * 3, {0.0F, 0.905F}}));
    EXPECT_EQ(plain(blurred), 90);
    EXPECT_EQ(judged(blurred), 72);
    EXPECT_EQ(judged(portrait), 90);
    net = cv::dnn::Net();
    EXPECT_EQ(zzFaceQuality4RegisterThread(api, portrait.data, portrait.cols, portrait.rows, 1, faces.data()), 32);
    net = whole;

    for (const int count : {0, 2, -1})
        EXPECT_EQ(zzFaceQuality4RegisterThread(api, portrait.data, portrait.cols, portrait.rows, count, faces.data()),
                  15);
    EXPECT_EQ(zzFaceQuality4RegisterThread(nullptr, portrait.data, portrait.cols, portrait.rows, 1, faces.data()), 12);
}

} // namespace
