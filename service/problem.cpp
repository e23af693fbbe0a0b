#include "problem.hpp"

#include <algorithm>
#include <array>

namespace veldan::service {

namespace {

struct Status {
    int number;
    const char* phrase;
};

constexpr std::array<Status, 24> statuses = {{{200, "OK"},
                                              {201, "Created"},
                                              {204, "No Content"},
                                              {400, "Bad Request"},
                                              {401, "Unauthorized"},
                                              {403, "Forbidden"},
                                              {404, "Not Found"},
                                              {405, "Method Not Allowed"},
                                              {406, "Not Acceptable"},
                                              {408, "Request Timeout"},
                                              {409, "Conflict"},
                                              {411, "Length Required"},
                                              {413, "Content Too Large"},
                                              {414, "URI Too Long"},
                                              {415, "Unsupported Media Type"},
                                              {417, "Expectation Failed"},
                                              {421, "Misdirected Request"},
                                              {422, "Unprocessable Content"},
                                              {429, "Too Many Requests"},
                                              {431, "Request Header Fields Too Large"},
                                              {500, "Internal Server Error"},
                                              {501, "Not Implemented"},
                                              {503, "Service Unavailable"},
                                              {505, "HTTP Version Not Supported"}}};

int statusOf(kit::ExitCode code) {
    switch (code) {
    case kit::ExitCode::Usage:
        return 400;
    case kit::ExitCode::Missing:
        return 404;
    case kit::ExitCode::Unreadable:
    case kit::ExitCode::TooSmall:
    case kit::ExitCode::TooManyFaces:
    case kit::ExitCode::Unsuitable:
        return 422;
    case kit::ExitCode::NotWritten:
    case kit::ExitCode::Gallery:
        return 503;
    default:
        return 500;
    }
}

} // namespace

const char* phraseOf(int status) {
    const auto* row = std::find_if(statuses.begin(), statuses.end(),
                                   [status](const Status& candidate) { return candidate.number == status; });
    return row == statuses.end() ? "Unknown" : row->phrase;
}

Problem::Problem(const kit::CommandError& error) : Problem(statusOf(error.code()), error.what()) {
    with("code", kit::exitCodeName(error.code()));
}

Json Problem::json() const {
    Json json = {{"type", "about:blank"}, {"title", phraseOf(status_)}, {"status", status_}, {"detail", what()}};
    json.update(members_);
    return json;
}

} // namespace veldan::service
