#include "detect/workspace.hpp"
#include "engine/network_loader.hpp"

#include <veldan/mtcnn.hpp>
#include <veldan/result_codes.h>

#include <opencv2/dnn.hpp>

#include <utility>
#include <vector>

namespace veldan {

namespace {

const std::vector<cv::String> refinementOutputs = {"cls_fc/Softmax", "bbox_fc/MatMul"};
const std::vector<cv::String> outputOutputs = {"cls_fc/Softmax", "bbox_fc/MatMul", "landmark_fc/MatMul"};

// Sizes of a network's passes besides that of a crop for each thread. The larger a pass, the less the calls between the
// layers count; beyond these sizes the layers no longer fit into the processor's second cache. A crop of the output
// network is work enough by itself.
const std::vector<int> refinementPasses = {32, 4};
const std::vector<int> outputPasses = {};

// Reads as many copies of a refinement network as it has sizes of passes.
int loadPasses(const std::vector<unsigned char>& bytes, const NetworkForm& form, const std::vector<int>& fixedSizes,
               const std::vector<cv::String>& outputNames, BatchPasses& passes, cv::dnn::Net& net) {
    std::vector<cv::dnn::Net> copies(fixedSizes.size() + 1);
    int error = readTensorflowNet(bytes, form, copies[0]);
    for (std::size_t i = 1; error == VD_OK && i < copies.size(); ++i)
        error = readTensorflowNet(bytes, copies[i]);
    if (error != VD_OK)
        return error;
    try {
        passes.load(copies, fixedSizes, form.size.width, outputNames);
    } catch (const cv::Exception&) {
        return VD_ERR_NETWORK; // a network, but not one for batches of crops
    }
    net = copies[0];
    return VD_OK;
}

} // namespace

const std::vector<cv::String> proposalOutputs = {"conv5_1/Conv2D", "conv5_2/Conv2D"};

int DetectorAccess::loadProposalNet(MTCNN& detector, const std::vector<unsigned char>& bytes) {
    // Any size would do: the levels' sizes come with the first frame.
    const NetworkForm form{"input_image", 3, {48, 48}, {{proposalOutputs[0], 8}, {proposalOutputs[1], 16}}};
    decltype(detector.workspace->levels) levels;
    for (SteadyNetwork& level : levels) {
        const bool isFirst = &level == levels.data();
        const int error = isFirst ? readTensorflowNet(bytes, form, level.net) : readTensorflowNet(bytes, level.net);
        if (error != VD_OK)
            return error;
    }
    detector.pnet = levels[0].net;
    detector.workspace->levels = std::move(levels);
    return VD_OK;
}

int DetectorAccess::loadRefinementNet(MTCNN& detector, const std::vector<unsigned char>& bytes) {
    return loadPasses(bytes, {"input_image", 3, {24, 24}, {{refinementOutputs[0], 2}, {refinementOutputs[1], 4}}},
                      refinementPasses, refinementOutputs, detector.workspace->refinement, detector.rnet);
}

int DetectorAccess::loadOutputNet(MTCNN& detector, const std::vector<unsigned char>& bytes) {
    return loadPasses(
        bytes, {"input_image", 3, {48, 48}, {{outputOutputs[0], 2}, {outputOutputs[1], 4}, {outputOutputs[2], 10}}},
        outputPasses, outputOutputs, detector.workspace->output, detector.onet);
}

} // namespace veldan
