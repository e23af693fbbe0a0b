#include "photos.hpp"

#include "frame.hpp"
#include "photo/annotate.hpp"
#include "photo/photo.hpp"
#include "system/foreign_noise.hpp"

#include <pybind11/stl.h>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veldan::python {

namespace py = pybind11;

namespace {

// An array that keeps the photo whose pixels it shows.
Array pixelsOf(kit::Photo photo) {
    auto* const pixels = new std::vector<unsigned char>(std::move(photo.pixels));
    const py::capsule owner(pixels, [](void* kept) { delete static_cast<std::vector<unsigned char>*>(kept); });
    return py::array_t<unsigned char>({photo.height, photo.width, 3}, pixels->data(), owner);
}

const char* nameOf(kit::PhotoFlaw flaw) {
    switch (flaw) {
    case kit::PhotoFlaw::Truncated:
        return "truncated";
    case kit::PhotoFlaw::Damaged:
        return "damaged";
    case kit::PhotoFlaw::None:
        break;
    }
    return "";
}

// The pixels, and what is wrong with a photo of which there are some all the same.
std::pair<Array, std::string> decode(const py::bytes& bytes) {
    const std::string_view text = bytes;
    kit::Photo photo;
    {
        const py::gil_scoped_release release;
        photo = kit::decodePhoto({text.begin(), text.end()});
    }
    const char* const flaw = nameOf(photo.flaw);
    return {pixelsOf(std::move(photo)), flaw};
}

kit::Photo copyOf(const Array& frame) {
    const ImageView image = viewOf(frame);
    kit::Photo photo{image.width, image.height, {}};
    photo.pixels.assign(image.pixels, image.pixels + frame.nbytes());
    return photo;
}

using Words = std::vector<std::vector<std::string>>;

// With words, a small picture is enlarged, so that they have room.
Array draw(const Array& frame, const std::vector<Array>& records, const std::vector<bool>& masked, const Words& words) {
    kit::Photo photo = copyOf(frame);
    std::vector<kit::Mark> marks;
    marks.reserve(records.size());
    bool anyWords = false;
    for (std::size_t i = 0; i < records.size(); ++i) {
        Array record = records[i];
        marks.emplace_back(recordOf(record), masked.at(i), words.at(i));
        anyWords = anyWords || !words[i].empty();
    }
    {
        const py::gil_scoped_release release;
        if (anyWords)
            photo = kit::annotatedCopy(photo, std::move(marks));
        else
            kit::annotate(photo, marks);
    }
    return pixelsOf(std::move(photo));
}

void save(const Array& frame, const std::string& path) {
    kit::Photo photo = copyOf(frame);
    const py::gil_scoped_release release;
    kit::savePhoto(photo, path);
}

} // namespace

void bindPhotos(py::module_& module) {
    module.def("decode", decode, py::arg("bytes"));
    module.def("draw", draw, py::arg("frame"), py::arg("records"), py::arg("masked"), py::arg("words"));
    module.def("save", save, py::arg("frame"), py::arg("path"));
    module.def("mute_foreign_noise", kit::muteForeignNoise);
}

} // namespace veldan::python
