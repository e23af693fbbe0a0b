#include "scene.hpp"

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace {

// Photos of one person each, with a square around the head.
struct Portrait {
    const char* file;
    cv::Rect square;
};
const Portrait portraits[] = {
    {"astronaut.jpg", {137, 26, 180, 180}},
    {"first-bare.webp", {80, 187, 180, 180}},
    {"second-bare.webp", {65, 129, 180, 180}},
};

cv::Mat readPortrait(const std::string& folder, const Portrait& portrait) {
    const std::string path = folder + "/" + portrait.file;
    cv::Mat photo = cv::imread(path);
    if (photo.empty())
        throw std::runtime_error(path + " cannot be read; --photos=DIR says where the bundled photos are");
    return photo;
}

} // namespace

std::vector<cv::Mat> portraitHeads(const std::string& photoFolder) {
    std::vector<cv::Mat> heads;
    for (const Portrait& portrait : portraits)
        heads.push_back(readPortrait(photoFolder, portrait)(portrait.square));
    return heads;
}

cv::Mat texture(cv::Size size) {
    cv::RNG random(17);
    cv::Mat sum = cv::Mat::zeros(size, CV_32FC3);
    for (int cell = 8; cell <= 256; cell *= 2) {
        cv::Mat coarse(size.height / cell + 2, size.width / cell + 2, CV_32FC3);
        random.fill(coarse, cv::RNG::UNIFORM, -1, 1);
        cv::Mat fine;
        cv::resize(coarse, fine, size, 0, 0, cv::INTER_CUBIC);
        sum += fine * std::sqrt(cell);
    }
    cv::Mat result;
    cv::normalize(sum, sum, 0, 255, cv::NORM_MINMAX);
    sum.convertTo(result, CV_8UC3);
    return result;
}

cv::Mat composeFrame(const std::string& photoFolder, cv::Size size, int faces) {
    const std::vector<cv::Mat> heads =
        faces == 1 ? std::vector<cv::Mat>{readPortrait(photoFolder, portraits[0])} : portraitHeads(photoFolder);
    cv::Mat frame = texture(size);
    const int columns = static_cast<int>(std::ceil(std::sqrt(faces * size.aspectRatio())));
    const int rows = (faces + columns - 1) / columns;
    const int side = std::min(size.width / columns, size.height / rows);
    for (int i = 0; i < faces; ++i) {
        const cv::Rect place((2 * (i % columns) + 1) * size.width / (2 * columns) - side / 2,
                             (2 * (i / columns) + 1) * size.height / (2 * rows) - side / 2, side, side);
        cv::Mat head;
        cv::resize(heads[static_cast<std::size_t>(i) % heads.size()], head, place.size(), 0, 0, cv::INTER_AREA);
        head.copyTo(frame(place));
    }
    return frame;
}
