#ifndef VELDAN_TESTS_TOOL_FOREIGN_LEAKS_HPP
#define VELDAN_TESTS_TOOL_FOREIGN_LEAKS_HPP

#if defined(__SANITIZE_ADDRESS__)
#define VELDAN_TESTS_LSAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELDAN_TESTS_LSAN 1
#endif
#endif

#if defined(VELDAN_TESTS_LSAN)
#include <sanitizer/lsan_interface.h>
#endif

namespace veldan_tests {

// Camera drivers and window toolkits lose memory of their own, which LeakSanitizer would hold against the test. What
// this thread allocates while such an object lives is not reported.
class ForeignLeaks {
public:
#if defined(VELDAN_TESTS_LSAN)
    ForeignLeaks() {
        __lsan_disable();
    }
    ~ForeignLeaks() {
        __lsan_enable();
    }
#else
    ForeignLeaks() {}
    ~ForeignLeaks() {}
#endif
    ForeignLeaks(const ForeignLeaks&) = delete;
    ForeignLeaks& operator=(const ForeignLeaks&) = delete;
};

} // namespace veldan_tests

#endif
