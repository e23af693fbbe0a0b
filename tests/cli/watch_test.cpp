#include "photo_results.hpp"
#include "support/video.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/videoio.hpp>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <spawn.h>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

using testing::HasSubstr;
using Json = nlohmann::json;

std::vector<Json> linesOf(const std::string& output) {
    std::vector<Json> lines;
    std::istringstream stream(output);
    for (std::string line; std::getline(stream, line);)
        lines.push_back(Json::parse(line));
    return lines;
}

std::vector<cv::Mat> framesOf(const std::string& video) {
    std::vector<cv::Mat> frames;
    cv::VideoCapture capture(video);
    for (cv::Mat frame; capture.read(frame);)
        frames.push_back(frame.clone());
    return frames;
}

// A gallery with the person of one photo, and a video in which she meets somebody who is not enrolled.
class Watch : public testing::Test {
protected:
    void SetUp() override {
        const CommandResult result = runVeldan({"enroll", "--gallery", gallery, "Ann", bundled("astronaut.jpg")});
        ASSERT_EQ(result.exitCode, 0) << result.errors;
        frames = veldan_tests::meeting(VELDAN_PHOTOS);
    }

    std::string filmed(int times = 1) const {
        std::vector<cv::Mat> all;
        for (int i = 0; i < times; ++i)
            all.insert(all.end(), frames.begin(), frames.end());
        veldan_tests::writeVideo(video, all);
        return video;
    }

    // What happens in a video, such as "recognised 1": the event and the person.
    std::vector<std::string> storyOf(const std::vector<cv::Mat>& shown) const {
        veldan_tests::writeVideo(video, shown);
        const CommandResult result = runVeldan({"watch", "--gallery", gallery, video, "--json"});
        EXPECT_EQ(result.exitCode, 0) << result.errors;
        std::vector<std::string> story;
        for (const Json& line : linesOf(result.output))
            if (line.contains("person"))
                story.push_back(line.at("event").get<std::string>() + " " + line.at("person").dump());
        return story;
    }

    ScratchFolder folder;
    const std::string gallery = (folder / "gallery.db").string();
    const std::string video = (folder / "video.avi").string();
    std::vector<cv::Mat> frames;
};

