#include "tool/test_image.hpp"

#include <veldan/show_window.hpp>

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <signal.h>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

// Qt's threads lose memory of their own, which LeakSanitizer would hold against this test.
extern "C" const char* __lsan_default_suppressions();  // NOLINT(bugprone-reserved-identifier)
extern "C" const char* __lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "leak:libdbus-1.so\nleak:libfontconfig.so\n";
}

namespace {

namespace fs = std::filesystem;
using veldan_tests::TestImage;

void clearDisplays() {
    for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM", "XAUTHORITY"})
        unsetenv(name);
}

void showAndHide() {
    TestImage image = TestImage::noise(40, 30);
    char name[] = "preview";
    for (int i = 0; i < 3; ++i)
        WinShow(name, image.data(), 40, 30, 3);
    WinHide(name);
    WinHide(name);
}

// Each in a process of its own: what a toolkit does without a display is to end the process.
class WithoutDisplay : public testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

    static void survives(const char* variable, const char* value) {
        EXPECT_EXIT(
            {
                clearDisplays();
                if (variable != nullptr)
                    setenv(variable, value, 1);
                showAndHide();
                std::_Exit(0);
            },
            testing::ExitedWithCode(0), "")
            << (variable == nullptr ? "" : variable);
    }
};

TEST_F(WithoutDisplay, NothingIsShown) {
    survives(nullptr, nullptr);
}
TEST_F(WithoutDisplay, AnXServerThatIsGoneIsNoDisplay) {
    survives("DISPLAY", ":31337");
}
TEST_F(WithoutDisplay, ANameThatIsNoDisplayIsNone) {
    survives("DISPLAY", "nonsense");
}
TEST_F(WithoutDisplay, AWaylandServerThatIsGoneIsNoDisplay) {
    survives("QT_QPA_PLATFORM", "wayland");
}

TEST(Windows, NullIsAnswered) {
    unsigned char pixel[3] = {};
    char name[] = "preview";
    WinShow(nullptr, pixel, 1, 1, 3);
    WinShow(name, nullptr, 1, 1, 3);
    WinHide(nullptr);
}

// A virtual X server whose screen is a file that the test reads.
class VirtualScreen {
public:
    VirtualScreen() : folder_(fs::temp_directory_path() / ("veldan-screen-" + std::to_string(getpid()))) {
        fs::create_directories(folder_);
        int ready[2];
        if (pipe(ready) != 0)
            return;
        // The server picks a free number and tells it through the pipe.
        const std::string readyEnd = std::to_string(ready[1]), folder = folder_;
        std::array<const char*, 11> arguments = {"Xvfb",      "-displayfd",  readyEnd.c_str(), "-screen",
                                                 "0",         "2400x400x24", "-fbdir",         folder.c_str(),
                                                 "-nolisten", "tcp",         nullptr};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addclose(&actions, ready[0]);
        // Should this process crash, the server outlives it, and must not keep those waiting who read its output.
        for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
            posix_spawn_file_actions_addopen(&actions, stream, "/dev/null", O_WRONLY, 0);
        const bool started =
            posix_spawnp(&process_, "Xvfb", &actions, nullptr, const_cast<char**>(arguments.data()), environ) == 0;
        posix_spawn_file_actions_destroy(&actions);
        close(ready[1]);
        if (started) {
            char digit = 0;
            while (read(ready[0], &digit, 1) == 1 && digit != '\n')
                number_ += digit;
        } else {
            process_ = 0;
        }
        close(ready[0]);
    }
    VirtualScreen(const VirtualScreen&) = delete;
    VirtualScreen& operator=(const VirtualScreen&) = delete;
    ~VirtualScreen() {
        if (process_ > 0) {
            kill(process_, SIGTERM);
            waitpid(process_, nullptr, 0);
        }
        std::error_code ignored;
        fs::remove_all(folder_, ignored);
    }

    bool running() const { return !number_.empty(); }
    std::string display() const { return ":" + number_; }

