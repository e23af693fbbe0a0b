#ifndef VELDAN_MODELS_NETWORK_LOADER_HPP
#define VELDAN_MODELS_NETWORK_LOADER_HPP

#include <opencv2/dnn.hpp>

#include <vector>

namespace veldan {

// How every engine gets its networks: bytes from the store, then a network built from memory. All functions return
// 0, or 20 when the stored form is damaged or OpenCV cannot make a network of it; the output is then unchanged.

using NetworkLength = int (*)();
using NetworkData = int (*)(unsigned char* out);

int loadNetworkBytes(NetworkLength length, NetworkData data, std::vector<unsigned char>& bytes);

int readTensorflowNet(const std::vector<unsigned char>& bytes, cv::dnn::Net& net);

// With one forward pass on a three-channel image of side x side pixels, so that the first face does not pay for the
// network's set-up.
int readWarmTensorflowNet(const std::vector<unsigned char>& bytes, int side, cv::dnn::Net& net);

// The accessors of a network that is stored as two files.
struct StoredFile {
    NetworkLength length;
    NetworkData data;
};

// Weights are fetched before the text. The text must have the output layer, and the weights those of every layer:
// unlike a damaged GraphDef, Caffe files that do not belong together are read without complaint and fail only when the
// network runs.
int loadCaffeNet(StoredFile weights, StoredFile text, const char* outputLayer, cv::dnn::Net& net);

int loadTensorflowNet(NetworkLength length, NetworkData data, cv::dnn::Net& net);

} // namespace veldan

#endif
