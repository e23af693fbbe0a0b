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

int readTensorflowNet(const std::vector<unsigned char>& bytes, cv::dnn::Net& net) {
    try {
        cv::dnn::Net loaded = cv::dnn::readNetFromTensorflow(bytes);
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

int loadTensorflowNet(NetworkLength length, NetworkData data, cv::dnn::Net& net) {
    std::vector<unsigned char> bytes;
    const int error = loadNetworkBytes(length, data, bytes);
    return error == VD_OK ? readTensorflowNet(bytes, net) : error;
}

} // namespace veldan
