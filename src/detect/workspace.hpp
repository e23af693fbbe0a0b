#ifndef VELDAN_DETECT_WORKSPACE_HPP
#define VELDAN_DETECT_WORKSPACE_HPP

#include "detect/box_suppression.hpp"
#include "detect/face_crop.hpp"
#include "detect/stage_times.hpp"

#include <veldan/mtcnn.hpp>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include <cstddef>
#include <vector>

namespace veldan {

// What a detector keeps from frame to frame besides the members of its class: buffers, and further proposal networks.
struct DetectorWorkspace {
    // A network allocates its layers anew whenever its input changes size, as it does from one pyramid level to the
    // next. So each level that is scored has a network of its own: the first MTCNN::pnet, the others these, made from
    // the same bytes when a frame first needs them.
    std::vector<unsigned char> proposalNetwork;
    std::vector<cv::dnn::Net> levelNets;

    // Common image sizes have three levels after the first. What lies beyond the limit shares the last network.
    static constexpr std::size_t maxLevelNets = 4;
    cv::dnn::Net& levelNet(std::size_t index);

    cv::Mat level;
    std::vector<float> blob;
    std::vector<cv::Mat> outputs;
    std::vector<FaceInfo> batch;
    BoxSuppression suppression;
    FaceCropper cropper;
    StageTimes* times = nullptr; // to be filled, when somebody measures
};

// A detector with networks other than the embedded ones, for tests and benchmarks.
struct DetectorAccess {
    static int loadProposalNet(MTCNN& detector, std::vector<unsigned char> bytes);
    static int loadRefinementNet(MTCNN& detector, const std::vector<unsigned char>& bytes);
    static int loadOutputNet(MTCNN& detector, const std::vector<unsigned char>& bytes);
    static const std::vector<FaceInfo>& candidates(const MTCNN& detector) { return detector.candidateBoxes; }
    static DetectorWorkspace& workspace(const MTCNN& detector) { return *detector.workspace; }
};

} // namespace veldan

#endif
