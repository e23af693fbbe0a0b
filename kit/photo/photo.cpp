#include "photo/photo.hpp"

#include "photo/heif.hpp"
#include "photo/orientation.hpp"
#include "photo/picture_format.hpp"
#include "report/exit_codes.hpp"
#include "system/file_bytes.hpp"
#include "system/foreign_noise.hpp"

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include <algorithm>
#include <array>

namespace veldan::kit {

namespace {

// What OpenCV refuses, unless its environment variables say otherwise.
constexpr int mostPixelsASide = 1 << 20;
constexpr int mostMegapixels = 1073;
// What its image functions can address.
constexpr int mostUsefulSide = 32767;

[[noreturn]] void refuse(const std::string& reason) {
    throw CommandError(ExitCode::Unreadable, reason);
}

[[noreturn]] void refuseDamaged(const std::vector<unsigned char>& bytes, PictureFormat format) {
    if (format == PictureFormat::Other)
        refuse("not a picture in a known format");
    if (endsTooSoon(bytes, format))
        refuse(std::string("truncated: the file ends before the ") + nameOf(format) + " picture does");
    refuse(std::string("a damaged ") + nameOf(format) + " picture, or an unusual one, that cannot be decoded");
}

constexpr std::array<unsigned char, 2> jpegEnd = {0xff, 0xd9};

bool endsLikeJpeg(const std::vector<unsigned char>& bytes) {
    return bytes.size() >= jpegEnd.size() && std::equal(jpegEnd.rbegin(), jpegEnd.rend(), bytes.rbegin());
}

/** OpenCV leaves the rows that a JPEG file in memory lacks as they happen to be; up to an end they turn grey. */
std::vector<unsigned char> withEnd(std::vector<unsigned char> bytes) {
    bytes.insert(bytes.end(), jpegEnd.begin(), jpegEnd.end());
    return bytes;
}

Photo decodeByOpenCv(const std::vector<unsigned char>& bytes, PictureFormat format) {
    const NoiseCapture noise;
    cv::Mat picture;
    const bool mended = format == PictureFormat::Jpeg && !endsLikeJpeg(bytes);
    try {
        if (mended)
            picture = cv::imdecode(withEnd(bytes), cv::IMREAD_COLOR);
        else if (!bytes.empty())
            picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
    } catch (const cv::Exception& error) {
        if (error.err.find("CV_IO_MAX_IMAGE") != std::string::npos)
            refuse("too large: at most " + std::to_string(mostMegapixels) + " megapixels and " +
                   std::to_string(mostPixelsASide) + " pixels a side are read");
        refuseDamaged(bytes, format);
    }
    if (picture.empty())
        refuseDamaged(bytes, format);
    Photo photo{picture.cols, picture.rows, {}};
    if (noise.contains("Corrupt JPEG data: premature end") || noise.contains("Corrupt JPEG data: bad Huffman"))
        photo.flaw = mended ? PhotoFlaw::Truncated : PhotoFlaw::Damaged;
    requireSize(photo.width, photo.height);
    const std::size_t row = static_cast<std::size_t>(picture.cols) * 3;
    photo.pixels.reserve(row * static_cast<std::size_t>(picture.rows));
    for (int y = 0; y < picture.rows; ++y)
        photo.pixels.insert(photo.pixels.end(), picture.ptr(y), picture.ptr(y) + row);
    return photo;
}

std::string lowerCaseExtension(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return extension;
}

constexpr std::array<const char*, 7> writableExtensions = {".jpg", ".jpeg", ".png", ".webp", ".bmp", ".tif", ".tiff"};

} // namespace

Photo loadPhoto(const std::string& path) {
    return decodePhoto(readFile(path));
}

Photo decodePhoto(const std::vector<unsigned char>& bytes) {
    const PictureFormat format = formatOf(bytes);
    switch (format) {
    case PictureFormat::Gif:
    case PictureFormat::Radiance:
    case PictureFormat::Dicom:
        refuse(std::string("a ") + nameOf(format) + " picture; this format is not read");
    case PictureFormat::Heic:
    case PictureFormat::Avif: {
        if (endsTooSoon(bytes, format))
            refuseDamaged(bytes, format);
        const NoiseCapture noise;
        return decodeHeif(bytes);
    }
    default:
        break;
    }
    Photo photo = decodeByOpenCv(bytes, format);
    if (const int orientation = webpOrientation(bytes); orientation != 1)
        turnUpright(photo, orientation);
    return photo;
}

void requireSize(int width, int height) {
    if (width > mostUsefulSide || height > mostUsefulSide)
        refuse("too large: " + std::to_string(width) + " x " + std::to_string(height) + " pixels, at most " +
               std::to_string(mostUsefulSide) + " a side are read");
}

bool canSave(const std::filesystem::path& path) {
    const std::string extension = lowerCaseExtension(path);
    return std::find(writableExtensions.begin(), writableExtensions.end(), extension) != writableExtensions.end();
}

std::string saveableExtensions() {
    std::string text;
    for (const char* extension : writableExtensions)
        text += std::string(text.empty() ? "" : " ") + extension;
    return text;
}

void savePhoto(Photo& photo, const std::filesystem::path& path) {
    std::vector<unsigned char> bytes;
    try {
        const std::string format = path == standardStream ? ".png" : lowerCaseExtension(path);
        if (!cv::imencode(format, cv::Mat(photo.height, photo.width, CV_8UC3, photo.pixels.data()), bytes))
            throw CommandError(ExitCode::NotWritten, "cannot be written: the format does not take such a picture");
    } catch (const cv::Exception& failure) {
        throw CommandError(ExitCode::NotWritten, "cannot be written: " + failure.err);
    }
    writeFile(path, bytes.data(), bytes.size());
}

} // namespace veldan::kit
