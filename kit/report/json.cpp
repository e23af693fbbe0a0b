#include "report/json.hpp"

namespace veldan::kit {

std::string written(const Json& document, int indent) {
    return document.dump(indent, ' ', false, Json::error_handler_t::replace);
}

Json failureJson(ExitCode code, const std::string& message) {
    return {{"name", exitCodeName(code)}, {"code", static_cast<int>(code)}, {"message", message}};
}

} // namespace veldan::kit
