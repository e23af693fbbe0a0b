#include "networks.hpp"

#include "errors.hpp"
#include "templates.hpp"

#include <veldan/face_api.h>
#include <veldan/model_store.hpp>
#include <veldan/thresholds.h>

#include <opencv2/core.hpp>

#include <array>
#include <string>
#include <vector>

namespace veldan::python {

namespace py = pybind11;

namespace {

std::string algorithms() {
    std::array<char, VELDAN_VERSION_SIZE> text{};
    zzGetAlgVersionThread(text.data());
    return text.data();
}

// The weights that templates of a kind come from.
py::bytes recognizer(int kind) {
    const bool bare = kindOf(kind) == Kind::Bare;
    std::vector<unsigned char> bytes(static_cast<std::size_t>(bare ? length_VELDAN_V5_0_0_FaceRecog_Model()
                                                                   : length_VELDAN_V5_2_0_FaceMaskRecog_Model()));
    const int code =
        bare ? data_VELDAN_V5_0_0_FaceRecog_Model(bytes.data()) : data_VELDAN_V5_2_0_FaceMaskRecog_Model(bytes.data());
    if (code != 0)
        throw Error("recognizer", VD_ERR_NETWORK);
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace

void bindNetworks(py::module_& module) {
    module.attr("VERSION") = VELDAN_VERSION;
    module.def("algorithms", algorithms);
    module.def("recognizer", recognizer, py::arg("kind"));
    module.def(
        "set_opencv_threads", [](int threads) { cv::setNumThreads(threads); }, py::arg("threads"));
    module.attr("SAME_PERSON") = VELDAN_SAME_PERSON;
    module.attr("SAME_PERSON_MASKED") = VELDAN_SAME_PERSON_MASKED;
    module.attr("ENROLMENT_QUALITY") = VELDAN_ENROLMENT_QUALITY;
    module.attr("TRACKED_QUALITY") = VELDAN_TRACKED_QUALITY;
    module.attr("MASKED") = VELDAN_MASKED;
    module.attr("LIVE") = VELDAN_LIVE;
    module.attr("DEFAULT_CAPACITY") = VELDAN_DEFAULT_CAPACITY;
}

} // namespace veldan::python
