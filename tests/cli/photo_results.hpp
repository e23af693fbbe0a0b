#ifndef VELDAN_TESTS_CLI_PHOTO_RESULTS_HPP
#define VELDAN_TESTS_CLI_PHOTO_RESULTS_HPP

#include "run_veldan.hpp"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include <string>
#include <vector>

inline std::string bundled(const std::string& name) {
    return std::string(VELDAN_PHOTOS) + "/" + name;
}

/** What the command prints as JSON about each photo. */
inline nlohmann::json photosOf(const std::string& command, const std::vector<std::string>& arguments) {
    std::vector<std::string> words = {command, "--json"};
    words.insert(words.end(), arguments.begin(), arguments.end());
    const CommandResult result = runVeldan(words);
    EXPECT_EQ(result.exitCode, 0) << result.errors;
    return nlohmann::json::parse(result.output).at("photos");
}

inline cv::Rect boxOf(const nlohmann::json& face) {
    const nlohmann::json& box = face.at("box");
    return {box.at("x"), box.at("y"), box.at("width"), box.at("height")};
}

#endif
