#ifndef VELDAN_SERVICE_PAGE_HPP
#define VELDAN_SERVICE_PAGE_HPP

#include <cstddef>
#include <string>
#include <string_view>

namespace veldan::service {

/** A file of the page for people, as the build embedded it. */
struct PageFile {
    const char* path; ///< such as "/index.html"
    const char* type; ///< its media type
    const unsigned char* bytes;
    std::size_t size;

    std::string_view text() const { return {reinterpret_cast<const char*>(bytes), size}; }
};

/** The file at a path; "/" is "/index.html". Null: none. */
const PageFile* pageFile(const std::string& path);

} // namespace veldan::service

#endif
