#include "gallery.hpp"

#include "gallery/candidate_search.hpp"
#include "gallery/photo_choice.hpp"
#include "instance.hpp"
#include "report/exit_codes.hpp"
#include "templates.hpp"

#include <memory>
#include <mutex>
#include <pybind11/stl.h>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace veldan::python {

namespace py = pybind11;

namespace {

using Photos = std::vector<kit::EnrolledPhoto>;

// File names are bytes; those that are no UTF-8 become what os.fsencode() turns back.
py::str textOf(const std::string& bytes) {
    return py::reinterpret_steal<py::str>(
        PyUnicode_DecodeUTF8(bytes.data(), static_cast<py::ssize_t>(bytes.size()), "surrogateescape"));
}

// A gallery file that several threads may use: SQLite's connection serves one at a time.
class SharedStore {
public:
    SharedStore(const std::string& path, bool change)
        : store_(path, change ? kit::GalleryStore::Access::Create : kit::GalleryStore::Access::Read) {}

    template <class Work>
    auto use(const Work& work) {
        const py::gil_scoped_release release;
        const std::lock_guard<std::mutex> lock(mutex_);
        return work(store_);
    }

private:
    std::mutex mutex_;
    kit::GalleryStore store_;
};

std::string add(SharedStore& store, const std::string& person, const std::string& source, const std::string& digest,
                int quality, const py::bytes& bare, const py::bytes& masked) {
    kit::EnrolledPhoto photo{source, digest, kit::dateNow(), quality, templateOf(bare), templateOf(masked)};
    detail::checkTemplate("enrolment", photo.bare, Kind::Bare);
    detail::checkTemplate("enrolment", photo.masked, Kind::Masked);
    if (const std::string refusal = kit::refusalOfName(person); !refusal.empty())
        throw kit::CommandError(kit::ExitCode::Usage, "\"" + person + "\": " + refusal);
    switch (store.use([&](kit::GalleryStore& file) {
        file.requireOwnNetworks();
        return file.add({{person, photo}}).front();
    })) {
    case kit::GalleryStore::Added::New:
        return "enrolled";
    case kit::GalleryStore::Added::Repaired:
        return "repaired";
    case kit::GalleryStore::Added::Unchanged:
        break;
    }
    return "unchanged";
}

std::string removePhoto(SharedStore& store, const std::string& person, const std::string& wanted) {
    return store.use([&](kit::GalleryStore& file) {
        std::string digest = kit::chosenPhoto(file.photosOf(person), wanted);
        file.removePhoto(person, digest);
        return digest;
    });
}

std::vector<std::tuple<std::string, std::size_t, std::string, std::string>> persons(SharedStore& store) {
    std::vector<std::tuple<std::string, std::size_t, std::string, std::string>> all;
    for (const kit::PersonSummary& one : store.use([](kit::GalleryStore& file) { return file.persons(); }))
        all.emplace_back(one.name, one.photos, one.firstDate, one.lastDate);
    return all;
}

std::vector<py::tuple> photosOf(SharedStore& store, const std::string& person) {
    std::vector<py::tuple> all;
    for (const kit::EnrolledPhoto& one : store.use([&](kit::GalleryStore& file) { return file.photosOf(person); }))
        all.push_back(py::make_tuple(textOf(one.source), one.digest, one.date, one.quality, bytesOf(one.bare),
                                     bytesOf(one.masked)));
    return all;
}

std::pair<int, float> identify(kit::SearchableGallery& gallery, SharedInstance& instance, const py::bytes& probe,
                               int kind, float threshold) {
    const Template wanted = templateOf(probe);
    const Kind of = kindOf(kind);
    return instance.use("identification", [&](Instance& one) {
        return one.identify(of == Kind::Masked ? gallery.masked : gallery.bare, wanted, threshold);
    });
}

// Name, similarity and photo of the nearest persons.
std::vector<py::tuple> nearest(kit::SearchableGallery& gallery, SharedInstance& instance, const py::bytes& probe,
                               int kind, std::size_t count) {
    const Template wanted = templateOf(probe);
    const Kind of = kindOf(kind);
    detail::checkTemplate("identification", wanted, of);
    std::vector<py::tuple> found;
    for (const kit::Candidate& candidate : instance.use("identification", [&](Instance& one) {
             return kit::nearestCandidates(one, gallery, wanted, of, count);
         })) {
        const kit::PhotoOrigin& origin = gallery.origins[candidate.photo];
        found.push_back(py::make_tuple(gallery.names[candidate.person], candidate.similarity, textOf(origin.source),
                                       origin.digest));
    }
    return found;
}

} // namespace

void bindGallery(py::module_& module) {
    using kit::GalleryStore;
    py::class_<kit::SearchableGallery, std::shared_ptr<kit::SearchableGallery>>(module, "SearchableGallery")
        .def_readonly("names", &kit::SearchableGallery::names)
        .def_readonly("damaged", &kit::SearchableGallery::damaged)
        .def("identify", identify, py::arg("instance"), py::arg("probe"), py::arg("kind"), py::arg("threshold"))
        .def("nearest", nearest, py::arg("instance"), py::arg("probe"), py::arg("kind"), py::arg("count"));

    py::class_<SharedStore, std::shared_ptr<SharedStore>>(module, "GalleryStore")
        .def(py::init([](const std::string& path, bool change) {
                 const py::gil_scoped_release release;
                 return std::make_shared<SharedStore>(path, change);
             }),
             py::arg("path"), py::arg("change"))
        .def("searchable",
             [](SharedStore& store) {
                 return store.use(
                     [](GalleryStore& file) { return std::make_shared<kit::SearchableGallery>(file.searchable()); });
             })
        .def("persons", persons)
        .def("photos_of", photosOf, py::arg("person"))
        .def("add", add, py::arg("person"), py::arg("source"), py::arg("digest"), py::arg("quality"), py::arg("bare"),
             py::arg("masked"))
        .def(
            "holds",
            [](SharedStore& store, const std::string& person, const std::string& digest) {
                return store.use([&](GalleryStore& file) { return file.holds(person, digest); });
            },
            py::arg("person"), py::arg("digest"))
        .def(
            "remove_person",
            [](SharedStore& store, const std::string& person) {
                return store.use([&](GalleryStore& file) { return file.removePerson(person); });
            },
            py::arg("person"))
        .def("remove_photo", removePhoto, py::arg("person"), py::arg("photo"))
        .def(
            "rename",
            [](SharedStore& store, const std::string& person, const std::string& name) {
                store.use([&](GalleryStore& file) { file.renamePerson(person, name); });
            },
            py::arg("person"), py::arg("name"))
        .def(
            "merge",
            [](SharedStore& store, const std::string& person, const std::string& into) {
                return store.use([&](GalleryStore& file) { return file.mergePerson(person, into); });
            },
            py::arg("person"), py::arg("into"));
}

} // namespace veldan::python
