// Detection in the bundled photos, with the embedded networks, as an application sees it.

#include <veldan/face_api.h>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

namespace {

struct FreeInstance {
    void operator()(void* handle) const { zzFreeAlgThread(handle); }
};
using Instance = std::unique_ptr<void, FreeInstance>;

Instance makeInstance() {
    int result = -1;
    Instance instance(zzInitAlgThread(nullptr, &result));
    EXPECT_EQ(result, 0);
    return instance;
}

cv::Mat readPhoto(const std::string& name) {
    cv::Mat photo = cv::imread(std::string(VELDAN_PHOTO_DIR) + "/" + name);
    EXPECT_FALSE(photo.empty()) << name;
    return photo;
}

struct Detection {
    int code = 0;
    std::vector<VDFACEINFOEX> faces;
};

Detection detect(void* instance, const cv::Mat& image) {
    cv::Mat packed = image.clone();
    Detection detection;
    detection.faces.resize(5000);
    std::memset(detection.faces.data(), 0, detection.faces.size() * sizeof(VDFACEINFOEX));
    int count = -1;
    detection.code =
        zzDetectFaceThread(instance, packed.data, packed.cols, packed.rows, &count, detection.faces.data());
    detection.faces.resize(static_cast<std::size_t>(std::max(count, 0)));
    return detection;
}

cv::Rect2d box(const VDFACEINFOEX& face) {
    return {static_cast<double>(face.x), static_cast<double>(face.y), static_cast<double>(face.width),
            static_cast<double>(face.height)};
}

double overlap(const cv::Rect2d& a, const cv::Rect2d& b) {
    const double common = (a & b).area();
    return common / (a.area() + b.area() - common);
}

double bestOverlap(const Detection& detection, const cv::Rect2d& wanted) {
    double best = 0;
    for (const VDFACEINFOEX& face : detection.faces)
        best = std::max(best, overlap(box(face), wanted));
    return best;
}

void expectSound(const Detection& detection, cv::Size image) {
    EXPECT_EQ(detection.code, detection.faces.empty() ? 13 : 0);
    for (std::size_t i = 0; i < detection.faces.size(); ++i) {
        SCOPED_TRACE(i);
        const VDFACEINFOEX& face = detection.faces[i];
        EXPECT_GE(face.x, 0);
        EXPECT_GE(face.y, 0);
        EXPECT_GT(face.width, 0);
        EXPECT_GT(face.height, 0);
        EXPECT_LE(face.x + face.width, image.width);
        EXPECT_LE(face.y + face.height, image.height);
        EXPECT_EQ(face.keyPointNum, 5);
        for (int k = 0; k < 5; ++k) {
            EXPECT_GE(face.keyPointX[k], 0);
            EXPECT_LE(face.keyPointX[k], image.width);
            EXPECT_GE(face.keyPointY[k], 0);
            EXPECT_LE(face.keyPointY[k], image.height);
        }
        const double eyes = std::hypot(face.keyPointX[0] - face.keyPointX[1], face.keyPointY[0] - face.keyPointY[1]);
        EXPECT_EQ(face.eyeDistance, static_cast<int>(eyes));
        if (i > 0) {
            // By area of the box before it is cut off to whole pixels, so that a pixel of difference is possible.
            const VDFACEINFOEX& larger = detection.faces[i - 1];
            EXPECT_GE((larger.width + 1) * (larger.height + 1), face.width * face.height);
        }
    }
}

// Faces that the detector should find, boxes taken from the photos.
struct Photo {
    const char* file;
    std::vector<cv::Rect2d> faces;
};
void PrintTo(const Photo& photo, std::ostream* out) {
    *out << photo.file;
}
const Photo photos[] = {
    {"astronaut.jpg", {{181, 54, 92, 124}}},     {"first-bare.webp", {{114, 200, 111, 154}}},
    {"first-mask.webp", {{91, 153, 119, 159}}},  {"second-bare.webp", {{100, 139, 109, 160}}},
    {"second-mask.webp", {{56, 150, 103, 134}}},
};

class Faces : public testing::TestWithParam<Photo> {
protected:
    const Instance instance = makeInstance();
    const cv::Mat photo = readPhoto(GetParam().file);
};

TEST_P(Faces, AreFoundAndNothingElse) {
    const Detection detection = detect(instance.get(), photo);
    expectSound(detection, photo.size());
    ASSERT_EQ(detection.faces.size(), GetParam().faces.size());
    for (const cv::Rect2d& face : GetParam().faces)
        EXPECT_GT(bestOverlap(detection, face), 0.5);
    // Upright faces: the first eye and mouth corner are on the left of the image, the mouth below the eyes.
    for (const VDFACEINFOEX& face : detection.faces) {
        EXPECT_LT(face.keyPointX[0], face.keyPointX[1]);
        EXPECT_LT(face.keyPointX[3], face.keyPointX[4]);
        EXPECT_LT(std::max(face.keyPointY[0], face.keyPointY[1]), std::min(face.keyPointY[3], face.keyPointY[4]));
        const cv::Rect2d inside = box(face);
        for (int k = 0; k < 5; ++k)
            EXPECT_TRUE(inside.contains(cv::Point2d(face.keyPointX[k], face.keyPointY[k]))) << "key point " << k;
    }
}

TEST_P(Faces, AreFoundAgainInTheMirror) {
    const Detection detection = detect(instance.get(), photo);
    ASSERT_FALSE(detection.faces.empty());
    cv::Mat mirrored;
    cv::flip(photo, mirrored, 1);
    const Detection again = detect(instance.get(), mirrored);
    for (const VDFACEINFOEX& face : detection.faces) {
        cv::Rect2d expected = box(face);
        expected.x = photo.cols - expected.x - expected.width;
        EXPECT_GT(bestOverlap(again, expected), 0.6);
    }
}

TEST_P(Faces, AreFoundAgainAtOtherSizes) {
    const Detection detection = detect(instance.get(), photo);
    ASSERT_FALSE(detection.faces.empty());
    for (const double scale : {0.6, 0.8, 1.3, 1.7, 2.5}) {
        SCOPED_TRACE(scale);
        cv::Mat resized;
        cv::resize(photo, resized, cv::Size(), scale, scale, cv::INTER_LINEAR);
        const Detection again = detect(instance.get(), resized);
        expectSound(again, resized.size());
        for (const VDFACEINFOEX& face : detection.faces) {
            const cv::Rect2d b = box(face);
            EXPECT_GT(bestOverlap(again, {b.x * scale, b.y * scale, b.width * scale, b.height * scale}), 0.6);
        }
    }
}

TEST_P(Faces, AreFoundAgainWhenShifted) {
    const Detection detection = detect(instance.get(), photo);
    ASSERT_FALSE(detection.faces.empty());
    for (const cv::Point shift : {cv::Point(3, 2), cv::Point(37, 13), cv::Point(101, 64)}) {
        SCOPED_TRACE(shift);
        cv::Mat shifted;
        cv::copyMakeBorder(photo, shifted, shift.y, 0, shift.x, 0, cv::BORDER_REPLICATE);
        const Detection again = detect(instance.get(), shifted);
        for (const VDFACEINFOEX& face : detection.faces)
            EXPECT_GT(bestOverlap(again, box(face) + cv::Point2d(shift)), 0.6);
    }
}

TEST_P(Faces, AreFoundWhenTheyFillTheFrame) {
    const cv::Rect2d face = GetParam().faces.front();
    const cv::Rect close = cv::Rect(face) & cv::Rect(0, 0, photo.cols, photo.rows);
    cv::Mat frame;
    cv::resize(photo(close), frame, cv::Size(), 3, 3, cv::INTER_LINEAR);
    const Detection detection = detect(instance.get(), frame);
    expectSound(detection, frame.size());
    EXPECT_GT(bestOverlap(detection, {0, 0, static_cast<double>(frame.cols), static_cast<double>(frame.rows)}), 0.5);
}

TEST_P(Faces, ComeOutTheSameEveryTime) {
    const Instance other = makeInstance();
    const Detection first = detect(instance.get(), photo);
    detect(instance.get(), readPhoto("rows.webp"));
    const Detection second = detect(instance.get(), photo);
    const Detection third = detect(other.get(), photo);
    for (const Detection* again : {&second, &third}) {
        ASSERT_EQ(again->faces.size(), first.faces.size());
        EXPECT_EQ(std::memcmp(again->faces.data(), first.faces.data(), first.faces.size() * sizeof(VDFACEINFOEX)), 0);
    }
}

INSTANTIATE_TEST_SUITE_P(Photos, Faces, testing::ValuesIn(photos), [](const auto& info) {
    std::string name = info.param.file;
    name.resize(name.find('.'));
    name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
    return name;
});

class Frames : public testing::Test {
protected:
    const Instance instance = makeInstance();
};

TEST_F(Frames, WithSeveralFacesAreSound) {
    for (const char* file : {"crowd.webp", "dusk.webp", "queue.webp", "rows.webp", "street.webp"}) {
        SCOPED_TRACE(file);
        const cv::Mat photo = readPhoto(file);
        expectSound(detect(instance.get(), photo), photo.size());
    }
}

TEST_F(Frames, OfNoiseHoldNoFaces) {
    cv::RNG random(23);
    int found = 0;
    for (int round = 0; round < 12; ++round) {
        cv::Mat frame(100 + random.uniform(0, 500), 100 + random.uniform(0, 700), CV_8UC3);
        random.fill(frame, cv::RNG::UNIFORM, 0, 256);
        if (round % 3 > 0)
            cv::GaussianBlur(frame, frame, cv::Size(), 2 * (round % 3) * (round % 3));
        cv::normalize(frame, frame, 0, 255, cv::NORM_MINMAX);
        const Detection detection = detect(instance.get(), frame);
        expectSound(detection, frame.size());
        found += static_cast<int>(detection.faces.size());
    }
    EXPECT_LE(found, 1);
}

TEST_F(Frames, OfOneColourHoldNoFaces) {
    for (const int grey : {0, 127, 255})
        EXPECT_EQ(detect(instance.get(), cv::Mat(480, 640, CV_8UC3, cv::Scalar::all(grey))).code, 13);
}

TEST_F(Frames, WithMoreThan100FacesAreReportedWithAllTheirRecords) {
    const cv::Mat head = readPhoto("astronaut.jpg")(cv::Rect(137, 26, 180, 180));
    cv::Mat small;
    cv::resize(head, small, cv::Size(150, 150), 0, 0, cv::INTER_AREA);
    cv::Mat frame;
    cv::repeat(small, 10, 11, frame);
    const Detection detection = detect(instance.get(), frame);
    EXPECT_EQ(detection.code, 23);
    EXPECT_GT(detection.faces.size(), 100U);
    EXPECT_LE(detection.faces.size(), 120U);
    for (const VDFACEINFOEX& face : detection.faces)
        EXPECT_EQ(face.keyPointNum, 5);

    // At the limit itself all is well: a hundred records.
    cv::repeat(small, 10, 10, frame);
    const Detection hundred = detect(instance.get(), frame);
    EXPECT_EQ(hundred.faces.size(), 100U);
    EXPECT_EQ(hundred.code, 0);
}

} // namespace
