#include "engine/network_loader.hpp"

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

bool hasForm(cv::dnn::Net& net, const NetworkForm& form) {
    const int shape[] = {1, form.channels, form.size.height, form.size.width};
    net.setInput(cv::Mat(4, shape, CV_32F, cv::Scalar(-127.5 / 128)), form.input);
    std::vector<cv::Mat> outputs;
    if (form.outputs.front().name.empty()) {
        outputs.push_back(net.forward());
    } else {
        std::vector<cv::String> names;
        for (const NetworkForm::Output& output : form.outputs)
            names.push_back(output.name);
        net.forward(outputs, names);
    }
    for (std::size_t i = 0; i < outputs.size(); ++i)
        if (outputs[i].type() != CV_32F || outputs[i].dims < 2 || outputs[i].size[0] != 1 ||
            outputs[i].size[1] != form.outputs[i].values)
            return false;
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

int readTensorflowNet(const std::vector<unsigned char>& bytes, const NetworkForm& form, cv::dnn::Net& net) {
    prepareTensorflowReader();
    const auto read = [&] {
        cv::dnn::Net loaded = cv::dnn::readNetFromTensorflow(bytes);
        return hasForm(loaded, form) ? loaded : cv::dnn::Net();
    };
    return readNet(read, net);
}

int loadCaffeNet(StoredFile weights, StoredFile text, const NetworkForm& form, cv::dnn::Net& net) {
    std::vector<unsigned char> weightBytes;
    std::vector<unsigned char> textBytes;
    int error = loadNetworkBytes(weights.length, weights.data, weightBytes);
    if (error == VD_OK)
        error = loadNetworkBytes(text.length, text.data, textBytes);
    if (error != VD_OK)
        return error;
    const auto read = [&] {
        cv::dnn::Net loaded = cv::dnn::readNetFromCaffe(textBytes, weightBytes);
        return hasAllWeights(loaded) && hasForm(loaded, form) ? loaded : cv::dnn::Net();
    };
    return readNet(read, net);
}

int loadTensorflowNet(NetworkLength length, NetworkData data, const NetworkForm& form, cv::dnn::Net& net) {
    std::vector<unsigned char> bytes;
    const int error = loadNetworkBytes(length, data, bytes);
    return error == VD_OK ? readTensorflowNet(bytes, form, net) : error;
}

} // namespace veldan