    // Blue, green, red.
    cv::Mat screenshot() const {
        std::ifstream in(folder_ / "Xvfb_screen0", std::ios::binary);
        const std::vector<unsigned char> file{std::istreambuf_iterator<char>(in), {}};
        // X window dump: a header of big-endian words, a colour map, then the rows.
        const auto word = [&](std::size_t i) {
            const unsigned char* p = &file.at(i * 4);
            return static_cast<std::size_t>(p[0] << 24 | p[1] << 16 | p[2] << 8 | p[3]);
        };
        const std::size_t begin = word(0) + word(19) * 12, width = word(4), height = word(5), stride = word(12);
        cv::Mat picture(static_cast<int>(height), static_cast<int>(width), CV_8UC3);
        for (std::size_t y = 0; y < height; ++y)
            for (std::size_t x = 0; x < width; ++x)
                for (std::size_t c = 0; c < 3; ++c)
                    picture.ptr(static_cast<int>(y))[x * 3 + c] = file.at(begin + y * stride + x * 4 + c);
        return picture;
    }

private:
    fs::path folder_;
    pid_t process_ = 0;
    std::string number_;
};

// Where the image stands on the screen, pixel by pixel.
std::optional<cv::Point> find(const cv::Mat& screen, const cv::Mat& image) {
    for (int y = 0; y + image.rows <= screen.rows; ++y)
        for (int x = 0; x + image.cols <= screen.cols; ++x) {
            int row = 0;
            const auto bytes = static_cast<std::size_t>(image.cols) * 3;
            while (row < image.rows && std::memcmp(screen.ptr(y + row) + x * 3, image.ptr(row), bytes) == 0)
                ++row;
            if (row == image.rows)
                return cv::Point(x, y);
        }
    return std::nullopt;
}

TEST(Windows, ShowTheImageUntilTheyAreHidden) {
    VirtualScreen screen;
    if (!screen.running())
        GTEST_SKIP() << "Xvfb is not installed: no screen to show a window on";
    clearDisplays();
    setenv("DISPLAY", screen.display().c_str(), 1);

    char colourName[] = "colour", greyName[] = "grey";
    // The screen is wide: Qt puts a tool bar with a row of texts above the image, and the image in the middle below.
    // The second window is less high, so that it does not cover all of the first one; Qt stretches what is lower still.
    TestImage colour = TestImage::noise(160, 160, 3, 1), grey = TestImage::noise(160, 80, 1, 2);
    const cv::Mat colourView(160, 160, CV_8UC3, colour.data()), lowerPart = colourView.rowRange(130, 160);
    cv::Mat greyView;
    cv::cvtColor(cv::Mat(80, 160, CV_8UC1, grey.data()), greyView, cv::COLOR_GRAY2BGR);

    // Every call lets the window system run for a millisecond; how many it needs is up to the machine.
    const auto becomes = [&](const char* what, const auto& show, const auto& reached) {
        for (int i = 0; i < 2000; ++i) {
            show();
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
            if (i % 10 == 9 && reached(screen.screenshot()))
                return;
        }
        ADD_FAILURE() << what;
    };
    const auto showColour = [&] { WinShow(colourName, colour.data(), 160, 160, 3); };
    const auto showGrey = [&] { WinShow(greyName, grey.data(), 160, 80, 1); };

    ASSERT_FALSE(find(screen.screenshot(), colourView));
    becomes("a colour image, blue first", showColour,
            [&](const cv::Mat& s) { return find(s, colourView).has_value(); });
    becomes("a grey image in a second window", showGrey,
            [&](const cv::Mat& s) { return find(s, greyView).has_value() && find(s, lowerPart).has_value(); });
    WinHide(colourName);
    becomes("the first window gone", showGrey,
            [&](const cv::Mat& s) { return find(s, greyView) && !find(s, lowerPart); });
    WinHide(greyName);
}

} // namespace
