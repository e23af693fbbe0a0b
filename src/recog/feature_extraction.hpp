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
using AlignFace = std::function<int(const cv::Mat& frame, const VDFACEINFOEX& face, cv::Mat& crop)>;

// Returns 0, or evaluationRefused with nothing written.
int extractFeatures(cv::dnn::Net& net, const std::string& layer, const AlignFace& align, unsigned char* image,
                    int width, int height, int faceNum, const VDFACEINFOEX* faces, float* feature);

} // namespace veldan

#endif
