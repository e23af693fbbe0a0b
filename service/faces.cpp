// Requests about photos that leave nothing behind.

#include "faces.hpp"

#include "gallery/comparison.hpp"
#include "gallery/identity.hpp"
#include "gallery/template_file.hpp"
#include "photo/face_text.hpp"
#include "photo/largest_face.hpp"
#include "photo/photo_entry.hpp"
#include "photo/picture_format.hpp"
#include "photo/picture_size.hpp"
#include "services.hpp"

#include <veldan/model_store.hpp>

#include <array>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veldan::service {

namespace {

using kit::FaceApi;
using kit::Photo;

const Upload& onlyUpload(const Call& call) {
    return call.uploads.at("photo").front();
}

Json documentOf(Json entry) {
    return {{"version", VELDAN_VERSION}, {"photos", Json::array({std::move(entry)})}};
}

/** The answer about one photo, made by a worker. */
template <class Work>
Answer aboutPhoto(Call& call, const Work& work) {
    Json document = Json::object();
    inWorker(call, [&](FaceApi& api) {
        Json entry = {{"photo", onlyUpload(call).name}};
        work(api, entry, document);
        Json whole = documentOf(std::move(entry));
        whole.update(document);
        document = std::move(whole);
    });
    return Answer::json(document);
}

void putFace(Call& call, Json& entry, Json face) {
    entry["faces"].push_back(std::move(face));
    call.services.metrics.countFaces(1);
}

std::string base64(const Template& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3), '=');
    B64Encode(bytes.data(), static_cast<int>(bytes.size()), text.data(), static_cast<int>(text.size()));
    return text;
}

} // namespace

void inWorker(Call& call, const Workers::Work& work) {
    call.services.workers.run(work, std::chrono::seconds(call.services.options.timeout));
}

Photo decoded(const Call& call, const Upload& upload, Json& entry) {
    const kit::PictureFormat format = kit::formatOf(upload.bytes);
    const std::optional<kit::PictureSize> size = kit::pictureSize(upload.bytes);
    if (format == kit::PictureFormat::Other)
        throw Problem(415, "not a picture in a known format");
    const std::uint64_t most = std::uint64_t{call.services.options.mostMegapixels} * 1000000;
    if (size && size->pixels() > most)
        throw Problem(413, "the picture has " + std::to_string(size->width) + " x " + std::to_string(size->height) +
                               " pixels; at most " + std::to_string(call.services.options.mostMegapixels) +
                               " million are decoded");
    // Formats that are not read have no size either, and decodePhoto() says which they are.
    const bool readable = format != kit::PictureFormat::Gif && format != kit::PictureFormat::Radiance &&
                          format != kit::PictureFormat::Dicom;
    if (!size && readable)
        throw Problem(422,
                      std::string("a damaged ") + kit::nameOf(format) + " picture: it does not say how large it is");
    Photo photo = kit::decodePhoto(upload.bytes);
    kit::putPicture(entry, photo);
    return photo;
}

Answer detectFaces(Call& call) {
    return aboutPhoto(call, [&](FaceApi& api, Json& entry, Json&) {
        Photo photo = decoded(call, onlyUpload(call), entry);
        const FaceApi::Detection detection = api.detect(photo);
        kit::refuseCrowd(detection.faces.size());
        kit::putFaces(entry, detection.milliseconds);
        for (const VDFACEINFOEX& face : detection.faces)
            putFace(call, entry, kit::detectionJson(face));
    });
}

Answer inspectFaces(Call& call) {
    return aboutPhoto(call, [&](FaceApi& api, Json& entry, Json&) {
        Photo photo = decoded(call, onlyUpload(call), entry);
        const bool nearInfrared = call.word("light", "visible") == "near-infrared" && kit::isGrey(photo);
        const kit::Light light = nearInfrared ? kit::Light::NearInfrared : kit::Light::Visible;
        const FaceApi::Detection detection = api.detect(photo);
        kit::refuseCrowd(detection.faces.size());
        const auto start = std::chrono::steady_clock::now();
        const std::vector<kit::JudgedFace> faces = kit::judge(api.instance(), photo, detection.faces, light);
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;
        kit::putFaces(entry, detection.milliseconds + elapsed.count());
        for (const kit::JudgedFace& face : faces)
            putFace(call, entry, kit::judgementJson(face, light));
    });
}

