#include "tracker.hpp"

#include "frame.hpp"
#include "gallery.hpp"
#include "instance.hpp"

#include <memory>
#include <utility>
#include <vector>

namespace veldan::python {

namespace py = pybind11;

namespace {

// Keeps the instance, though not from being closed.
class SharedTracker {
public:
    explicit SharedTracker(std::shared_ptr<SharedInstance> instance)
        : instance_(std::move(instance)),
          tracker_(instance_->use("tracking", [](Instance& one) { return Tracker(one); })) {}

    Array next(const Array& frame) {
        const ImageView image = viewOf(frame);
        return run([&] { return tracker_.next(image); });
    }

    Array judge(const Array& frame, bool nearInfrared) {
        const ImageView image = viewOf(frame);
        return run(
            [&] { return nearInfrared ? tracker_.judgeNearInfraredLiveness(image) : tracker_.judgeLiveness(image); });
    }

    Array search(const Array& frame, const kit::SearchableGallery& gallery, int threshold, int maskThreshold,
                 int qualityThreshold) {
        const ImageView image = viewOf(frame);
        return run([&] {
            return tracker_.search(image, gallery.bare, gallery.masked, threshold, maskThreshold, qualityThreshold);
        });
    }

private:
    template <class Work>
    Array run(const Work& work) {
        return arrayOf(instance_->use("tracking", [&](Instance&) -> std::vector<VDFACEINFOEX> { return work(); }));
    }

    std::shared_ptr<SharedInstance> instance_;
    Tracker tracker_;
};

} // namespace

void bindTracker(py::module_& module) {
    py::class_<SharedTracker>(module, "Tracker")
        .def(py::init<std::shared_ptr<SharedInstance>>(), py::arg("instance"))
        .def("next", &SharedTracker::next, py::arg("frame"))
        .def("judge", &SharedTracker::judge, py::arg("frame"), py::arg("near_infrared"))
        .def("search", &SharedTracker::search, py::arg("frame"), py::arg("gallery"), py::arg("threshold"),
             py::arg("mask_threshold"), py::arg("quality_threshold"));
}

} // namespace veldan::python
