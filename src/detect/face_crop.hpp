#ifndef VELDAN_DETECT_FACE_CROP_HPP
#define VELDAN_DETECT_FACE_CROP_HPP

#include <veldan/mtcnn.hpp>

#include <opencv2/core.hpp>

#include <vector>

namespace veldan {

// Writes a three-channel 8-bit image as three planes of (pixel - mean) x scale, rows x columns floats each: the layout
// of one image in a network's input blob. No step rounds with a scale that is a power of two, so the values are those
// of cv::dnn::blobFromImage.
void writePlanes(const cv::Mat& image, float mean, float scale, float* planes);

// Makes the refinement networks' input. Keeps its scratch from call to call.
class FaceCropper {
public:
    // Whether the box has a crop (see MTCNN::NextStage()).
    static bool hasCrop(const cv::Mat& image, const FaceInfo& box);

    // Cuts the box, which must have a crop, out of the image, black where it leaves the image, and resizes it. A box
    // inside of the image is not copied: OpenCV resizes from the region itself, with the same result. A squared box of
    // side s gives s - 1 pixels, as the networks were trained. The crop is valid until the next call.
    const cv::Mat& crop(const cv::Mat& image, const FaceInfo& box, cv::Size size);

private:
    std::vector<unsigned char> black; // memory of a crop that leaves the image
    cv::Mat resized;
};

} // namespace veldan

#endif
