#include "models/network_loader.hpp"

#include <veldan/result_codes.h>

#include <exception>
#include <new>
#include <utility>

namespace veldan {

int loadNetworkBytes(NetworkLength length, NetworkData data, std::vector<unsigned char>& bytes) {
    const int size = length();
    if (size <= 0)
        return VD_ERR_NETWORK;
    std::vector<unsigned char> buffer(static_cast<std::size_t>(size));
    if (data(buffer.data()) != 0)
        return VD_ERR_NETWORK;
    bytes = std::move(buffer);
    return VD_OK;
}

namespace {

template <class Read>
int readNet(const Read& read, cv::dnn::Net& net) {
    try {
        cv::dnn::Net loaded = read();
        if (loaded.empty())
            return VD_ERR_NETWORK;
        net = loaded;
    } catch (const std::bad_alloc&) {
        throw;
    } catch (const std::exception&) {
        // Loading is the one place where an exception from inside OpenCV becomes a code: it means that the bytes are no
        // usable network. Most are cv::Exception; the parser below OpenCV throws its own.
        return VD_ERR_NETWORK;
    }
    return VD_OK;
}

bool hasAllWeights(cv::dnn::Net& net) {
    for (const cv::String& name : net.getLayerNames()) {
        const cv::Ptr<cv::dnn::Layer> layer = net.getLayer(net.getLayerId(name));
        if ((layer->type == "Convolution" || layer->type == "InnerProduct") && layer->blobs.empty())
            return false;
    }
    return true;
}

// OpenCV 4.6 keeps what its TensorFlow reader can read in a static map that every call fills in anew, without a lock:
// two threads that make the process's first calls at the same time damage it and crash. Later calls only write what is
// there already. So the first call is made here, once, on the smallest graph there is; other threads wait for it. It is
// the one place where instances on different threads have anything to do with each other.
void prepareTensorflowReader() {
    static const bool prepared = [] {
        constexpr char graph[] = "\x0A\x10\x0A\x01x\x12\x0BPlaceholder"; // node { name: "x" op: "Placeholder" }
        const std::vector<unsigned char> bytes(graph, graph + sizeof(graph) - 1);
        cv::dnn::Net net;
        return readNet([&] { return cv::dnn::readNetFromTensorflow(bytes); }, net) == VD_OK;
    }();
    static_cast<void>(prepared);
}

} // namespace

int readTensorflowNet(const std::vector<unsigned char>& bytes, cv::dnn::Net& net) {
    prepareTensorflowReader();
    return readNet([&] { return cv::dnn::readNetFromTensorflow(bytes); }, net);
}

int readWarmTensorflowNet(const std::vector<unsigned char>& bytes, int side, cv::dnn::Net& net) {
    cv::dnn::Net loaded;
    const int error = readTensorflowNet(bytes, loaded);
    if (error != VD_OK)
        return error;
    try {
        const cv::Mat image = cv::Mat::zeros(side, side, CV_8UC3);
        const cv::Mat blob = cv::dnn::blobFromImage(image, 1.0, cv::Size(), cv::Scalar(), false, false, CV_32F);
        loaded.setInput(blob, "input_image", 1.0, cv::Scalar());
        loaded.forward();
    } catch (const cv::Exception&) {
        // Still part of loading: a file can be well-formed and yet not be a network for this input.
        return VD_ERR_NETWORK;
    }
    net = loaded;
    return VD_OK;
}

int loadCaffeNet(StoredFile weights, StoredFile text, const char* outputLayer, cv::dnn::Net& net) {
    std::vector<unsigned char> weightBytes;
    std::vector<unsigned char> textBytes;
    int error = loadNetworkBytes(weights.length, weights.data, weightBytes);
    if (error == VD_OK)
        error = loadNetworkBytes(text.length, text.data, textBytes);
    if (error != VD_OK)
        return error;
    const auto read = [&] {
        cv::dnn::Net loaded = cv::dnn::readNetFromCaffe(textBytes, weightBytes);
        return loaded.getLayerId(outputLayer) >= 0 && hasAllWeights(loaded) ? loaded : cv::dnn::Net();
    };
    return readNet(read, net);
}

int loadTensorflowNet(NetworkLength length, NetworkData data, cv::dnn::Net& net) {
    std::vector<unsigned char> bytes;
    const int error = loadNetworkBytes(length, data, bytes);
    return error == VD_OK ? readTensorflowNet(bytes, net) : error;
}

} // namespace veldan
