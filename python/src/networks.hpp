#ifndef VELDAN_PYTHON_NETWORKS_HPP
#define VELDAN_PYTHON_NETWORKS_HPP

#include <pybind11/pybind11.h>

namespace veldan::python {

/** Version, thresholds and the weights of the two recognizers. */
void bindNetworks(pybind11::module_& module);

} // namespace veldan::python

#endif
