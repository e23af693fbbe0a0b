#include "routes.hpp"

#include <string_view>

namespace veldan::service {

namespace {

constexpr const char* schemas =
#include "schemas.inc"
    ;

Json reference(const std::string& name) {
    return {{"$ref", "#/components/schemas/" + name}};
}

Json content(const std::string& type, Json schema) {
    return {{type, {{"schema", std::move(schema)}}}};
}

Json binary() {
    return {{"type", "string"}, {"contentMediaType", "application/octet-stream"}};
}

Json parts(Json properties, Json required) {
    return content("multipart/form-data", {{"type", "object"},
                                           {"properties", std::move(properties)},
                                           {"required", std::move(required)},
                                           {"additionalProperties", false}});
}

Json photoBody(bool several) {
    const Json photos = several ? Json{{"type", "array"}, {"items", binary()}, {"maxItems", 16}} : binary();
    Json body = content("image/*", Json::object());
    body.update(content("application/octet-stream", Json::object()));
    body.update(parts({{"photo", photos}}, Json::array({"photo"})));
    return body;
}

Json bodyOf(Body body) {
    const Json photos = {{"type", "array"}, {"items", binary()}, {"maxItems", 16}};
    switch (body) {
    case Body::Photo:
        return photoBody(false);
    case Body::Photos:
        return photoBody(true);
    case Body::TwoPhotos:
        return parts({{"a", binary()}, {"b", binary()}}, Json::array({"a", "b"}));
    case Body::Person:
        return parts({{"name", {{"type", "string"}, {"maxLength", 200}}}, {"photo", photos}},
                     Json::array({"name", "photo"}));
    case Body::NewName:
        return content("application/json", reference("Change"));
    case Body::None:
        break;
    }
    return nullptr;
}

Json schemaOf(const Parameter& parameter) {
    switch (parameter.type) {
    case Parameter::Type::Similarity:
        return {{"type", "number"}, {"minimum", 0}, {"maximum", 1}};
    case Parameter::Type::Integer:
        return {{"type", "integer"}, {"minimum", parameter.least}, {"maximum", parameter.most}};
    case Parameter::Type::Flag:
        return {{"type", "boolean"}};
    case Parameter::Type::Word:
        break;
    }
    return {{"type", "string"}, {"enum", parameter.words}};
}

Json parametersOf(const Route& route) {
    Json parameters = Json::array();
    const std::string path = route.path;
    for (std::size_t at = path.find('{'); at != std::string::npos; at = path.find('{', at + 1)) {
        const std::string name = path.substr(at + 1, path.find('}', at) - at - 1);
        parameters.push_back({{"name", name},
                              {"in", "path"},
                              {"required", true},
                              {"description", name == "person" ? "The person's name." : "The photo's digest."},
                              {"schema", {{"type", "string"}}}});
    }
    for (const Parameter& parameter : route.query)
        parameters.push_back({{"name", parameter.name},
                              {"in", "query"},
                              {"description", parameter.meaning},
                              {"schema", schemaOf(parameter)}});
    return parameters;
}

Json responsesOf(const Route& route) {
    Json responses = Json::object();
    const std::string schema = route.schema;
    const bool json = schema.find('/') == std::string::npos;
    for (const int status : route.statuses)
        responses[std::to_string(status)] =
            status < 300
                ? Json{{"description", phraseOf(status)},
                       {"content",
                        json ? content("application/json", reference(schema)) : content(schema, {{"type", "string"}})}}
                : Json{{"description", phraseOf(status)}, {"content", content(problemType, reference("Problem"))}};
    responses["default"] = {{"description", "What every request may be answered: see Problem."},
                            {"content", content(problemType, reference("Problem"))}};
    return responses;
}

} // namespace

Json openApi() {
    Json paths = Json::object();
    for (const Route& route : routes()) {
        std::string method = route.method;
        for (char& c : method)
            c = static_cast<char>(c - 'A' + 'a');
        Json operation = {{"operationId", route.operation},
                          {"summary", route.summary},
                          {"description", route.role == Role::Nobody
                                              ? std::string("Needs no token.")
                                              : std::string("Needs the role ") + nameOf(route.role) + "."}};
        if (Json parameters = parametersOf(route); !parameters.empty())
            operation["parameters"] = std::move(parameters);
        if (Json body = bodyOf(route.body); !body.is_null())
            operation["requestBody"] = {{"required", true}, {"content", std::move(body)}};
        operation["responses"] = responsesOf(route);
        if (route.role == Role::Nobody)
            operation["security"] = Json::array();
        paths[route.path][method] = std::move(operation);
    }
    return {{"openapi", "3.1.0"},
            {"info",
             {{"title", "Veldan Face SDK"},
              {"version", VELDAN_VERSION},
              {"description", "Finds, judges and recognises faces. Answers are the documents that the veldan command "
                              "prints with --json."}}},
            {"jsonSchemaDialect", "https://json-schema.org/draft/2020-12/schema"},
            {"paths", std::move(paths)},
            {"components",
             {{"schemas", Json::parse(schemas)},
              {"securitySchemes", {{"token", {{"type", "http"}, {"scheme", "bearer"}}}}}}},
            {"security", Json::array({{{"token", Json::array()}}})}};
}

} // namespace veldan::service
