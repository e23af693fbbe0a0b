// Files that other programs wrote, and files that other programs read.

#include "tool/guarded_buffer.hpp"
#include "tool/test_image.hpp"

#include <veldan/image_tool.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;
using veldan_tests::GuardedBuffer;
using veldan_tests::TestImage;
using Bytes = std::vector<unsigned char>;

Bytes readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

int patternColour(int x, int y, int c) {
    return c == 0 ? 255 - 5 * x - 7 * y : c == 1 ? 15 * y : 11 * x;
}
int patternGrey(int x, int y, int) {
    return 7 * x + 5 * y;
}

void expectPattern(GuardedBuffer& image, int channels, int (*pattern)(int, int, int), int tolerance) {
    ASSERT_EQ(image.size(), static_cast<std::size_t>(23 * 17 * channels));
    std::size_t i = 0;
    for (int y = 0; y < 17; ++y)
        for (int x = 0; x < 23; ++x)
            for (int c = 0; c < channels; ++c, ++i)
                ASSERT_NEAR(image[i], pattern(x, y, c), tolerance) << x << ", " << y << " channel " << c;
}

// The pictures in data/

struct FixtureCase {
    const char* file;
    // Largest difference of a sample from the pattern.
    int tolerance;
    bool grey = false;
};

void PrintTo(const FixtureCase& c, std::ostream* out) {
    *out << c.file;
}

class Fixture : public testing::TestWithParam<FixtureCase> {
protected:
    std::string path = std::string(VELDAN_TOOL_TEST_DATA) + "/" + GetParam().file;
    int (*pattern)(int, int, int) = GetParam().grey ? patternGrey : patternColour;
    int tolerance = GetParam().tolerance;
};

TEST_P(Fixture, LoadsUpright) {
    for (const int flag : {0, 1, 2}) {
        int width = 0, height = 0;
        ASSERT_EQ(ImageLoad(path.c_str(), flag, nullptr, &width, &height), 1);
        ASSERT_EQ(width, 23);
        ASSERT_EQ(height, 17);
        const int channels = flag == 1 ? 1 : 3;
        GuardedBuffer image(static_cast<std::size_t>(23 * 17 * channels));
        EXPECT_EQ(ImageLoad(path.c_str(), flag, image.data(), &width, &height), 1);
        if (channels == 3)
            expectPattern(image, 3, pattern, tolerance);
        else if (GetParam().grey)
            expectPattern(image, 1, pattern, tolerance);
        else
            expectPattern(
                image, 1,
                [](int x, int y, int) {
                    return static_cast<int>(std::lround(0.114 * patternColour(x, y, 0) +
                                                        0.587 * patternColour(x, y, 1) +
                                                        0.299 * patternColour(x, y, 2)));
                },
                tolerance + 2);
    }
}

TEST_P(Fixture, DecodesFromMemory) {
    Bytes file = readFile(path);
    const auto size = static_cast<int>(file.size());
    if (std::string(GetParam().file) == "magick_32.bmp")
        // The converter of BMP files takes the pixels from byte 54, whatever the header says; this file has them later.
        return;
    int width = 0, height = 0;
    EXPECT_EQ(ImageDecode(file.data(), size, nullptr, &width, &height), 0);
    ASSERT_EQ(width, 23);
    ASSERT_EQ(height, 17);
    const int channels = GetParam().grey && file[0] == 'B' ? 1 : 3;
    GuardedBuffer image(static_cast<std::size_t>(23 * 17 * channels));
    EXPECT_EQ(ImageDecode(file.data(), size, image.data(), &width, &height), 1);
    expectPattern(image, channels, pattern, tolerance);
}

INSTANTIATE_TEST_SUITE_P(Pictures, Fixture,
                         testing::Values(FixtureCase{"pil_8.bmp", 0, true}, FixtureCase{"pil_24.bmp", 0},
                                         FixtureCase{"pil_32.bmp", 0}, FixtureCase{"magick_8.bmp", 0, true},
                                         FixtureCase{"magick_24.bmp", 0}, FixtureCase{"magick_32.bmp", 0},
                                         FixtureCase{"pil.png", 0}, FixtureCase{"pil_alpha.png", 0},
                                         FixtureCase{"pil_grey.png", 0, true}, FixtureCase{"magick.png", 0},
                                         FixtureCase{"pil_lossless.webp", 0}, FixtureCase{"pil.webp", 12},
                                         FixtureCase{"magick.webp", 12}, FixtureCase{"pil.jpg", 18},
                                         FixtureCase{"pil_progressive.jpg", 18}, FixtureCase{"pil_grey.jpg", 4, true},
                                         FixtureCase{"magick.jpg", 12}, FixtureCase{"camera_upright.jpg", 18},
                                         FixtureCase{"camera_turned_6.jpg", 12},
                                         FixtureCase{"camera_turned_8.jpg", 18}),
                         [](const auto& info) {
                             std::string name = info.param.file;
                             std::replace(name.begin(), name.end(), '.', '_');
                             return name;
                         });

