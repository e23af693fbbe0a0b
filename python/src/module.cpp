#include "errors.hpp"
#include "frame.hpp"
#include "gallery.hpp"
#include "instance.hpp"
#include "networks.hpp"
#include "photos.hpp"
#include "templates.hpp"
#include "tracker.hpp"

#include <pybind11/pybind11.h>

// The raw operations; the package around them is what programs use.
PYBIND11_MODULE(_veldan, module) {
    using namespace veldan::python;
    translateErrors();
    bindFrames(module);
    bindTemplates(module);
    bindNetworks(module);
    bindPhotos(module);
    bindInstance(module);
    bindGallery(module);
    bindTracker(module);
}
