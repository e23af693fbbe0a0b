#ifndef VELDAN_PYTHON_FRAME_HPP
#define VELDAN_PYTHON_FRAME_HPP

#include <veldan/veldan.hpp>

#include <optional>
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <string>

namespace veldan::python {

using Array = pybind11::array;

/**
 * The image as the library takes it: rows without padding, blue, green, red. The very array when it lies so already,
 * otherwise a copy. Throws Error when it is no image of 8 bits and three channels or too large for the library.
 * @param order  "BGR" or "RGB", what the caller's array holds
 * @param copy   whether to copy in any case
 * @param out    where a copy goes, an array of packed(); a new one unless given
 */
Array packed(const pybind11::object& image, const std::string& order, bool copy, const std::optional<Array>& out);

/** The pixels of an array of packed(); throws Error for any other array. */
ImageView viewOf(const Array& frame);

/** The record that an array of 262 words is; throws Error for any other array. */
VDFACEINFOEX& recordOf(Array& record);

/** Records as an array of shape (n, 262). */
Array arrayOf(const std::vector<VDFACEINFOEX>& records);

void bindFrames(pybind11::module_& module);

} // namespace veldan::python

#endif
