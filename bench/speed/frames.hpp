#ifndef VELDAN_BENCH_FRAMES_HPP
#define VELDAN_BENCH_FRAMES_HPP

#include <opencv2/core.hpp>

#include <string>

// A frame with so many faces, cut out of the bundled photos and set in rows. Between them lies texture of all sizes, so
// that the detector has something to reject. The same arguments always give the same frame.
cv::Mat composeFrame(const std::string& photoFolder, cv::Size size, int faces);

#endif
