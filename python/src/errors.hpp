#ifndef VELDAN_PYTHON_ERRORS_HPP
#define VELDAN_PYTHON_ERRORS_HPP

#include <veldan/veldan.hpp>

#include <pybind11/pybind11.h>

namespace veldan::python {

/** Lets the failures of the library reach Python as the classes of veldan.errors, and OpenCV's as its base class. */
void translateErrors();

/** Python's exception of a result code is raised when this reaches Python. */
[[noreturn]] inline void fail(const char* what, int code, const std::string& why) {
    throw Error(what, code, why);
}

} // namespace veldan::python

#endif
