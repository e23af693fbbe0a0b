#include "templates.hpp"

#include "errors.hpp"

#include <veldan/recognizer.hpp>
#include <veldan/veldan.hpp>

#include <algorithm>
#include <array>
#include <cstring>
#include <pybind11/numpy.h>
#include <string>
#include <string_view>

namespace veldan::python {

namespace py = pybind11;

namespace {

constexpr std::size_t headBytes = 8;

std::array<float, 128> featureOf(const Template& one) {
    std::array<float, 128> feature{};
    std::memcpy(feature.data(), one.data() + headBytes, sizeof feature);
    return feature;
}

// What matching says of two whole templates; the two recognizers share the measure, and no network takes part.
float similarity(const py::bytes& a, const py::bytes& b, int kind) {
    const Template first = templateOf(a);
    const Template second = templateOf(b);
    detail::checkTemplate("matching", first, kindOf(kind));
    detail::checkTemplate("matching", second, kindOf(kind));
    static MOBILEFACENET measure;
    return static_cast<float>(measure.mfFeatureMatch(featureOf(first).data(), featureOf(second).data()));
}

// The kind of a template, whole and plausible; throws Error otherwise.
int kindOfTemplate(const py::bytes& bytes) {
    const Template one = templateOf(bytes);
    const std::string flaw = flawOf(one, Kind::Bare);
    if (flaw.empty())
        return static_cast<int>(Kind::Bare);
    if (const std::string other = flawOf(one, Kind::Masked); other.empty())
        return static_cast<int>(Kind::Masked);
    fail("template", VD_ERR_TEMPLATE, "it " + flaw);
}

py::array feature(const py::bytes& bytes) {
    const std::array<float, 128> values = featureOf(templateOf(bytes));
    return py::array_t<float>(values.size(), values.data());
}

} // namespace

Kind kindOf(int kind) {
    if (kind != static_cast<int>(Kind::Bare) && kind != static_cast<int>(Kind::Masked))
        fail("template", VD_ERR_TEMPLATE, "there is no kind " + std::to_string(kind));
    return static_cast<Kind>(kind);
}

Template templateOf(const py::bytes& bytes) {
    const std::string_view text = bytes;
    Template one{};
    if (text.size() != one.size())
        fail("template", VD_ERR_TEMPLATE,
             "it has " + std::to_string(text.size()) + " bytes, not " + std::to_string(one.size()));
    std::copy(text.begin(), text.end(), one.begin());
    return one;
}

py::bytes bytesOf(const Template& one) {
    return {reinterpret_cast<const char*>(one.data()), one.size()};
}

void bindTemplates(py::module_& module) {
    module.attr("TEMPLATE_BYTES") = templateBytes;
    module.def("similarity", similarity, py::arg("a"), py::arg("b"), py::arg("kind"));
    module.def("kind_of", kindOfTemplate, py::arg("template"));
    module.def("feature", feature, py::arg("template"));
}

} // namespace veldan::python
