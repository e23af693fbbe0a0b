#ifndef VELDAN_PYTHON_TRACKER_HPP
#define VELDAN_PYTHON_TRACKER_HPP

#include <pybind11/pybind11.h>

namespace veldan::python {

void bindTracker(pybind11::module_& module);

} // namespace veldan::python

#endif
