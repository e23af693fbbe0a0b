#include "page.hpp"

#include <algorithm>
#include <iterator>

namespace veldan::service {

namespace {

#include "page_files.inc"

} // namespace

const PageFile* pageFile(const std::string& path) {
    const std::string wanted = path == "/" ? "/index.html" : path;
    const auto* file = std::find_if(std::begin(pageFiles), std::end(pageFiles),
                                    [&](const PageFile& candidate) { return wanted == candidate.path; });
    return file == std::end(pageFiles) || file->bytes == nullptr ? nullptr : file;
}

} // namespace veldan::service
