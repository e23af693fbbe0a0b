#ifndef VELDAN_TESTS_SUPPORT_FRAMES_HPP
#define VELDAN_TESTS_SUPPORT_FRAMES_HPP

#include <gtest/gtest.h>
#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

namespace veldan_tests {

// Colour noise, smooth enough that shifting it by a pixel shows and that resizing does not average it away.
inline cv::Mat noiseFrame(int width, int height, unsigned seed = 3, int kernel = 5) {
    cv::Mat image(height, width, CV_8UC3);
    cv::RNG random(seed);
    random.fill(image, cv::RNG::UNIFORM, 0, 256);
    cv::GaussianBlur(image, image, cv::Size(kernel, kernel), 0);
    cv::normalize(image, image, 0, 255, cv::NORM_MINMAX);
    return image;
}

// A region of an image pixel after pixel, black outside of the image.
inline cv::Mat plainRegion(const cv::Mat& image, const cv::Rect& region) {
    cv::Mat result = cv::Mat::zeros(region.size(), CV_8UC3);
    for (int y = 0; y < image.rows; ++y)
        for (int x = 0; x < image.cols; ++x)
            if (region.contains({x, y}))
                result.at<cv::Vec3b>(cv::Point(x, y) - region.tl()) = image.at<cv::Vec3b>(y, x);
    return result;
}

inline cv::Mat plainResize(const cv::Mat& image, int side) {
    cv::Mat result;
    cv::resize(image, result, cv::Size(side, side), 0, 0, cv::INTER_LINEAR);
    return result;
}

// A copy of an image whose last byte is the last one that can be read: reading on, even inside of OpenCV, which
// sanitizers do not see into, ends the program.
class FrameAtTheEnd {
public:
    explicit FrameAtTheEnd(const cv::Mat& image) {
        const std::size_t bytes = image.total() * image.elemSize();
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        readable_ = (bytes + page - 1) / page * page;
        mapped_ = readable_ + page;
        memory_ = static_cast<unsigned char*>(
            mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        data_ = memory_ + readable_ - bytes;
        std::memcpy(data_, image.data, bytes);
        EXPECT_EQ(mprotect(memory_ + readable_, page, PROT_NONE), 0);
    }
    FrameAtTheEnd(const FrameAtTheEnd&) = delete;
    FrameAtTheEnd& operator=(const FrameAtTheEnd&) = delete;
    ~FrameAtTheEnd() { munmap(memory_, mapped_); }

    unsigned char* data() { return data_; }

private:
    std::size_t readable_;
    std::size_t mapped_;
    unsigned char* memory_;
    unsigned char* data_;
};

} // namespace veldan_tests

#endif
