#ifndef VELDAN_SERVICE_PROBLEM_HPP
#define VELDAN_SERVICE_PROBLEM_HPP

#include "report/exit_codes.hpp"
#include "report/json.hpp"

#include <stdexcept>
#include <string>

namespace veldan::service {

using kit::Json;

/** What a status is called, such as "Not Found". */
const char* phraseOf(int status);

/** A request that is answered with a problem document. */
class Problem : public std::runtime_error {
public:
    Problem(int status, const std::string& detail) : std::runtime_error(detail), status_(status) {}
    /** As the command names the failure. */
    explicit Problem(const kit::CommandError& error);

    int status() const { return status_; }
    /** Further members of the document. */
    Problem& with(const char* key, Json value) {
        members_[key] = std::move(value);
        return *this;
    }
    Json json() const;

private:
    int status_;
    Json members_ = Json::object();
};

inline constexpr const char* problemType = "application/problem+json";

} // namespace veldan::service

#endif
