// Requests about the persons of the gallery.

#include "faces.hpp"
#include "gallery/digest.hpp"
#include "gallery/enrolment.hpp"
#include "gallery/listing.hpp"
#include "gallery/template_file.hpp"
#include "services.hpp"

#include <algorithm>
#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace veldan::service {

namespace {

using kit::EnrolledPhoto;
using kit::GalleryStore;

Problem nobody(const std::string& person) {
    return {404, "there is no \"" + person + "\""};
}

/** Photos of a person of the store. Throws Problem when there is no such person. */
std::vector<EnrolledPhoto> photosOf(GalleryStore& store, const std::string& person) {
    std::vector<EnrolledPhoto> photos = store.photosOf(person);
    if (photos.empty())
        throw nobody(person);
    return photos;
}

Json personWithPhotos(const std::string& name, const std::vector<EnrolledPhoto>& photos) {
    Json entries = Json::array();
    for (const EnrolledPhoto& photo : photos)
        entries.push_back(kit::photoJson(photo));
    return {{"version", VELDAN_VERSION}, {"name", name}, {"photos", std::move(entries)}};
}

void requireName(const std::string& name) {
    if (const std::string refusal = kit::refusalOfName(name); !refusal.empty())
        throw Problem(422, refusal);
}

/** What a photo gives a gallery, or why it gives nothing. */
struct Examined {
    Json entry;
    EnrolledPhoto photo;
    bool usable = false;
};

/** Examined by a worker. */
Examined examine(Call& call, kit::FaceApi& api, const std::string& person, const Upload& upload) {
    Examined result;
    result.entry = {{"photo", upload.name}, {"person", person}};
    result.photo.source = upload.name;
    result.photo.digest = kit::sha256(upload.bytes);
    result.entry["digest"] = result.photo.digest;
    try {
        kit::Photo picture = decoded(call, upload, result.entry);
        const kit::EnrolmentRules rules{call.integer("minQuality", kit::enrolmentQuality), call.flag("largest")};
        kit::takeFace(api, picture, rules, result.photo, [&](int quality) { result.entry["quality"] = quality; });
        result.photo.date = kit::dateNow();
        result.usable = true;
    } catch (const kit::CommandError& error) {
        if (error.code() != kit::ExitCode::Unsuitable && error.code() != kit::ExitCode::Unreadable &&
            error.code() != kit::ExitCode::TooSmall)
            throw;
        result.entry["error"] = kit::failureJson(error.code(), error.what());
    }
    return result;
}

const char* wordFor(GalleryStore::Added added) {
    switch (added) {
    case GalleryStore::Added::New:
        return "enrolled";
    case GalleryStore::Added::Repaired:
        return "repaired";
    case GalleryStore::Added::Unchanged:
        break;
    }
    return "unchanged";
}

/** All photos of a request that serve go into the gallery together; the answer comes once they are safe there. */
Answer enrol(Call& call, const std::string& person, bool isNew) {
    call.services.audit.require();
    std::vector<Examined> examined;
    for (const Upload& upload : call.uploads.at("photo"))
        inWorker(call, [&](kit::FaceApi& api) { examined.push_back(examine(call, api, person, upload)); });

    std::vector<kit::PersonPhoto> photos;
    for (const Examined& one : examined)
        if (one.usable)
            photos.push_back({person, one.photo});
    const auto entries = [&] {
        Json all = Json::array();
        for (Examined& one : examined)
            all.push_back(std::move(one.entry));
        return all;
    };
    if (photos.empty()) {
        const Json error = examined.front().entry["error"];
        throw Problem(422, error["message"].get<std::string>()).with("code", error["name"]).with("photos", entries());
    }
    std::vector<GalleryStore::Added> added;
    std::size_t count = 0;
    call.services.gallery.use([&](GalleryStore& store) {
        const bool known = !store.photosOf(person).empty();
        if (isNew && known)
            throw Problem(409, "there is a \"" + person + "\" already; photos are added at its own address");
        if (!isNew && !known)
            throw nobody(person);
        added = store.add(photos);
        count = store.photosOf(person).size();
    });
    bool anyNew = false;
    std::size_t next = 0;
    for (Examined& one : examined) {
        if (!one.usable)
            continue;
        anyNew = anyNew || added[next] == GalleryStore::Added::New;
        one.entry["result"] = wordFor(added[next]);
        call.services.audit.write(call, "photo " + std::string(wordFor(added[next])), person, one.photo.digest);
        ++next;
    }
    Answer answer = Answer::json(
        {{"version", VELDAN_VERSION}, {"person", {{"name", person}, {"photos", count}}}, {"photos", entries()}},
        anyNew ? 201 : 200);
    if (isNew)
        answer.headers["Location"] = "/v1/people/" + percentEncoded(person);
    return answer;
}

} // namespace

