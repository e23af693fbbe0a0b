#include "support/allocations.hpp"

#include <atomic>
#include <cerrno>

namespace {

std::atomic<std::size_t> number;
std::atomic<std::size_t> bytes;

} // namespace

Allocations allocationsSoFar() {
    return {number, bytes};
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)

// In front of the C library's functions of these names, which OpenCV and operator new call. The library's own second
// names of them do the work.
extern "C" {

void* __libc_malloc(std::size_t size);                          // NOLINT(bugprone-reserved-identifier)
void* __libc_memalign(std::size_t alignment, std::size_t size); // NOLINT(bugprone-reserved-identifier)

void* malloc(std::size_t size) {
    ++number;
    bytes += size;
    return __libc_malloc(size);
}

int posix_memalign(void** out, std::size_t alignment, std::size_t size) {
    ++number;
    bytes += size;
    *out = __libc_memalign(alignment, size);
    return *out != nullptr ? 0 : ENOMEM;
}

} // extern "C"

#endif
