#ifndef VELDAN_PYTHON_PHOTOS_HPP
#define VELDAN_PYTHON_PHOTOS_HPP

#include <pybind11/pybind11.h>

namespace veldan::python {

/** Photos as the command reads and draws them. */
void bindPhotos(pybind11::module_& module);

} // namespace veldan::python

#endif
