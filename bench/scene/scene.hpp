#ifndef VELDAN_BENCH_SCENE_HPP
#define VELDAN_BENCH_SCENE_HPP

#include <opencv2/core.hpp>

#include <string>
#include <vector>

// Frames of known content, made of the bundled photos. The same arguments always give the same frame. A photo that
// cannot be read throws std::runtime_error.

// The heads of three different people, squares of 180 pixels.
std::vector<cv::Mat> portraitHeads(const std::string& photoFolder);

// Texture of all sizes, so that the detector has something to reject.
cv::Mat texture(cv::Size size);

// A frame with so many faces, set in rows with texture between them.
cv::Mat composeFrame(const std::string& photoFolder, cv::Size size, int faces);

#endif