// The programs themselves, where they are installed

// How to turn one file into another; the formats follow from the extensions. ppm is 8 bits, three channels.
struct Program {
    const char* name;
    // Tells whether it is here.
    const char* probe;
    // Followed by the two file names.
    const char* convert;
};

const Program imageMagick = {"ImageMagick", "convert-im6.q16 -version", "convert-im6.q16 -depth 8 -quality 100"};
const Program pillow = {"Pillow", "/usr/bin/python3 -c 'import PIL.Image'",
                        "/usr/bin/python3 -c 'import sys, PIL.Image as I; "
                        "I.open(sys.argv[1]).convert(\"RGB\").save(sys.argv[2], quality=100)'"};

bool run(const std::string& command) {
    return std::system((command + " >/dev/null 2>&1").c_str()) == 0;
}

class OtherProgram : public testing::TestWithParam<std::tuple<Program, std::string>> {
protected:
    void SetUp() override {
        program = std::get<0>(GetParam());
        if (!run(program.probe))
            GTEST_SKIP() << program.name << " is not installed: nothing to exchange files with";
        folder = fs::temp_directory_path() / ("veldan-files-" + std::to_string(getpid()));
        fs::create_directories(folder);
        file = folder / ("picture." + std::get<1>(GetParam()));
        // The pattern of a larger picture, so that lossy formats stay near to it.
        for (int y = 0; y < picture.height; ++y)
            for (int x = 0; x < picture.width; ++x)
                for (int c = 0; c < 3; ++c)
                    picture.pixels[picture.index(x, y, c)] = static_cast<unsigned char>(patternColour(x / 2, y / 2, c));
    }
    void TearDown() override {
        if (!folder.empty())
            fs::remove_all(folder);
    }
    bool convert(const fs::path& from, const fs::path& to) {
        return run(std::string(program.convert) + " " + from.string() + " " + to.string());
    }
    // Blue, green, red here; red, green, blue there.
    void writePpm(const fs::path& path) {
        std::ofstream out(path, std::ios::binary);
        out << "P6\n" << picture.width << " " << picture.height << "\n255\n";
        for (std::size_t i = 0; i < picture.size(); i += 3)
            for (const std::size_t c : {2U, 1U, 0U})
                out.put(static_cast<char>(picture.pixels[i + c]));
    }
    Bytes readPpm(const fs::path& path) {
        Bytes bytes = readFile(path);
        if (bytes.size() < picture.size())
            return {};
        bytes.erase(bytes.begin(), bytes.end() - static_cast<std::ptrdiff_t>(picture.size()));
        for (std::size_t i = 0; i < bytes.size(); i += 3)
            std::swap(bytes[i], bytes[i + 2]);
        return bytes;
    }
    // Two decoders of one lossy file may differ by a little, a picture and its lossy copy by more.
    int lossyTolerance(int tolerance) const {
        const std::string& format = std::get<1>(GetParam());
        return format == "bmp" || format == "png" ? 0 : tolerance;
    }
    static int difference(const Bytes& one, const Bytes& other) {
        int most = one.size() == other.size() ? 0 : 999;
        for (std::size_t i = 0; i < one.size() && most < 999; ++i)
            most = std::max(most, std::abs(one[i] - other[i]));
        return most;
    }

    Program program{};
    fs::path folder;
    fs::path file;
    TestImage picture{38, 30};
};

