#include "routes.hpp"

#include "report/similarity.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>

namespace veldan::service {

namespace {

using Type = Parameter::Type;

const Parameter threshold{"threshold", Type::Similarity, 0, 1, {}, "Similarity from which it is the same person."};

const std::vector<Parameter>& enrolmentParameters() {
    static const std::vector<Parameter> parameters = {
        {"minQuality", Type::Integer, 0, 100, {}, "Least quality of a face."},
        {"largest", Type::Flag, 0, 1, {}, "Take the largest face of a photo that shows several."}};
    return parameters;
}

std::vector<std::string> segmentsOf(const std::string& path) {
    std::vector<std::string> segments;
    std::size_t at = 1;
    while (at <= path.size()) {
        const std::size_t end = std::min(path.find('/', at), path.size());
        segments.push_back(path.substr(at, end - at));
        at = end + 1;
    }
    return segments;
}

bool isVariable(const std::string& segment) {
    return !segment.empty() && segment.front() == '{';
}

const std::string* valueOf(const std::map<std::string, std::string>& query, const char* name) {
    const auto value = query.find(name);
    return value == query.end() ? nullptr : &value->second;
}

int digit(char c) {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

} // namespace

const char* nameOf(Role role) {
    static constexpr std::array<const char*, 4> names = {"nobody", "read", "enrol", "admin"};
    return names.at(static_cast<std::size_t>(role));
}

std::optional<Role> roleOf(const std::string& name) {
    for (const Role role : {Role::Read, Role::Enrol, Role::Admin})
        if (name == nameOf(role))
            return role;
    return std::nullopt;
}

double Call::similarity(const char* name, double otherwise) const {
    const std::string* value = valueOf(query, name);
    return value == nullptr ? otherwise : kit::similarityFrom(*value);
}

int Call::integer(const char* name, int otherwise) const {
    const std::string* value = valueOf(query, name);
    return value == nullptr ? otherwise : std::atoi(value->c_str());
}

bool Call::flag(const char* name) const {
    const std::string* value = valueOf(query, name);
    return value != nullptr && (*value == "true" || *value == "1");
}

std::string Call::word(const char* name, const char* otherwise) const {
    const std::string* value = valueOf(query, name);
    return value == nullptr ? otherwise : *value;
}

Answer Answer::json(const Json& document, int status) {
    Answer answer;
    answer.status = status;
    answer.body = kit::written(document, -1) + "\n";
    return answer;
}

const std::vector<Route>& routes() {
    static const std::vector<Route> table = {
        {"POST",
         "/v1/detect",
         "detectFaces",
         Role::Read,
         Body::Photo,
         {},
         "Find faces: box, five points, eye distance.",
         "Detection",
         {200, 422},
         detectFaces},
        {"POST",
         "/v1/inspect",
         "inspectFaces",
         Role::Read,
         Body::Photo,
         {{"light",
           Type::Word,
           0,
           0,
           {"visible", "near-infrared"},
           "Near-infrared judges the liveness of a grey photo as a near-infrared frame."}},
         "Find faces and judge them: quality, sharp, frontal, mask, liveness.",
         "Inspection",
         {200, 422},
         inspectFaces},
        {"POST",
         "/v1/match",
         "matchFaces",
         Role::Read,
         Body::TwoPhotos,
         {threshold, {"masked", Type::Flag, 0, 1, {}, "Compare as faces with masks."}},
         "Compare the largest faces of two photos.",
         "Comparison",
         {200, 422},
         matchFaces},
        {"POST",
         "/v1/identify",
         "identifyFaces",
         Role::Read,
         Body::Photo,
         {threshold,
          {"maskThreshold", Type::Similarity, 0, 1, {}, "The same for a face with a mask."},
          {"top", Type::Integer, 1, 100, {}, "Tell so many of the nearest persons as well."}},
         "Say who is in a photo.",
         "Identification",
         {200, 422},
         identifyFaces},
        {"POST",
         "/v1/templates",
         "makeTemplate",
         Role::Read,
         Body::Photo,
         {{"kind", Type::Word, 0, 0, {"bare", "masked"}, "Which faces it is compared with."}},
         "Make the template of the largest face.",
         "TemplateOfPhoto",
         {200, 422},
         makeTemplate},
        {"GET",
         "/v1/people",
         "listPeople",
         Role::Read,
         Body::None,
         {},
         "List the persons of the gallery.",
         "People",
         {200},
         listPeople},
        {"POST",
         "/v1/people",
         "addPerson",
         Role::Enrol,
         Body::Person,
         enrolmentParameters(),
         "Enrol a new person.",
         "Enrolment",
         {201, 409, 422},
         addPerson},
        {"GET",
         "/v1/people/{person}",
         "showPerson",
         Role::Read,
         Body::None,
         {},
         "Show a person with all photos.",
         "Person",
         {200, 404},
         showPerson},
        {"PATCH",
         "/v1/people/{person}",
         "changePerson",
         Role::Admin,
         Body::NewName,
         {},
         "Rename a person, or merge it into another one.",
         "Changed",
         {200, 404, 409},
         changePerson},
        {"DELETE",
         "/v1/people/{person}",
         "removePerson",
         Role::Admin,
         Body::None,
         {},
         "Remove a person with all photos; what was stored is overwritten.",
         "Removed",
         {200, 404},
         removePerson},
        {"GET",
         "/v1/people/{person}/photos",
         "listPhotos",
         Role::Read,
         Body::None,
         {},
         "List the photos of a person.",
         "Person",
         {200, 404},
         listPhotos},
        {"POST",
         "/v1/people/{person}/photos",
         "addPhotos",
         Role::Enrol,
         Body::Photos,
         enrolmentParameters(),
         "Enrol further photos of a person.",
         "Enrolment",
         {200, 201, 404, 422},
         addPhotos},
        {"GET",
         "/v1/people/{person}/photos/{photo}",
         "showPhoto",
         Role::Read,
         Body::None,
         {},
         "Show a photo by its digest, without its picture, which is not kept.",
         "Photo",
         {200, 404},
         showPhoto},
        {"DELETE",
         "/v1/people/{person}/photos/{photo}",
         "removePhoto",
         Role::Admin,
         Body::None,
         {},
         "Remove a photo by its digest, and the person with the last one.",
         "Removed",
         {200, 404},
         removePhoto},
        {"GET",
         "/v1/version",
         "tellVersion",
         Role::Read,
         Body::None,
         {},
         "Versions of the service and the library.",
         "Version",
         {200},
         tellVersion},
        {"GET",
         "/healthz",
         "tellHealth",
         Role::Nobody,
         Body::None,
         {},
         "The process is alive.",
         "text/plain",
         {200},
         tellHealth},
        {"GET",
         "/readyz",
         "tellReadiness",
         Role::Nobody,
         Body::None,
         {},
         "The service takes requests.",
         "text/plain",
         {200},
         tellReadiness},
        {"GET",
         "/metrics",
         "tellMetrics",
         Role::Read,
         Body::None,
         {},
         "Figures in the text format of Prometheus.",
         "text/plain; version=0.0.4",
         {200},
         tellMetrics},
        {"GET",
         "/openapi.json",
         "tellOpenApi",
         Role::Nobody,
         Body::None,
         {},
         "This document.",
         "OpenApi",
         {200},
         tellOpenApi},
    };
    return table;
}

std::vector<const Route*> routesAt(const std::vector<std::string>& segments, std::vector<std::string>& values) {
    std::vector<const Route*> found;
    for (const Route& route : routes()) {
        const std::vector<std::string> wanted = segmentsOf(route.path);
        if (!std::equal(wanted.begin(), wanted.end(), segments.begin(), segments.end(),
                        [](const std::string& one, const std::string& is) {
                            return isVariable(one) ? !is.empty() : one == is;
                        }))
            continue;
        found.push_back(&route);
        values.clear();
        for (std::size_t i = 0; i < wanted.size(); ++i)
            if (isVariable(wanted[i]))
                values.push_back(segments[i]);
    }
    return found;
}

std::optional<std::string> percentDecoded(const std::string& text, bool plusIsSpace) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '+' && plusIsSpace) {
            decoded += ' ';
        } else if (text[i] != '%') {
            decoded += text[i];
        } else {
            const int high = i + 2 < text.size() ? digit(text[i + 1]) : -1;
            const int low = i + 2 < text.size() ? digit(text[i + 2]) : -1;
            if (high < 0 || low < 0 || (high == 0 && low == 0))
                return std::nullopt;
            decoded += static_cast<char>(high * 16 + low);
            i += 2;
        }
    }
    return decoded;
}

} // namespace veldan::service