Answer matchFaces(Call& call) {
    Json document;
    inWorker(call, [&](FaceApi& api) {
        kit::ComparedSides sides;
        Json photos = Json::array();
        std::size_t index = 0;
        for (const char* part : {"a", "b"}) {
            const Upload& upload = call.uploads.at(part).front();
            kit::ComparedSide& side = sides.at(index++);
            side.path = upload.name;
            Json entry = {{"photo", upload.name}};
            if (kit::isTemplateFile(upload.bytes)) {
                side.given = kit::readTemplate(upload.bytes);
                entry["template"] = kit::kindName(side.given->kind);
            } else {
                side.photo = decoded(call, upload, entry);
                const kit::LargestFace largest = kit::largestFace(api, side.photo);
                side.face = largest.face;
                kit::putFaces(entry, largest.milliseconds);
                putFace(call, entry, kit::largestFaceJson(largest));
            }
            photos.push_back(std::move(entry));
        }
        const Kind kind = kit::kindToCompare(sides, call.flag("masked"));
        const double similarity = kit::similarityOf(api.instance(), sides, kind);
        document = {{"version", VELDAN_VERSION}, {"photos", std::move(photos)}};
        std::optional<double> threshold;
        if (call.query.count("threshold") > 0)
            threshold = call.similarity("threshold", 0);
        kit::putComparison(document, similarity, kind, threshold);
    });
    return Answer::json(document);
}

Answer identifyFaces(Call& call) {
    const SharedGallery::Searchable gallery = call.services.gallery.searchable();
    kit::IdentitySearch search;
    search.threshold = call.similarity("threshold", search.threshold);
    search.maskThreshold = call.similarity("maskThreshold", search.maskThreshold);
    search.top = static_cast<std::size_t>(call.integer("top", 0));
    return aboutPhoto(call, [&](FaceApi& api, Json& entry, Json& document) {
        document["gallery"] = {{"persons", gallery->names.size()}, {"damaged", gallery->damaged}};
        document["thresholds"] = {{"bare", search.threshold}, {"masked", search.maskThreshold}};
        const auto add = [&](Json face, const kit::Identity& identity) {
            if (search.top > 0)
                face["candidates"] = kit::candidatesJson(identity);
            putFace(call, entry, std::move(face));
        };
        const Upload& upload = onlyUpload(call);
        if (kit::isTemplateFile(upload.bytes)) {
            const kit::TemplateOfKind probe = kit::readTemplate(upload.bytes);
            const kit::Identity identity = kit::identify(api.instance(), *gallery, probe.bytes, probe.kind, search);
            entry["template"] = kit::kindName(probe.kind);
            entry["faces"] = Json::array();
            add(kit::identityJson(identity), identity);
            return;
        }
        Photo photo = decoded(call, upload, entry);
        const kit::IdentifiedFaces found = kit::identifyFaces(api, *gallery, photo, search);
        kit::refuseCrowd(found.faces.size());
        kit::putFaces(entry, found.milliseconds);
        for (const kit::IdentifiedFace& face : found.faces)
            add(kit::identityJson(face), face.identity);
    });
}

Answer makeTemplate(Call& call) {
    return aboutPhoto(call, [&](FaceApi& api, Json& entry, Json& document) {
        Photo photo = decoded(call, onlyUpload(call), entry);
        const kit::LargestFace largest = kit::largestFace(api, photo);
        kit::putFaces(entry, largest.milliseconds);
        putFace(call, entry, kit::largestFaceJson(largest));
        const Kind kind = call.word("kind", "bare") == "masked" ? Kind::Masked : Kind::Bare;
        document["kind"] = kit::kindName(kind);
        document["template"] = base64(kit::templateOf(api.instance(), photo, largest.face, kind));
    });
}

} // namespace veldan::service
