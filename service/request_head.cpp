#include "request_head.hpp"

#include "problem.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace veldan::service {

namespace {

constexpr std::size_t mostFields = 64;
constexpr std::size_t longestLine = 8000; // cpp-httplib reads lines of 8192 bytes
constexpr std::size_t longestTarget = 4096;

bool isTokenCharacter(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 ||
           std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

bool isVisible(char c) {
    return c > ' ' && c < '\x7f';
}

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    for (char& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return lower;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t'))
        text.remove_prefix(1);
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t'))
        text.remove_suffix(1);
    return text;
}

/** The next line, without its end. Lines end with CR LF and hold neither of them. */
std::string_view takeLine(std::string_view& text) {
    const std::size_t end = text.find("\r\n");
    if (end == std::string_view::npos)
        throw Problem(400, "a line of the head has no end");
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end + 2);
    if (line.find_first_of(std::string_view("\r\n\0", 3)) != std::string_view::npos)
        throw Problem(400, "a line of the head holds a control character");
    return line;
}

void readRequestLine(std::string_view line, RequestHead& head) {
    const std::size_t first = line.find(' ');
    const std::size_t second = first == std::string_view::npos ? first : line.find(' ', first + 1);
    if (second == std::string_view::npos)
        throw Problem(400, "not a request line");
    head.method = std::string(line.substr(0, first));
    head.target = std::string(line.substr(first + 1, second - first - 1));
    const std::string_view version = line.substr(second + 1);
    if (!isToken(head.method))
        throw Problem(400, "the method is none");
    if (head.target.size() > longestTarget)
        throw Problem(414, "the target is longer than " + std::to_string(longestTarget) + " bytes");
    if (head.target.empty() || head.target.front() != '/' ||
        !std::all_of(head.target.begin(), head.target.end(), isVisible))
        throw Problem(400, "the target has to be a path of visible ASCII");
    if (head.target.find('#') != std::string::npos)
        throw Problem(400, "a fragment is not sent");
    if (version != "HTTP/1.1" && version != "HTTP/1.0") {
        if (version.substr(0, 5) == "HTTP/")
            throw Problem(505, "HTTP/1.1 is spoken here");
        throw Problem(400, "not a request line");
    }
    if (version == "HTTP/1.0")
        head.host = "-"; // may be missing
}

void readLength(std::string_view value, RequestHead& head) {
    if (head.hasBodyLength)
        throw Problem(400, "Content-Length stands there twice");
    if (value.empty() || value.size() > 15 || value.find_first_not_of("0123456789") != std::string_view::npos)
        throw Problem(400, "Content-Length is no number");
    head.hasBodyLength = true;
    for (const char c : value)
        head.bodyBytes = head.bodyBytes * 10 + static_cast<std::uint64_t>(c - '0');
}

} // namespace

RequestHead readHead(std::string_view text) {
    RequestHead head;
    const std::string_view requestLine = takeLine(text);
    readRequestLine(requestLine, head);
    bool hasHost = false;
    bool hasCoding = false;
    bool hasAuthorization = false;
    bool hasType = false;
    std::size_t fields = 0;
    head.forwarded = std::string(requestLine) + "\r\n";
    const auto forward = [&](const char* name, std::string_view value) {
        head.forwarded += std::string(name) + ": " + std::string(value) + "\r\n";
    };
    while (true) {
        const std::string_view line = takeLine(text);
        if (line.empty())
            break;
        if (++fields > mostFields || line.size() > longestLine)
            throw Problem(431, "at most " + std::to_string(mostFields) + " header fields of " +
                                   std::to_string(longestLine) + " bytes are read");
        const std::size_t colon = line.find(':');
        if (colon == std::string_view::npos || !isToken(line.substr(0, colon)))
            throw Problem(400, "a header field has no proper name");
        const std::string name = lowerCase(line.substr(0, colon));
        const std::string_view value = trimmed(line.substr(colon + 1));
        if (std::any_of(value.begin(), value.end(),
                        [](char c) { return (c >= 0 && c < ' ' && c != '\t') || c == '\x7f'; }))
            throw Problem(400, "a header field holds a control character");
        if (name == "content-length") {
            readLength(value, head);
        } else if (name == "transfer-encoding") {
            hasCoding = true;
        } else if (name == "content-encoding" && lowerCase(value) != "identity") {
            throw Problem(415, "compressed bodies are not read");
        } else if (name == "host") {
            if (std::exchange(hasHost, true))
                throw Problem(400, "Host stands there twice");
            head.host = lowerCase(value);
            if (value.empty() || !std::all_of(value.begin(), value.end(), isVisible) ||
                value.find_first_of("/@?#,\\") != std::string_view::npos)
                throw Problem(400, "Host names no host");
        } else if (name == "origin") {
            head.origin = lowerCase(value);
        } else if (name == "authorization") {
            if (std::exchange(hasAuthorization, true))
                throw Problem(400, "Authorization stands there twice");
            head.authorization = std::string(value);
        } else if (name == "expect" && lowerCase(value) != "100-continue") {
            throw Problem(417, "only 100-continue can be expected");
        } else if (name == "content-type") {
            if (std::exchange(hasType, true))
                throw Problem(400, "Content-Type stands there twice");
            head.contentType = std::string(value);
            forward("Content-Type", value);
        } else if (name == "connection") {
            forward("Connection", lowerCase(value));
        } else if (name == "expect") {
            forward("Expect", "100-continue");
        }
    }
    if (head.host.empty())
        throw Problem(400, "Host is missing");
    if (hasCoding && head.hasBodyLength)
        throw Problem(400, "Content-Length and Transfer-Encoding exclude each other");
    if (hasCoding)
        throw Problem(411, "bodies need a Content-Length; no transfer coding is read");
    forward("Content-Length", std::to_string(head.bodyBytes));
    head.forwarded += "\r\n";
    return head;
}

} // namespace veldan::service
