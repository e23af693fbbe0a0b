#ifndef VELDAN_RECOG_FEATURE_EXTRACTION_HPP
#define VELDAN_RECOG_FEATURE_EXTRACTION_HPP

#include "engine/network_loader.hpp"
#include "recog/template_layout.hpp"

#include <veldan/face_record.h>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include <functional>
#include <string>

namespace veldan {

// What both recognizers do with each face: align it into a crop, ask the network, write 128 floats.

// What either network is shown, and gives.
NetworkForm recognizerForm(const std::string& outputLayer);

// How a recognizer makes its crop of 112 x 112: returns 0, or the code that the extraction then ends with. The crop is
// black when it is called.
using AlignFace = std::function<int(const VDFACEINFOEX& face, cv::Mat& crop)>;

int extractFeatures(cv::dnn::Net& net, const std::string& layer, const AlignFace& align, int faceNum,
                    const VDFACEINFOEX* faces, float* feature);

// The first Count key points from `first` on, as alignment takes them: x0, y0, x1, y1, ...
template <int Count>
struct AlignmentPoints {
    AlignmentPoints(const VDFACEINFOEX& face, int first) {
        for (int k = 0; k < Count; ++k) {
            values[2 * k] = static_cast<float>(face.keyPointX[first + k]);
            values[2 * k + 1] = static_cast<float>(face.keyPointY[first + k]);
        }
    }

    float values[2 * Count];
};

} // namespace veldan

#endif
