#include "gallery/location.hpp"

#include <regex>

namespace veldan::kit {

namespace {

bool beginsWith(const std::string& text, const char* beginning) {
    return text.rfind(beginning, 0) == 0;
}

bool isAddress(const std::string& location) {
    return beginsWith(location, "postgresql://") || beginsWith(location, "postgres://");
}

} // namespace

bool isServer(const std::string& location) {
    return isAddress(location) || beginsWith(location, "service=");
}

std::string shownLocation(const std::string& location) {
    if (!isServer(location))
        return location;
    std::string shown = location;
    if (isAddress(shown)) {
        // In doubt too much: a password with a character that had to be written otherwise must not show either.
        const std::size_t user = shown.find("://") + 3;
        const std::size_t colon = shown.find_first_of(":@", user);
        const std::size_t at = shown.rfind('@');
        if (colon != std::string::npos && shown[colon] == ':' && at != std::string::npos && at > colon)
            shown.erase(colon, at - colon);
        static const std::regex parameter("(password=)[^&]*", std::regex::icase);
        return std::regex_replace(shown, parameter, "$1...");
    }
    // Whatever follows it may belong to it.
    static const std::regex keyword("(password[ \\t\\n]*=)[^]*", std::regex::icase);
    return std::regex_replace(shown, keyword, "$1...");
}

} // namespace veldan::kit
