#include "gallery/exchange.hpp"

#include "report/exit_codes.hpp"

#include <veldan/model_store.hpp>

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace veldan::kit {

namespace {

constexpr const char* format = "veldan gallery";
constexpr int formatVersion = 1;

constexpr std::size_t encodedBytes = (templateBytes + 2) / 3 * 4;
constexpr std::size_t longestSource = 4096;

std::string encoded(const Template& one) {
    std::string text(encodedBytes, '\0');
    B64Encode(one.data(), static_cast<int>(one.size()), text.data(), static_cast<int>(text.size()));
    return text;
}

Template decoded(const std::string& text, const char* kind) {
    // Room for what decoding may write before it sees the padding.
    std::vector<unsigned char> bytes(encodedBytes / 4 * 3);
    Template one{};
    if (text.size() != encodedBytes ||
        B64Decode(text.data(), static_cast<int>(text.size()), bytes.data()) != static_cast<int>(one.size()))
        throw CommandError(ExitCode::Unreadable, std::string("the ") + kind + " template has a wrong length");
    std::copy_n(bytes.begin(), one.size(), one.begin());
    return one;
}

/** Whether the text looks like the pattern, in which 0 is any digit, x a hexadecimal one and all else is itself. */
bool matches(std::string_view text, std::string_view pattern) {
    return std::equal(text.begin(), text.end(), pattern.begin(), pattern.end(), [](char c, char wanted) {
        const bool digit = c >= '0' && c <= '9';
        if (wanted == '0')
            return digit;
        return wanted == 'x' ? digit || (c >= 'a' && c <= 'f') : c == wanted;
    });
}

bool isDigest(const std::string& text) {
    return matches(text, std::string(64, 'x'));
}

void require(bool condition, const char* complaint) {
    if (!condition)
        throw CommandError(ExitCode::Unreadable, complaint);
}

EnrolledPhoto photoFrom(const Json& json) {
    EnrolledPhoto photo;
    photo.source = json.at("photo").get<std::string>();
    photo.digest = json.at("digest").get<std::string>();
    photo.date = json.at("date").get<std::string>();
    photo.quality = json.at("quality").get<int>();
    photo.bare = decoded(json.at("bare").get<std::string>(), "bare");
    photo.masked = decoded(json.at("masked").get<std::string>(), "masked");
    require(photo.source.size() <= longestSource, "the photo's name is too long");
    require(isDigest(photo.digest), "the digest is no SHA-256 digest");
    require(matches(photo.date, "0000-00-00T00:00:00Z"), "the date is none");
    require(json.at("quality").is_number_integer() && photo.quality >= 0 && photo.quality <= 100,
            "the quality is not 0 to 100");
    const std::string damage = damageOf(photo);
    require(damage.empty(), damage.c_str());
    return photo;
}

/** A text of the document for messages, which may be anything. */
std::string shown(const Json& object, const char* key) {
    if (!object.is_object() || !object.contains(key) || !object[key].is_string())
        return std::string("no ") + key;
    return object[key].get<std::string>();
}

void readPerson(const Json& person, ExportedGallery& gallery) {
    const std::string name = shown(person, "name");
    std::string refusal = refusalOfName(name);
    if (!person.is_object() || !person.contains("name") || !person["name"].is_string())
        refusal = "a person needs a name";
    else if (refusal.empty() && (!person.contains("photos") || !person["photos"].is_array()))
        refusal = "there is no list of photos";
    if (!refusal.empty()) {
        gallery.unusable.push_back({name, refusal});
        return;
    }
    for (const Json& photo : person["photos"]) {
        try {
            gallery.photos.push_back({name, photoFrom(photo)});
        } catch (const CommandError& error) {
            gallery.unusable.push_back({name + ": " + shown(photo, "photo"), error.what()});
        } catch (const Json::exception&) {
            gallery.unusable.push_back({name + ": " + shown(photo, "photo"), "a field is missing or of a wrong type"});
        }
    }
}

} // namespace

Json exportedGallery(GalleryStore& store, std::vector<Unusable>& unusable) {
    Json document = {{"format", format},
                     {"version", formatVersion},
                     {"recognizers", {{"bare", store.recognizers().bare}, {"masked", store.recognizers().masked}}},
                     {"persons", Json::array()}};
    for (const PersonSummary& person : store.persons()) {
        Json photos = Json::array();
        for (const EnrolledPhoto& photo : store.photosOf(person.name)) {
            if (const std::string damage = damageOf(photo); !damage.empty()) {
                unusable.push_back({person.name + ": " + photo.source, damage});
                continue;
            }
            photos.push_back({{"photo", photo.source},
                              {"digest", photo.digest},
                              {"date", photo.date},
                              {"quality", photo.quality},
                              {"bare", encoded(photo.bare)},
                              {"masked", encoded(photo.masked)}});
        }
        if (!photos.empty())
            document["persons"].push_back({{"name", person.name}, {"photos", std::move(photos)}});
    }
    return document;
}

ExportedGallery readExport(const std::vector<unsigned char>& text) {
    const Json document = Json::parse(text.begin(), text.end(), nullptr, false);
    require(document.is_object() && shown(document, "format") == format, "not an exported gallery");
    require(document.contains("version") && document["version"].is_number_integer(), "not an exported gallery");
    if (document["version"].get<int>() > formatVersion)
        throw CommandError(ExitCode::Unreadable, "exported by a newer version of veldan; use that one");
    require(document.contains("persons") && document["persons"].is_array(), "holds no list of persons");
    require(document.contains("recognizers") && document["recognizers"].is_object(), "does not name its networks");
    ExportedGallery gallery;
    gallery.recognizers = {shown(document["recognizers"], "bare"), shown(document["recognizers"], "masked")};
    for (const Json& person : document["persons"])
        readPerson(person, gallery);
    return gallery;
}

} // namespace veldan::kit
