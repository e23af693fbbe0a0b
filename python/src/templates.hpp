#ifndef VELDAN_PYTHON_TEMPLATES_HPP
#define VELDAN_PYTHON_TEMPLATES_HPP

#include <veldan/template.hpp>

#include <pybind11/pybind11.h>

namespace veldan::python {

/** The kind of a number that Python hands in; throws Error when it is none. */
Kind kindOf(int kind);

/** Throws Error when the bytes are none of a template's length. */
Template templateOf(const pybind11::bytes& bytes);

pybind11::bytes bytesOf(const Template& one);

void bindTemplates(pybind11::module_& module);

} // namespace veldan::python

#endif
