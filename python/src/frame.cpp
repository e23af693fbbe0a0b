#include "frame.hpp"

#include "errors.hpp"

#include <veldan/align.h>
#include <veldan/face_quality.hpp>
#include <veldan/image_tool.h>

#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <limits>
#include <pybind11/stl.h>

namespace veldan::python {

namespace py = pybind11;

namespace {

constexpr py::ssize_t wordsOfRecord = sizeof(VDFACEINFOEX) / sizeof(std::int32_t);
// OpenCV's functions for cutting crops take no longer ones, and it counts the bytes of an image as int in places.
constexpr py::ssize_t mostSide = 32766;
constexpr py::ssize_t mostBytes = std::numeric_limits<std::int32_t>::max();

[[noreturn]] void refuse(const std::string& why) {
    fail("image", VD_ERR_NO_FACE, why);
}

std::string shapeText(const Array& array) {
    return py::str(array.attr("shape"));
}

void requireImage(const Array& image) {
    if (!py::isinstance<py::array_t<std::uint8_t>>(image))
        refuse("its elements are " + std::string(py::str(image.dtype())) + ", not uint8");
    if (image.ndim() != 3 || image.shape(2) != 3)
        refuse("its shape is " + shapeText(image) + ", not (height, width, 3)");
    if (image.shape(0) == 0 || image.shape(1) == 0)
        refuse("it is empty: its shape is " + shapeText(image));
    if (image.shape(0) > mostSide || image.shape(1) > mostSide || image.shape(0) * image.shape(1) * 3 > mostBytes)
        refuse("it is too large: its shape is " + shapeText(image) + ", at most " + std::to_string(mostSide) +
               " pixels a side and " + std::to_string(mostBytes) + " bytes are taken");
}

bool liesPacked(const Array& image) {
    return (image.flags() & py::array::c_style) != 0;
}

struct Strided {
    const unsigned char* first;
    py::ssize_t height, width;
    py::ssize_t row, column, channel; // steps in bytes, which may be 0 and negative
};

// Whether pixels lie side by side within each row.
bool hasWholeRows(const Strided& image) {
    return image.channel == 1 && image.column == 3 && image.row >= image.width * 3;
}

// In the order that the library takes, out of the other one.
void turnOrder(const Strided& from, unsigned char* to) {
    const cv::Size size(static_cast<int>(from.width), static_cast<int>(from.height));
    cv::Mat result(size, CV_8UC3, to);
    cv::cvtColor(cv::Mat(size, CV_8UC3, detail::unconst(from.first), static_cast<std::size_t>(from.row)), result,
                 cv::COLOR_RGB2BGR);
}

void copyPacked(const Strided& from, bool reversed, unsigned char* to) {
    const py::ssize_t first = reversed ? 2 * from.channel : 0;
    const py::ssize_t step = reversed ? -from.channel : from.channel;
    for (py::ssize_t y = 0; y < from.height; ++y) {
        const unsigned char* pixel = from.first + y * from.row + first;
        if (step == 1 && from.column == 3) {
            std::memcpy(to, pixel, static_cast<std::size_t>(from.width) * 3);
            to += from.width * 3;
            continue;
        }
        for (py::ssize_t x = 0; x < from.width; ++x, pixel += from.column, to += 3) {
            to[0] = pixel[0];
            to[1] = pixel[step];
            to[2] = pixel[2 * step];
        }
    }
}

Array aligned(const Array& frame, Array record, bool fivePoints, int side) {
    constexpr int mostCrop = 4096;
    if (side < 1 || side > mostCrop)
        fail("alignment", VD_ERR_NO_FACE, "the side of the crop must be 1 to " + std::to_string(mostCrop) + " pixels");
    const ImageView image = viewOf(frame);
    const VDFACEINFOEX& face = recordOf(record);
    const std::size_t first = fivePoints ? 0 : 5;
    const std::size_t count = fivePoints ? 5 : 2;
    std::array<float, 10> points{};
    for (std::size_t k = 0; k < count; ++k) {
        points[2 * k] = static_cast<float>(face.keyPointX[first + k]);
        points[2 * k + 1] = static_cast<float>(face.keyPointY[first + k]);
    }
    py::array_t<unsigned char> crop({side, side, 3});
    unsigned char* const pixels = crop.mutable_data();
    {
        const py::gil_scoped_release release;
        (fivePoints ? alignface_pinv : alignface_mask)(image.pixels, image.width, image.height, pixels, side, side,
                                                       points.data());
    }
    return crop;
}

Array resized(const Array& frame, int width, int height) {
    const ImageView image = viewOf(frame);
    if (width < 1 || height < 1 || width > mostSide || height > mostSide || py::ssize_t{width} * height * 3 > mostBytes)
        refuse("it cannot be resized to " + std::to_string(width) + " x " + std::to_string(height));
    py::array_t<unsigned char> result({height, width, 3});
    unsigned char* const pixels = result.mutable_data();
    {
        const py::gil_scoped_release release;
        ImageZoom(detail::unconst(image.pixels), image.width, image.height, 3, width, height, pixels);
    }
    return result;
}

bool sharp(const Array& frame, Array record) {
    const ImageView image = viewOf(frame);
    const VDFACEINFOEX face = recordOf(record);
    const py::gil_scoped_release release;
    return FaceQuality().Face_blurRGB(detail::unconst(image.pixels), image.width, image.height, face) == 1;
}

bool frontal(Array record) {
    return FaceQuality().Face_Front(nullptr, 0, 0, recordOf(record)) == 1;
}

} // namespace

Array packed(const py::object& image, const std::string& order, bool copy, const std::optional<Array>& out) {
    if (order != "BGR" && order != "RGB")
        refuse("its order is \"" + order + "\", neither \"BGR\" nor \"RGB\"");
    if (!py::isinstance<Array>(image))
        refuse("it is of type " + std::string(py::str(py::type::of(image))) + ", not a numpy array");
    Array array = py::reinterpret_borrow<Array>(image);
    requireImage(array);
    const bool reversed = order == "RGB";
    if (!copy && !reversed && liesPacked(array))
        return array;
    Array target = out ? *out : Array(py::array_t<unsigned char>({array.shape(0), array.shape(1), py::ssize_t{3}}));
    if (viewOf(target).width != array.shape(1) || viewOf(target).height != array.shape(0))
        refuse("it does not fit into an array of the shape " + shapeText(target));
    auto* const to = static_cast<unsigned char*>(target.mutable_data());
    const Strided from{static_cast<const unsigned char*>(array.data()),
                       array.shape(0),
                       array.shape(1),
                       array.strides(0),
                       array.strides(1),
                       array.strides(2)};
    {
        const py::gil_scoped_release release;
        if (reversed && hasWholeRows(from))
            turnOrder(from, to);
        else
            copyPacked(from, reversed, to);
    }
    return target;
}

ImageView viewOf(const Array& frame) {
    requireImage(frame);
    if (!liesPacked(frame))
        refuse("its rows do not follow each other without gaps");
    return {static_cast<const unsigned char*>(frame.data()), static_cast<int>(frame.shape(1)),
            static_cast<int>(frame.shape(0))};
}

VDFACEINFOEX& recordOf(Array& record) {
    if (!py::isinstance<py::array_t<std::int32_t>>(record) || record.ndim() != 1 || record.shape(0) != wordsOfRecord ||
        !liesPacked(record) || !record.writeable())
        fail("record", VD_ERR_NO_FACE, "a writable array of " + std::to_string(wordsOfRecord) + " int32 is needed");
    return *static_cast<VDFACEINFOEX*>(record.mutable_data());
}

Array arrayOf(const std::vector<VDFACEINFOEX>& records) {
    py::array_t<std::int32_t> array({static_cast<py::ssize_t>(records.size()), wordsOfRecord});
    if (!records.empty())
        std::memcpy(array.mutable_data(), records.data(), records.size() * sizeof(VDFACEINFOEX));
    return array;
}

void bindFrames(py::module_& module) {
    module.def("packed", packed, py::arg("image"), py::arg("order"), py::arg("copy") = false,
               py::arg("out") = std::nullopt);
    module.def("aligned", aligned, py::arg("frame"), py::arg("record"), py::arg("five_points"), py::arg("side"));
    module.def("resized", resized, py::arg("frame"), py::arg("width"), py::arg("height"));
    module.def("sharp", sharp, py::arg("frame"), py::arg("record"));
    module.def("frontal", frontal, py::arg("record"));
}

} // namespace veldan::python
