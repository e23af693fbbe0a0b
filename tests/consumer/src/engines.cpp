// Uses the detector without an instance.

#include <veldan/mtcnn.hpp>

int main() {
    MTCNN detector;
    if (detector.mtcnnInitAlg(nullptr) != 0)
        return 1;
    const cv::Mat image(150, 200, CV_8UC3, cv::Scalar(128, 128, 128));
    const float thresholds[] = {0.6F, 0.6F, 0.7F};
    return detector.Detect_mtcnn(image, 45, thresholds, 0.7937F, 3).empty() ? 0 : 1;
}
