#ifndef VELDAN_DETECT_WORKSPACE_HPP
#define VELDAN_DETECT_WORKSPACE_HPP

#include "detect/batch_passes.hpp"
#include "detect/box_suppression.hpp"
#include "detect/face_crop.hpp"
#include "detect/stage_times.hpp"

#include <veldan/mtcnn.hpp>

#include <opencv2/core.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <vector>

namespace veldan {

// What a detector keeps from frame to frame besides the members of its class: buffers, and further copies of the
// networks, so that each sees inputs of one size only.
struct DetectorWorkspace {
    // One for each pyramid level that is scored; the first is MTCNN::pnet. Common image sizes have four such levels,
    // those of 4,000 pixels five. What lies beyond shares the last one.
    std::array<SteadyNetwork, 5> levels;
    SteadyNetwork& level(std::size_t position) { return levels[std::min(position, levels.size() - 1)]; }

    BatchPasses refinement; // the first copy is MTCNN::rnet
    BatchPasses output;     // and here MTCNN::onet

    cv::Mat levelImage;
    std::vector<float> blob;
    std::vector<FaceInfo> batch;
    std::vector<const FaceInfo*> cropped;
    BoxSuppression suppression;
    FaceCropper cropper;
    StageTimes* times = nullptr; // to be filled, when somebody measures

    // A network's input blob over the memory above, which only grows: neither freed nor cleared between frames.
    cv::Mat blobFor(int images, cv::Size size) {
        const int shape[] = {images, 3, size.height, size.width};
        const std::size_t samples = static_cast<std::size_t>(images) * 3 * static_cast<std::size_t>(size.height) *
                                    static_cast<std::size_t>(size.width);
        if (blob.size() < samples)
            blob.resize(samples);
        return {4, shape, CV_32F, blob.data()};
    }
};

// What the stages work on.
inline bool isImage(const cv::Mat& img) {
    return !img.empty() && img.dims == 2 && img.type() == CV_8UC3;
}

// The proposal network's outputs: class map and regression map.
extern const std::vector<cv::String> proposalOutputs;

// A detector with networks other than the embedded ones, for tests and benchmarks.
struct DetectorAccess {
    static int loadProposalNet(MTCNN& detector, const std::vector<unsigned char>& bytes);
    static int loadRefinementNet(MTCNN& detector, const std::vector<unsigned char>& bytes);
    static int loadOutputNet(MTCNN& detector, const std::vector<unsigned char>& bytes);
    static const std::vector<FaceInfo>& candidates(const MTCNN& detector) { return detector.candidateBoxes; }
    static DetectorWorkspace& workspace(const MTCNN& detector) { return *detector.workspace; }
};

} // namespace veldan

#endif
