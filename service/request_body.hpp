#ifndef VELDAN_SERVICE_REQUEST_BODY_HPP
#define VELDAN_SERVICE_REQUEST_BODY_HPP

#include "routes.hpp"

#include <string>
#include <vector>

namespace veldan::service {

/** A part of a multipart body. */
struct Part {
    std::string name;
    std::string fileName;
    std::string type;
    const std::string* content;
};

/** Throws Problem (415) when bodies of this media type cannot hold what a route wants. */
void requireType(Body wanted, const std::string& type);

/**
 * Takes what a route wants from the parts of a body into a call, and refuses everything else. Throws Problem.
 */
void takeParts(Body wanted, const std::vector<Part>& parts, Call& call);

/** The same for a body without parts. */
void takeWhole(Body wanted, const std::string& body, Call& call);

/** The call's query, checked against the route's parameters. @param text  what stands behind the "?". Throws Problem.
 */
void takeQuery(const Route& route, const std::string& text, Call& call);

} // namespace veldan::service

#endif
