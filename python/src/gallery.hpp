#ifndef VELDAN_PYTHON_GALLERY_HPP
#define VELDAN_PYTHON_GALLERY_HPP

#include "gallery/store.hpp"

#include <pybind11/pybind11.h>

namespace veldan::python {

void bindGallery(pybind11::module_& module);

} // namespace veldan::python

#endif
