#ifndef VELDAN_DETECT_BATCH_PASSES_HPP
#define VELDAN_DETECT_BATCH_PASSES_HPP

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include <vector>

namespace veldan {

// A network and what came out of its last pass. OpenCV allocates the layers anew whenever the input changes size; as
// long as it stays, network and outputs keep their memory.
struct SteadyNetwork {
    cv::dnn::Net net;
    std::vector<cv::Mat> outputs;

    void run(const cv::Mat& blob, const std::vector<cv::String>& outputNames);
};

// A refinement network that takes batches of any size.
//
// The number of crops is another one in nearly every frame. So a batch goes through in passes of a few sizes, with a
// copy of the network for each.
//
// A crop gets, bit for bit, what one pass of the whole batch gives it: no layer mixes crops, and OpenCV hands its
// threads whole crops, which are summed up in the same order whatever lies beside them. There is one exception. Of a
// batch of at most half as many crops as threads, each crop is cut into pieces, and the order of summation changes with
// the pieces. Such a batch goes through in one pass of its own size, and no other batch is ever cut down so far.
class BatchPasses {
public:
    // The first copy takes passes of a crop for each thread and whatever else is asked of it, the others passes of
    // fixedSizes, the largest size first. Each is run once, on crops of side x side pixels, so that its memory is there
    // before the first frame. What OpenCV throws comes through; the object then is as it was.
    void load(const std::vector<cv::dnn::Net>& copies, std::vector<int> fixedSizes, int side,
              std::vector<cv::String> outputNames);

    // Size of the next pass when so many crops of the batch remain. A larger size than that leaves the last rows over.
    int passSize(int batch, int remaining) const;

    // Runs a pass of one of these sizes. The outputs hold until the next one.
    const std::vector<cv::Mat>& run(const cv::Mat& blob);

private:
    std::vector<SteadyNetwork> networks;
    std::vector<int> sizes;
    std::vector<cv::String> names;
};

} // namespace veldan

#endif
