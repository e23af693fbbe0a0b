#include "networks.hpp"

#include "gallery/records.hpp"
#include "templates.hpp"

#include <veldan/face_api.h>
#include <veldan/thresholds.h>

#include <opencv2/core.hpp>

#include <array>
#include <string>

namespace veldan::python {

namespace py = pybind11;

namespace {

std::string algorithms() {
    std::array<char, VELDAN_VERSION_SIZE> text{};
    zzGetAlgVersionThread(text.data());
    return text.data();
}

// Of the weights that templates of a kind come from.
const std::string& recognizerDigest(int kind) {
    const kit::Recognizers& own = kit::Recognizers::embedded();
    return kindOf(kind) == Kind::Bare ? own.bare : own.masked;
}

} // namespace

void bindNetworks(py::module_& module) {
    module.attr("VERSION") = VELDAN_VERSION;
    module.def("algorithms", algorithms);
    module.def("recognizer_digest", recognizerDigest, py::arg("kind"));
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
