#ifndef VELDAN_ENGINE_NETWORK_LOADER_HPP
#define VELDAN_ENGINE_NETWORK_LOADER_HPP

#include <opencv2/dnn.hpp>

#include <string>
#include <vector>

namespace veldan {

// How every engine gets its networks: bytes from the store, then a network built from memory. All functions return
// 0, or 20 when the stored form is damaged or OpenCV cannot make a network of it; the output is then unchanged.

using NetworkLength = int (*)();
using NetworkData = int (*)(unsigned char* out);

int loadNetworkBytes(NetworkLength length, NetworkData data, std::vector<unsigned char>& bytes);

int readTensorflowNet(const std::vector<unsigned char>& bytes, cv::dnn::Net& net);

// How an engine runs its network. A well-formed file need not be that network: another one in its place, or one with a
// damaged layer, would throw or answer nonsense only when it meets a face.
struct NetworkForm {
    // An output, and how many channels or values it has for one image.
    struct Output {
        std::string name;
        int values;
    };

    std::string input; // empty: the network's only one
    int channels;
    cv::Size size;
    std::vector<Output> outputs; // a single one without a name: the network's last layer
};

// With one forward pass on a black image, which has to give the outputs of the form. So the first face does not pay for
// the network's set-up either.
int readTensorflowNet(const std::vector<unsigned char>& bytes, const NetworkForm& form, cv::dnn::Net& net);

// The accessors of a network that is stored as two files.
struct StoredFile {
    NetworkLength length;
    NetworkData data;
};

// Weights are fetched before the text. The weights must have those of every layer: Caffe files that do not belong
// together are read without complaint.
int loadCaffeNet(StoredFile weights, StoredFile text, const NetworkForm& form, cv::dnn::Net& net);

int loadTensorflowNet(NetworkLength length, NetworkData data, const NetworkForm& form, cv::dnn::Net& net);

} // namespace veldan

#endif
