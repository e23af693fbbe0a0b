#include "run_veldan.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <string>
#include <tuple>
#include <vector>

namespace {

using Bytes = std::vector<unsigned char>;

/** Four coloured quarters, wider than high: every turn and every mirroring of it is a different picture. */
cv::Mat uprightPicture() {
    cv::Mat picture(128, 192, CV_8UC3);
    picture(cv::Rect(0, 0, 96, 64)) = cv::Scalar(40, 40, 200);
    picture(cv::Rect(96, 0, 96, 64)) = cv::Scalar(40, 200, 40);
    picture(cv::Rect(0, 64, 96, 64)) = cv::Scalar(200, 40, 40);
    picture(cv::Rect(96, 64, 96, 64)) = cv::Scalar(220, 220, 220);
    return picture;
}

/**
 * How a camera stores the picture under each orientation. The EXIF tag says on which side of the upright picture the
 * stored row 0 and the stored column 0 lie: 1 top and left, 2 top and right, 3 bottom and right, 4 bottom and left,
 * 5 left and top, 6 right and top, 7 right and bottom, 8 left and bottom.
 */
cv::Mat stored(const cv::Mat& upright, int orientation) {
    cv::Mat result(upright.size(), upright.type());
    if (orientation > 4)
        result.create(upright.cols, upright.rows, upright.type());
    for (int y = 0; y < result.rows; ++y) {
        for (int x = 0; x < result.cols; ++x) {
            int fromX = orientation > 4 ? y : x;
            int fromY = orientation > 4 ? x : y;
            if (orientation == 2 || orientation == 3 || orientation == 6 || orientation == 7)
                fromX = upright.cols - 1 - fromX;
            if (orientation == 3 || orientation == 4 || orientation == 7 || orientation == 8)
                fromY = upright.rows - 1 - fromY;
            result.at<cv::Vec3b>(y, x) = upright.at<cv::Vec3b>(fromY, fromX);
        }
    }
    return result;
}

/** EXIF data that hold nothing but the orientation. */
Bytes exifBlock(int orientation, bool bigEndian) {
    const auto value = static_cast<unsigned char>(orientation);
    if (bigEndian)
        return {'M', 'M', 0, 42, 0, 0, 0, 8, 0, 1, 0x01, 0x12, 0, 3, 0, 0, 0, 1, 0, value, 0, 0, 0, 0, 0, 0};
    return {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 0x01, 3, 0, 1, 0, 0, 0, value, 0, 0, 0, 0, 0, 0, 0};
}

void append(Bytes& bytes, const Bytes& more) {
    bytes.insert(bytes.end(), more.begin(), more.end());
}

Bytes jpegWithOrientation(const cv::Mat& picture, int orientation) {
    Bytes plain;
    cv::imencode(".jpg", picture, plain, {cv::IMWRITE_JPEG_QUALITY, 100});
    const Bytes exif = exifBlock(orientation, true);
    const std::size_t length = 2 + 6 + exif.size();
    Bytes result(plain.begin(), plain.begin() + 2); // start of image
    append(result, {0xff, 0xe1, static_cast<unsigned char>(length >> 8), static_cast<unsigned char>(length & 255), 'E',
                    'x', 'i', 'f', 0, 0});
    append(result, exif);
    result.insert(result.end(), plain.begin() + 2, plain.end());
    return result;
}

Bytes littleEndian(std::size_t value, int count) {
    Bytes bytes;
    for (int i = 0; i < count; ++i)
        bytes.push_back(static_cast<unsigned char>(value >> (8 * i) & 255));
    return bytes;
}

Bytes webpWithOrientation(const cv::Mat& picture, int orientation) {
    Bytes plain;
    cv::imencode(".webp", picture, plain, {cv::IMWRITE_WEBP_QUALITY, 101});
    const Bytes exif = exifBlock(orientation, false);
    Bytes body = {'W', 'E', 'B', 'P', 'V', 'P', '8', 'X', 10, 0, 0, 0, 0x08, 0, 0, 0};
    append(body, littleEndian(static_cast<std::size_t>(picture.cols) - 1, 3));
    append(body, littleEndian(static_cast<std::size_t>(picture.rows) - 1, 3));
    body.insert(body.end(), plain.begin() + 12, plain.end());
    append(body, {'E', 'X', 'I', 'F'});
    append(body, littleEndian(exif.size(), 4));
    append(body, exif);
    Bytes result = {'R', 'I', 'F', 'F'};
    append(result, littleEndian(body.size(), 4));
    append(result, body);
    return result;
}

class Orientation : public testing::TestWithParam<std::tuple<const char*, int>> {};

// What is drawn into a picture without a face is the picture as the detector saw it.
TEST_P(Orientation, IsUndoneBeforeDetection) {
    const auto [format, orientation] = GetParam();
    const cv::Mat upright = uprightPicture();
    const cv::Mat turned = stored(upright, orientation);
    const ScratchFolder folder;
    const std::string photo = (folder / (std::string("photo.") + format)).string();
    const std::string drawn = (folder / "drawn.png").string();
    writeBytes(photo, std::string(format) == "jpg" ? jpegWithOrientation(turned, orientation)
                                                   : webpWithOrientation(turned, orientation));

    const CommandResult result = runVeldan({"detect", "--json", photo, "--draw", drawn});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    const auto entry = nlohmann::json::parse(result.output).at("photos").at(0);
    ASSERT_EQ(entry.at("faces").size(), 0u);
    EXPECT_EQ(entry.at("width"), upright.cols);
    EXPECT_EQ(entry.at("height"), upright.rows);
    const cv::Mat seen = cv::imread(drawn);
    ASSERT_EQ(seen.size(), upright.size());
    EXPECT_LT(cv::norm(seen, upright, cv::NORM_L1) / static_cast<double>(seen.total() * 3), 3.0);
}

INSTANTIATE_TEST_SUITE_P(Formats, Orientation, testing::Combine(testing::Values("jpg", "webp"), testing::Range(1, 9)),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param)) + std::to_string(std::get<1>(info.param));
                         });

TEST(Orientation, DamagedExifDataLeaveThePictureAsItIs) {
    const cv::Mat upright = uprightPicture();
    const Bytes whole = webpWithOrientation(upright, 1);
    const ScratchFolder folder;
    const std::string photo = (folder / "photo.webp").string();
    const std::size_t exifStart = whole.size() - exifBlock(1, false).size();
    for (const std::size_t at : {std::size_t{0}, std::size_t{4}, std::size_t{8}, std::size_t{10}, std::size_t{12},
                                 std::size_t{14}, std::size_t{18}}) {
        Bytes damaged = whole;
        damaged[exifStart + at] = 0xee;
        writeBytes(photo, damaged);
        const CommandResult result = runVeldan({"detect", "--json", photo});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        EXPECT_EQ(nlohmann::json::parse(result.output).at("photos").at(0).at("width"), upright.cols) << at;
    }
}

} // namespace
