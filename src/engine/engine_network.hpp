#ifndef VELDAN_ENGINE_ENGINE_NETWORK_HPP
#define VELDAN_ENGINE_ENGINE_NETWORK_HPP

#include <opencv2/dnn.hpp>

namespace veldan {

// The network that an engine holds, out of sight of the engine's public header.
struct EngineNetwork {
    cv::dnn::Net net;
};

} // namespace veldan

#endif
