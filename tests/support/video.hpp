#ifndef VELDAN_TESTS_SUPPORT_VIDEO_HPP
#define VELDAN_TESTS_SUPPORT_VIDEO_HPP

#include <opencv2/core.hpp>

#include <string>
#include <vector>

namespace veldan_tests {

// Two people in front of a grey wall: the astronaut of the bundled photos and the person of second-bare.webp. She comes
// in from the left and nearer (the camera zooms); he comes in from the right, passes behind her and leaves on the left;
// then she leaves on the right, and the last frames are empty. 130 frames of 480 x 360, always the same.
std::vector<cv::Mat> meeting(const std::string& photos);

// Writes Motion JPEG at 25 frames a second.
void writeVideo(const std::string& path, const std::vector<cv::Mat>& frames);

} // namespace veldan_tests

#endif
