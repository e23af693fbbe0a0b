#include "instance.hpp"

#include "frame.hpp"
#include "templates.hpp"

#include <veldan/instance.hpp>

#include <memory>

namespace veldan::python {

namespace py = pybind11;

namespace {

Array detect(SharedInstance& shared, const Array& frame) {
    const ImageView image = viewOf(frame);
    return arrayOf(shared.use("detection", [&](Instance& instance) { return instance.detect(image); }));
}

using Judgement = void (Instance::*)(ImageView, Span<VDFACEINFOEX>);

// One engine on one face, whose record it writes to.
template <Judgement judge>
void judged(SharedInstance& shared, const Array& frame, Array record) {
    const ImageView image = viewOf(frame);
    VDFACEINFOEX& face = recordOf(record);
    shared.use("judgement", [&](Instance& instance) { (instance.*judge)(image, {&face, 1}); });
}

int enrolmentQuality(SharedInstance& shared, const Array& frame, Array record) {
    const ImageView image = viewOf(frame);
    VDFACEINFOEX face = recordOf(record);
    return shared.use("quality", [&](Instance& instance) { return instance.enrolmentQuality(image, face); });
}

// Points for a box that was found elsewhere.
void locate(SharedInstance& shared, const Array& frame, Array record) {
    const ImageView image = viewOf(frame);
    VDFACEINFOEX& face = recordOf(record);
    shared.use("landmarks", [&](Instance& instance) {
        VdFaceAPI& api = *static_cast<VdFaceAPI*>(instance.handle());
        unsigned char* const pixels = detail::unconst(image.pixels);
        detail::check("landmarks", api.vdOnetLandmark(pixels, image.width, image.height, 1, &face));
        detail::check("landmarks", api.vdFaceLandMarkRGB(pixels, image.width, image.height, 1, &face));
    });
}

py::bytes extract(SharedInstance& shared, const Array& frame, Array record, int kind, bool enrolment) {
    const ImageView image = viewOf(frame);
    VDFACEINFOEX face = recordOf(record);
    const Kind wanted = kindOf(kind);
    return bytesOf(shared.use("extraction", [&](Instance& instance) {
        return enrolment ? instance.extractForEnrolment(image, face, wanted) : instance.extract(image, face, wanted);
    }));
}

} // namespace

void bindInstance(py::module_& module) {
    py::class_<SharedInstance, std::shared_ptr<SharedInstance>>(module, "Instance")
        .def(py::init([](int capacity) {
                 const py::gil_scoped_release release;
                 return std::make_shared<SharedInstance>(capacity);
             }),
             py::arg("capacity"))
        .def("close", &SharedInstance::close)
        .def_property_readonly("closed", &SharedInstance::closed)
        .def("detect", detect, py::arg("frame"))
        .def("judge_quality", judged<&Instance::judgeQuality>, py::arg("frame"), py::arg("record"))
        .def("judge_mask", judged<&Instance::judgeMask>, py::arg("frame"), py::arg("record"))
        .def("judge_liveness", judged<&Instance::judgeLiveness>, py::arg("frame"), py::arg("record"))
        .def("judge_near_infrared", judged<&Instance::judgeNearInfraredLiveness>, py::arg("frame"), py::arg("record"))
        .def("enrolment_quality", enrolmentQuality, py::arg("frame"), py::arg("record"))
        .def("locate", locate, py::arg("frame"), py::arg("record"))
        .def("extract", extract, py::arg("frame"), py::arg("record"), py::arg("kind"), py::arg("enrolment"));
}

} // namespace veldan::python
