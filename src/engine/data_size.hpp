#ifndef VELDAN_ENGINE_DATA_SIZE_HPP
#define VELDAN_ENGINE_DATA_SIZE_HPP

#include <cstdio>
#include <limits>
#include <memory>

namespace veldan {

// Length of a file in bytes, the vdGetDataSize() of every engine. 0 when it cannot be opened, has no length (a folder,
// a pipe) or is longer than an int can say.
inline int dataSize(const char* path) {
    if (path == nullptr)
        return 0;
    struct Close {
        void operator()(std::FILE* file) const { std::fclose(file); }
    };
    const std::unique_ptr<std::FILE, Close> file(std::fopen(path, "rb"));
    if (!file || std::fseek(file.get(), 0, SEEK_END) != 0)
        return 0;
    const long length = std::ftell(file.get());
    return length < 0 || length > std::numeric_limits<int>::max() ? 0 : static_cast<int>(length);
}

} // namespace veldan

#endif
