#ifndef VELDAN_SERVICE_ROUTES_HPP
#define VELDAN_SERVICE_ROUTES_HPP

#include "problem.hpp"

#include <map>
#include <optional>
#include <string>
#include <vector>

namespace veldan::service {

struct Services;

/** What somebody may do; each role may do what the ones before it may. */
enum class Role { Nobody, Read, Enrol, Admin };

const char* nameOf(Role role);
std::optional<Role> roleOf(const std::string& name);

/** What the body of a request holds. */
enum class Body {
    None,
    Photo,     ///< one photo or template
    TwoPhotos, ///< in parts "a" and "b"
    Photos,    ///< one or more
    Person,    ///< part "name" and photos
    NewName    ///< JSON
};

/** A file that came in a request. */
struct Upload {
    std::string name; ///< as the client calls it
    std::vector<unsigned char> bytes;
};

/** A parameter of a query. */
struct Parameter {
    enum class Type { Similarity, Integer, Flag, Word };

    const char* name;
    Type type;
    int least; ///< of an integer
    int most;
    std::vector<const char*> words; ///< that a word is one of
    const char* meaning;
};

/** A request, once it is known what it asks for and that its sender may. */
struct Call {
    Services& services;
    std::vector<std::string> segments;        ///< what the path has in place of {...}, decoded
    std::map<std::string, std::string> query; ///< checked against the route's parameters
    std::string caller;                       ///< name of the token; empty without tokens
    std::string remote;
    std::map<std::string, std::vector<Upload>> uploads; ///< by name of the part; of a body without parts "photo"
    std::map<std::string, std::string> fields;          ///< parts and JSON members that are text

    double similarity(const char* name, double otherwise) const;
    int integer(const char* name, int otherwise) const;
    bool flag(const char* name) const;
    std::string word(const char* name, const char* otherwise) const;
};

/** What is answered. */
struct Answer {
    int status = 200;
    std::string type = "application/json";
    std::string body;
    std::map<std::string, std::string> headers{};

    static Answer json(const Json& document, int status = 200);
};

/** A route of the service. The table of them is what requests, documents and tests go by. */
struct Route {
    const char* method;
    const char* path; ///< with {...} for segments that differ
    const char* operation;
    Role role;
    Body body;
    std::vector<Parameter> query;
    const char* summary;
    const char* schema;        ///< of the answer, in schemas.json; of none that is not JSON the media type
    std::vector<int> statuses; ///< of answers, but for those that every request may get
    Answer (*handler)(Call& call);
};

const std::vector<Route>& routes();

/** The routes whose path fits, of any method, and the segments that stand for {...}. */
std::vector<const Route*> routesAt(const std::vector<std::string>& segments, std::vector<std::string>& values);

/** The OpenAPI document of the table. */
Json openApi();

/** A segment or word of a query without its percent signs; nothing when one of them means nothing. */
std::optional<std::string> percentDecoded(const std::string& text, bool plusIsSpace);

/** A text as a segment of a path. */
std::string percentEncoded(const std::string& text);

/** @name Handlers */
///@{
Answer detectFaces(Call& call);
Answer inspectFaces(Call& call);
Answer matchFaces(Call& call);
Answer identifyFaces(Call& call);
Answer makeTemplate(Call& call);
Answer listPeople(Call& call);
Answer addPerson(Call& call);
Answer showPerson(Call& call);
Answer changePerson(Call& call);
Answer removePerson(Call& call);
Answer listPhotos(Call& call);
Answer addPhotos(Call& call);
Answer showPhoto(Call& call);
Answer removePhoto(Call& call);
Answer tellVersion(Call& call);
Answer tellHealth(Call& call);
Answer tellReadiness(Call& call);
Answer tellMetrics(Call& call);
Answer tellOpenApi(Call& call);
///@}

} // namespace veldan::service

#endif
