#include "errors.hpp"

#include "report/exit_codes.hpp"

#include <opencv2/core.hpp>

#include <exception>
#include <utility>

namespace veldan::python {

namespace py = pybind11;

namespace {

void raise(const char* translator, int code, const char* message) {
    const py::object failure = py::module_::import("veldan.errors").attr(translator)(code, message);
    PyErr_SetObject(py::type::of(failure).ptr(), failure.ptr());
}

} // namespace

void translateErrors() {
    py::register_local_exception_translator([](std::exception_ptr thrown) {
        try {
            std::rethrow_exception(std::move(thrown));
        } catch (const Error& error) {
            raise("of_code", error.code(), error.what());
        } catch (const kit::CommandError& error) {
            raise("of_exit_code", static_cast<int>(error.code()), error.what());
        } catch (const cv::Exception& error) {
            raise("of_code", VD_ERR_ENGINE, error.what());
        }
    });
}

} // namespace veldan::python