TEST_P(OtherProgram, WritesFilesThatWeRead) {
    writePpm(folder / "in.ppm");
    ASSERT_TRUE(convert(folder / "in.ppm", file));
    ASSERT_TRUE(convert(file, folder / "out.ppm"));
    const Bytes theirs = readPpm(folder / "out.ppm");
    ASSERT_EQ(theirs.size(), picture.size());

    int width = 0, height = 0;
    Bytes loaded(picture.size());
    ASSERT_EQ(ImageLoad(file.c_str(), 0, nullptr, &width, &height), 1);
    ASSERT_EQ(width, picture.width);
    ASSERT_EQ(height, picture.height);
    ImageLoad(file.c_str(), 0, loaded.data(), &width, &height);
    EXPECT_LE(difference(loaded, theirs), lossyTolerance(3));
    EXPECT_LE(difference(loaded, picture.pixels), lossyTolerance(24));

    // ImageMagick's own BMP files have the long header, which only ImageLoad follows.
    if (file.extension() == ".bmp" && program.name == imageMagick.name)
        return;
    Bytes encoded = readFile(file);
    Bytes decoded(picture.size());
    EXPECT_EQ(ImageDecode(encoded.data(), static_cast<int>(encoded.size()), decoded.data(), &width, &height), 1);
    EXPECT_EQ(decoded, loaded);
}

TEST_P(OtherProgram, ReadsFilesThatWeWrite) {
    const std::string format = "." + std::get<1>(GetParam());
    Bytes encoded(100000);
    int size = 0;
    ASSERT_EQ(
        ImageEncode2(picture.data(), picture.width, picture.height, 3, format.c_str(), 100, encoded.data(), &size), 1);
    ASSERT_GT(size, 0);
    std::ofstream(file, std::ios::binary).write(reinterpret_cast<const char*>(encoded.data()), size);
    ASSERT_TRUE(convert(file, folder / "encoded.ppm"));
    EXPECT_LE(difference(readPpm(folder / "encoded.ppm"), picture.pixels), lossyTolerance(24));

    ASSERT_EQ(ImageSave(file.c_str(), picture.data(), picture.width, picture.height, 3), 1);
    ASSERT_TRUE(convert(file, folder / "saved.ppm"));
    EXPECT_LE(difference(readPpm(folder / "saved.ppm"), picture.pixels), lossyTolerance(24));
}

INSTANTIATE_TEST_SUITE_P(Formats, OtherProgram,
                         testing::Combine(testing::Values(imageMagick, pillow),
                                          testing::Values("bmp", "jpg", "png", "webp")),
                         [](const auto& info) {
                             return std::string(std::get<0>(info.param).name) + "_" + std::get<1>(info.param);
                         });

// Saving and loading

TEST(ImageSave, LosslessFormatsComeBackFromDisk) {
    const fs::path folder = fs::temp_directory_path() / ("veldan-save-" + std::to_string(getpid()));
    fs::create_directories(folder);
    for (const char* name : {"a.png", "a.bmp", "a.PNG"})
        for (const int channels : {1, 3}) {
            const std::string path = folder / name;
            TestImage image = TestImage::noise(19, 13, channels);
            EXPECT_EQ(ImageSave(path.c_str(), image.data(), 19, 13, channels), 1);
            GuardedBuffer back(image.size());
            int width = 0, height = 0;
            EXPECT_EQ(ImageLoad(path.c_str(), channels == 1 ? 1 : 0, back.data(), &width, &height), 1);
            EXPECT_EQ(back.bytes(), image.pixels) << name;
        }
    fs::remove_all(folder);
}

TEST(ImageSave, DoesNotTellWhetherTheFileWasWritten) {
    TestImage image(4, 4);
    EXPECT_EQ(ImageSave("/nonexistent-folder/a.png", image.data(), 4, 4, 3), 1);
    EXPECT_THROW(ImageSave("a.unknown", image.data(), 4, 4, 3), std::exception);
}

TEST(ImageLoad, TellsWhatItCannotRead) {
    const std::string folder = VELDAN_TOOL_TEST_DATA;
    // A medical picture that breaks off behind its mark: the reader that OpenCV has for it would end the process. And
    // one of high dynamic range, whose reader would leave the file open.
    const std::string dicom = testing::TempDir() + "veldan-damaged-dicom";
    std::ofstream(dicom, std::ios::binary) << std::string(128, '\0') << "DICM\x02";
    const std::string radiance = testing::TempDir() + "veldan-damaged-radiance";
    std::ofstream(radiance, std::ios::binary) << "#?RADIANCE\x80";
    for (const std::string& path :
         {std::string("/nonexistent-folder/a.png"), std::string(), folder, folder + "/README.md", dicom, radiance}) {
        GuardedBuffer out(64);
        int width = -7, height = -7;
        EXPECT_EQ(ImageLoad(path.c_str(), 0, out.data(), &width, &height), -3) << path;
        EXPECT_EQ(width, -7);
        EXPECT_EQ(height, -7);
        EXPECT_TRUE(out.untouched());
    }
}

} // namespace