std::string percentEncoded(const std::string& text) {
    static constexpr const char* digits = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const bool plain = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') ||
                           (byte >= 'a' && byte <= 'z') || c == '-' || c == '.' || c == '_' || c == '~';
        if (plain) {
            encoded += c;
        } else {
            encoded += '%';
            encoded += digits[byte >> 4U];
            encoded += digits[byte & 15U];
        }
    }
    return encoded;
}

Answer listPeople(Call& call) {
    Json document = {{"version", VELDAN_VERSION}};
    call.services.gallery.use([&](GalleryStore& store) {
        document["recognizers"] = kit::recognizersJson(store.recognizers());
        document["persons"] = Json::array();
        for (const kit::PersonSummary& person : store.persons())
            document["persons"].push_back(kit::personJson(person));
    });
    return Answer::json(document);
}

Answer addPerson(Call& call) {
    const std::string& name = call.fields.at("name");
    requireName(name);
    call.services.gallery.use([&](GalleryStore& store) {
        if (!store.photosOf(name).empty())
            throw Problem(409, "there is a \"" + name + "\" already; photos are added at its own address");
    });
    return enrol(call, name, true);
}

Answer showPerson(Call& call) {
    std::vector<EnrolledPhoto> photos;
    const std::string& person = call.segments.front();
    call.services.gallery.use([&](GalleryStore& store) { photos = photosOf(store, person); });
    return Answer::json(personWithPhotos(person, photos));
}

Answer changePerson(Call& call) {
    const std::string& person = call.segments.front();
    const std::string& name = call.fields.at("name");
    const bool merge = call.fields.count("merge") > 0 && call.fields.at("merge") == "true";
    requireName(name);
    call.services.audit.require();
    std::size_t photos = 0;
    call.services.gallery.use([&](GalleryStore& store) {
        photos = photosOf(store, person).size();
        if (merge) {
            photosOf(store, name);
            photos = store.mergePerson(person, name);
            return;
        }
        if (person != name && !store.photosOf(name).empty())
            throw Problem(409, "there is a \"" + name + "\" already; \"merge\": true makes one person of both");
        store.renamePerson(person, name);
    });
    call.services.audit.write(call, merge ? "person merged" : "person renamed", person, name);
    Answer answer = Answer::json({{"version", VELDAN_VERSION}, {"name", name}, {"photos", photos}});
    answer.headers["Location"] = "/v1/people/" + percentEncoded(name);
    return answer;
}

Answer removePerson(Call& call) {
    const std::string& person = call.segments.front();
    call.services.audit.require();
    std::size_t photos = 0;
    call.services.gallery.use([&](GalleryStore& store) {
        photos = store.removePerson(person);
        if (photos == 0)
            throw nobody(person);
    });
    call.services.audit.write(call, "person removed", person, std::to_string(photos) + " photos");
    return Answer::json({{"version", VELDAN_VERSION}, {"name", person}, {"removed", photos}});
}

Answer listPhotos(Call& call) {
    return showPerson(call);
}

Answer addPhotos(Call& call) {
    const std::string& person = call.segments.front();
    call.services.gallery.use([&](GalleryStore& store) { photosOf(store, person); });
    return enrol(call, person, false);
}

Answer showPhoto(Call& call) {
    Json document = {{"version", VELDAN_VERSION}, {"name", call.segments.at(0)}};
    call.services.gallery.use([&](GalleryStore& store) {
        const std::vector<EnrolledPhoto> photos = photosOf(store, call.segments.at(0));
        const auto photo = std::find_if(photos.begin(), photos.end(), [&](const EnrolledPhoto& candidate) {
            return candidate.digest == call.segments.at(1);
        });
        if (photo == photos.end())
            throw Problem(404, "no photo of this person has that digest");
        document.update(kit::photoJson(*photo));
    });
    return Answer::json(document);
}

Answer removePhoto(Call& call) {
    const std::string& person = call.segments.at(0);
    const std::string& digest = call.segments.at(1);
    call.services.audit.require();
    call.services.gallery.use([&](GalleryStore& store) {
        photosOf(store, person);
        if (!store.removePhoto(person, digest))
            throw Problem(404, "no photo of this person has that digest");
    });
    call.services.audit.write(call, "photo removed", person, digest);
    return Answer::json({{"version", VELDAN_VERSION}, {"name", person}, {"removed", 1}});
}

} // namespace veldan::service
