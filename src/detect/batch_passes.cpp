#include "detect/batch_passes.hpp"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace veldan {

namespace {

// As the networks' layers see it when they cut their work.
int threadCount() {
    return std::max(cv::getNumThreads(), 1);
}

} // namespace

void SteadyNetwork::run(const cv::Mat& blob, const std::vector<cv::String>& outputNames) {
    net.setInput(blob, "input_image", 1.0, cv::Scalar());
    net.forward(outputs, outputNames);
}

void BatchPasses::load(const std::vector<cv::dnn::Net>& copies, std::vector<int> fixedSizes, int side,
                       std::vector<cv::String> outputNames) {
    CV_Assert(copies.size() == fixedSizes.size() + 1);
    std::vector<SteadyNetwork> loaded(copies.size());
    for (std::size_t i = 0; i < copies.size(); ++i) {
        const int shape[] = {i == 0 ? threadCount() : fixedSizes[i - 1], 3, side, side};
        loaded[i].net = copies[i]; // a Net is a reference
        loaded[i].run(cv::Mat::zeros(4, shape, CV_32F), outputNames);
    }
    networks = std::move(loaded);
    sizes = std::move(fixedSizes);
    names = std::move(outputNames);
}

int BatchPasses::passSize(int batch, int remaining) const {
    const int threads = threadCount();
    if (2 * batch <= threads)
        return batch;
    for (const int size : sizes)
        if (size <= remaining && size > threads)
            return size;
    return threads;
}

const std::vector<cv::Mat>& BatchPasses::run(const cv::Mat& blob) {
    const auto fixed = std::find(sizes.begin(), sizes.end(), blob.size[0]);
    SteadyNetwork& network = networks[fixed == sizes.end() ? 0 : static_cast<std::size_t>(fixed - sizes.begin()) + 1];
    network.run(blob, names);
    return network.outputs;
}

} // namespace veldan
