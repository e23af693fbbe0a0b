#ifndef VELDAN_SERVICE_REQUEST_HEAD_HPP
#define VELDAN_SERVICE_REQUEST_HEAD_HPP

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace veldan::service {

/** Most bytes of a request line and its header fields. */
inline constexpr std::size_t mostHeadBytes = 16384;

/** What a request says before its body. */
struct RequestHead {
    std::string method;
    std::string target;
    std::string host;
    std::string origin;
    std::string authorization;
    std::string contentType;
    std::uint64_t bodyBytes = 0;
    bool hasBodyLength = false;
    std::string forwarded; ///< the head again, with the fields alone that the rest of the server knows
};

/**
 * Reads a head, with the empty line that ends it, and takes nothing that two programs might understand differently:
 * that is how requests are smuggled past one of them. Throws Problem.
 */
RequestHead readHead(std::string_view text);

} // namespace veldan::service

#endif
