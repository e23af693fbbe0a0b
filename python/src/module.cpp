#include "errors.hpp"
#include "frame.hpp"
#include "instance.hpp"
#include "networks.hpp"
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
    bindInstance(module);
    bindTracker(module);
}
