// Files that may be networks, read as the engines read theirs.

#include "engine/network_loader.hpp"
#include "fuzz/input.hpp"
#include "fuzz/targets.hpp"

#include <new>
#include <vector>

namespace veldan_fuzz {
namespace {

// What the accessors of a stored network give; the loader takes plain functions.
struct File {
    std::vector<unsigned char> bytes;
    int code = 0;
};
File weights;
File text;

template <File& file>
int lengthOf() {
    return static_cast<int>(file.bytes.size());
}

template <File& file>
int dataOf(unsigned char* out) {
    if (file.code == 0 && !file.bytes.empty())
        std::memcpy(out, file.bytes.data(), file.bytes.size());
    return file.code;
}

} // namespace

void networkLoading(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const int how = input.byte();
    const bool caffe = (how & 1) != 0;
    weights.code = (how & 126) == 126 ? -1 : 0;
    const std::size_t split = caffe ? std::min<std::size_t>(input.take<std::uint16_t>(), input.left()) : 0;
    text.bytes.assign(input.rest(), input.rest() + split);
    weights.bytes.assign(input.rest() + split, input.rest() + input.left());

    cv::dnn::Net net;
    const veldan::NetworkForm form{caffe ? "" : "input_image", 3, {8, 8}, {{"out", 2}}};
    int code = 0;
    try {
        code = caffe ? veldan::loadCaffeNet({lengthOf<weights>, dataOf<weights>}, {lengthOf<text>, dataOf<text>}, form,
                                            net)
                     : veldan::loadTensorflowNet(lengthOf<weights>, dataOf<weights>, form, net);
    } catch (const std::bad_alloc&) {
        return; // a file may announce more than memory holds
    }
    require(code == 0 || code == 20);
    require(net.empty() == (code != 0));
    if (code != 0)
        return;
    // What was accepted answers in its form.
    const int shape[] = {1, 3, 8, 8};
    net.setInput(cv::Mat(4, shape, CV_32F, cv::Scalar(0.5)), form.input);
    const cv::Mat out = net.forward("out");
    require(out.type() == CV_32F && out.dims >= 2 && out.size[0] == 1 && out.size[1] == 2);
}

} // namespace veldan_fuzz