TEST_F(Watch, ReportsEverybodyOnce) {
    const CommandResult result = runVeldan({"watch", "--gallery", gallery, filmed(), "--json"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    EXPECT_EQ(result.errors, "");
    std::vector<Json> lines = linesOf(result.output);
    ASSERT_FALSE(lines.empty());
    const Json summary = lines.back();
    lines.pop_back();
    // Ann comes in first; the stranger passes behind her, comes out on the other side and leaves before her.
    std::vector<std::string> story;
    for (const Json& line : lines) {
        story.push_back(line.at("event").get<std::string>() + " " + line.at("person").dump());
        const int frame = line.at("frame");
        EXPECT_NEAR(line.at("seconds").get<double>(), (frame - 1) / 25.0, 1e-6);
    }
    EXPECT_THAT(story,
                testing::ElementsAre("appeared 1", "recognised 1", "appeared 2", "stranger 2", "left 2", "left 1"));
    EXPECT_EQ(lines[1].at("name"), "Ann");
    EXPECT_GE(lines[1].at("similarity"), 0.70);
    // He is in view in frames 33 to 70 or so, Ann in up to 96.
    EXPECT_NEAR(lines[4].at("frame").get<int>(), 68, 8);
    EXPECT_NEAR(lines[5].at("frame").get<int>(), 93, 8);
    EXPECT_EQ(summary, Json({{"event", "summary"},
                             {"frames", 130},
                             {"seconds", 129 / 25.0},
                             {"dropped", 0},
                             {"people", 2},
                             {"recognised", {"Ann"}},
                             {"strangers", 1}}));
}

TEST_F(Watch, TellsLivenessWhenAsked) {
    const CommandResult result = runVeldan({"watch", "--gallery", gallery, filmed(), "--json", "--liveness"});
    ASSERT_EQ(result.exitCode, 0) << result.errors;
    for (const Json& line : linesOf(result.output)) {
        if (!line.contains("person"))
            continue;
        EXPECT_THAT(line.at("liveness").get<int>(), testing::AllOf(testing::Ge(0), testing::Le(100)));
        EXPECT_EQ(line.at("live"), line.at("liveness").get<int>() >= 50);
    }
}

// From one frame to the next somebody else is in view, in another place: nothing of Ann may pass on to him.
TEST_F(Watch, ACutMakesNobodyKnown) {
    cv::Mat alone = frames[38].clone();
    alone.colRange(0, 312).setTo(frames[0].at<cv::Vec3b>(0, 0));
    std::vector<cv::Mat> shown(5, frames[27]);
    shown.insert(shown.end(), 12, alone);
    EXPECT_THAT(storyOf(shown),
                testing::ElementsAre("appeared 1", "recognised 1", "appeared 2", "stranger 2", "left 1", "left 2"));
}

TEST_F(Watch, KeepsApartWhoIsThereFromTheFirstFrameOn) {
    EXPECT_THAT(
        storyOf(std::vector<cv::Mat>(12, frames[40])),
        testing::UnorderedElementsAre("appeared 1", "recognised 1", "appeared 2", "stranger 2", "left 1", "left 2"));
}

TEST_F(Watch, TextTellsTheSameAndFramesEndsIt) {
    const CommandResult result = runVeldan({"watch", "--gallery", gallery, filmed(), "--frames", "30"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_THAT(result.output, HasSubstr("person 1 appeared\n"));
    EXPECT_THAT(result.output, HasSubstr("person 1 recognised: Ann  (similarity 0."));
    EXPECT_THAT(result.output, HasSubstr("frame 30  1.16 s  person 1 left\n"));
    EXPECT_THAT(result.output, HasSubstr("30 frames, 1 person; recognised: Ann; strangers: 0\n"));
}

TEST_F(Watch, RecordsTheFramesWithMarksOnTheFaces) {
    const std::string record = (folder / "record.avi").string();
    const CommandResult result = runVeldan({"watch", "--gallery", gallery, filmed(), "--record", record});
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    const std::vector<cv::Mat> before = framesOf(video);
    const std::vector<cv::Mat> after = framesOf(record);
    ASSERT_EQ(after.size(), before.size());
    // Compressed twice, a picture without marks hardly changes; frame 25 shows Ann in the middle.
    EXPECT_LT(cv::norm(before.back(), after.back(), cv::NORM_INF), 16);
    EXPECT_GT(cv::norm(before[25], after[25], cv::NORM_INF), 100);
}

// A file may not grow beyond 100 blocks of 512 bytes, as if the disk were full then. Events are told all the same.
TEST_F(Watch, SaysWhenARecordingIsNotComplete) {
    filmed();
    for (const char* name : {"record.avi", "record.mp4"}) {
        const std::string record = (folder / name).string();
        const CommandResult result =
            runProgram("/bin/sh", {"-c", "trap '' XFSZ; ulimit -f 100; exec \"$@\"", "sh", VELDAN_COMMAND, "watch",
                                   "--gallery", gallery, video, "--record", record, "--json"});
        EXPECT_EQ(result.exitCode, 7);
        EXPECT_THAT(result.errors, HasSubstr("the recording " + record + " is not complete: the file would become"));
        const Json summary = linesOf(result.output).back();
        EXPECT_EQ(summary.at("error").at("name"), "not_written");
        EXPECT_FALSE(summary.contains("record"));
        EXPECT_EQ(summary.at("recognised"), Json({"Ann"}));
    }
}

TEST_F(Watch, EndsInOrderOnCtrlC) {
    const std::string record = (folder / "record.avi").string();
    const std::string output = (folder / "pipe").string();
    std::vector<std::string> words = {VELDAN_COMMAND, "watch",  "--gallery", gallery,
                                      filmed(5),      "--json", "--record",  record};
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, ends[0]);
    pid_t process = 0;
    ASSERT_EQ(posix_spawn(&process, pointers[0], &actions, nullptr, pointers.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[1]);

    std::string text;
    bool interrupted = false;
    char part[4096];
    for (ssize_t length = 0; (length = read(ends[0], part, sizeof(part))) > 0;) {
        text.append(part, static_cast<std::size_t>(length));
        if (!interrupted)
            kill(process, SIGINT);
        interrupted = true;
    }
    close(ends[0]);
    int status = 0;
    waitpid(process, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    const Json summary = linesOf(text).back();
    EXPECT_EQ(summary.at("event"), "summary");
    EXPECT_LT(summary.at("frames"), 5 * frames.size());
    EXPECT_EQ(framesOf(record).size(), summary.at("frames"));
}

TEST_F(Watch, RefusesWhatItCannotWatch) {
    // Where OpenCV cannot open something, its back ends lose memory, which is not what this test is about.
    const char* const options = std::getenv("ASAN_OPTIONS");
    setenv("ASAN_OPTIONS", (std::string(options != nullptr ? options : "") + ":detect_leaks=0").c_str(), 1);
    const std::string text = (folder / "text.avi").string();
    const std::string small = (folder / "small.avi").string();
    std::ofstream(text) << "no video at all";
    cv::VideoWriter(small, cv::CAP_OPENCV_MJPEG, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 25.0, cv::Size(96, 96))
        .write(cv::Mat(96, 96, CV_8UC3, cv::Scalar(1, 2, 3)));
    filmed();
    struct Refusal {
        std::vector<std::string> arguments;
        int exitCode;
        std::string message;
    };
    const std::vector<Refusal> refusals = {
        {{gallery, "/no/such/video"}, 3, "/no/such/video: no such file"},
        {{gallery, text}, 4, text + ": not a video"},
        {{gallery, "99"}, 4, "no camera 99"},
        {{gallery, small}, 5, "too small"},
        {{"/no/such/gallery", video}, 3, "/no/such/gallery"},
        {{text, video}, 10, text},
        {{gallery, video, "--record", (folder / "record.xyz").string()}, 2, "--record"},
        {{gallery, video, "--record", video}, 7, "overwrite"},
        {{gallery, video, "--record", (folder / "missing/record.avi").string()}, 7, "cannot be written"},
        {{gallery, video, "--threshold", "101"}, 2, "--threshold"},
    };
    for (const Refusal& refusal : refusals) {
        std::vector<std::string> arguments = {"watch", "--gallery"};
        arguments.insert(arguments.end(), refusal.arguments.begin(), refusal.arguments.end());
        const CommandResult result = runVeldan(arguments);
        EXPECT_EQ(result.exitCode, refusal.exitCode) << refusal.message;
        EXPECT_THAT(result.errors, HasSubstr(refusal.message));
    }
    EXPECT_EQ(framesOf(video).size(), frames.size());
}

} // namespace
