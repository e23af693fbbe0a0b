#include "request_body.hpp"

#include "report/printable.hpp"
#include "report/similarity.hpp"

#include <algorithm>
#include <cctype>
#include <cstddef>
#include <utility>

namespace veldan::service {

namespace {

constexpr std::size_t mostPhotos = 16;
constexpr std::size_t mostFieldBytes = 1000;
constexpr std::size_t mostJsonBytes = 4096;
constexpr std::size_t mostNameBytes = 200;
constexpr int mostJsonDepth = 4;

/** The last part of a file's name, fit for documents and terminals. */
std::string plainName(const std::string& name) {
    std::string plain = kit::printable(name.substr(name.find_last_of("/\\") + 1));
    if (plain.size() > mostNameBytes)
        plain = kit::printable(plain.substr(0, mostNameBytes));
    return plain.empty() ? "photo" : plain;
}

std::string mediaType(const std::string& type) {
    std::string plain = type.substr(0, type.find(';'));
    while (!plain.empty() && plain.back() == ' ')
        plain.pop_back();
    for (char& c : plain)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return plain;
}

void addUpload(Call& call, const std::string& part, const std::string& name, const std::string& bytes) {
    if (bytes.empty())
        throw Problem(422, "the photo is empty");
    call.uploads[part].push_back({name, {bytes.begin(), bytes.end()}});
}

void requireCount(const Call& call, const char* part, std::size_t most) {
    const auto uploads = call.uploads.find(part);
    const std::size_t count = uploads == call.uploads.end() ? 0 : uploads->second.size();
    if (count == 0)
        throw Problem(422, std::string("a photo is missing: the part \"") + part + "\"");
    if (count > most)
        throw Problem(422, "at most " + std::to_string(most) + " of the part \"" + part + "\" are taken");
}

bool isPhotoPart(Body wanted, const std::string& name) {
    return wanted == Body::TwoPhotos ? name == "a" || name == "b" : name == "photo";
}

void takeJson(const std::string& body, Call& call) {
    if (body.size() > mostJsonBytes)
        throw Problem(413, "at most " + std::to_string(mostJsonBytes) + " bytes of JSON are read");
    bool tooDeep = false;
    const Json document = Json::parse(
        body,
        [&](int depth, Json::parse_event_t, Json&) {
            tooDeep = tooDeep || depth > mostJsonDepth;
            return !tooDeep;
        },
        false);
    if (tooDeep || document.is_discarded())
        throw Problem(400, "the body is no JSON, or too deep");
    if (!document.is_object() || document.count("name") == 0 || !document["name"].is_string())
        throw Problem(422, "an object with the text \"name\" is wanted");
    for (const auto& [key, value] : document.items()) {
        if (key == "name")
            call.fields[key] = value.get<std::string>();
        else if (key == "merge" && value.is_boolean())
            call.fields[key] = value.get<bool>() ? "true" : "false";
        else
            throw Problem(422, "only \"name\" and the truth value \"merge\" are known");
    }
}

void requireValue(const Parameter& parameter, const std::string& value) {
    const std::string name = std::string("\"") + parameter.name + "\"";
    const auto refuse = [&](const std::string& wanted) { throw Problem(400, name + " has to be " + wanted); };
    switch (parameter.type) {
    case Parameter::Type::Similarity:
        try {
            kit::similarityFrom(value);
        } catch (const kit::CommandError&) {
            refuse("a similarity from 0 to 1");
        }
        break;
    case Parameter::Type::Integer: {
        const bool digits =
            !value.empty() && value.size() <= 6 && value.find_first_not_of("0123456789") == std::string::npos;
        const int number = digits ? std::stoi(value) : -1;
        if (number < parameter.least || number > parameter.most)
            refuse("a number from " + std::to_string(parameter.least) + " to " + std::to_string(parameter.most));
        break;
    }
    case Parameter::Type::Flag:
        if (value != "true" && value != "false")
            refuse("true or false");
        break;
    case Parameter::Type::Word:
        if (std::find(parameter.words.begin(), parameter.words.end(), value) == parameter.words.end())
            refuse("one of the words that /openapi.json names");
    }
}

} // namespace

void requireType(Body wanted, const std::string& type) {
    const std::string media = mediaType(type);
    if (wanted == Body::NewName) {
        if (media != "application/json")
            throw Problem(415, "JSON is wanted: application/json");
        return;
    }
    if (media == "multipart/form-data")
        return;
    if (wanted != Body::Photo && wanted != Body::Photos)
        throw Problem(415, "parts are wanted: multipart/form-data");
    if (!media.empty() && media != "application/octet-stream" && media.compare(0, 6, "image/") != 0)
        throw Problem(415, "a photo is wanted: image/..., application/octet-stream or multipart/form-data");
}

void takeParts(Body wanted, const std::vector<Part>& parts, Call& call) {
    for (const Part& part : parts) {
        if (isPhotoPart(wanted, part.name)) {
            addUpload(call, part.name, plainName(part.fileName), *part.content);
        } else if (wanted == Body::Person && part.name == "name") {
            if (part.content->size() > mostFieldBytes || !call.fields.emplace(part.name, *part.content).second)
                throw Problem(422,
                              "one part \"name\" of at most " + std::to_string(mostFieldBytes) + " bytes is taken");
        } else {
            throw Problem(422, "a part \"" + plainName(part.name) + "\" is not known here");
        }
    }
    if (wanted == Body::Person && call.fields.count("name") == 0)
        throw Problem(422, "the part \"name\" is missing");
    if (wanted == Body::TwoPhotos) {
        requireCount(call, "a", 1);
        requireCount(call, "b", 1);
    } else {
        requireCount(call, "photo", wanted == Body::Photo ? 1 : mostPhotos);
    }
}

void takeWhole(Body wanted, const std::string& body, Call& call) {
    if (wanted == Body::NewName)
        takeJson(body, call);
    else
        addUpload(call, "photo", "photo", body);
}

void takeQuery(const Route& route, const std::string& text, Call& call) {
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t end = std::min(text.find('&', at), text.size());
        const std::string pair = text.substr(at, end - at);
        at = end + 1;
        const std::size_t equals = std::min(pair.find('='), pair.size());
        const auto name = percentDecoded(pair.substr(0, equals), true);
        const auto value = percentDecoded(pair.substr(std::min(equals + 1, pair.size())), true);
        if (!name || !value)
            throw Problem(400, "the query is not encoded as it should be");
        const auto parameter = std::find_if(route.query.begin(), route.query.end(),
                                            [&](const Parameter& candidate) { return *name == candidate.name; });
        if (parameter == route.query.end())
            throw Problem(400, "the parameter \"" + plainName(*name) + "\" is not known here");
        requireValue(*parameter, *value);
        if (!call.query.emplace(*name, *value).second)
            throw Problem(400, "the parameter \"" + *name + "\" stands there twice");
    }
}

} // namespace veldan::service
