#ifndef VELDAN_TESTS_SUPPORT_ALLOCATIONS_HPP
#define VELDAN_TESTS_SUPPORT_ALLOCATIONS_HPP

#include <cstddef>

// What the program, its libraries included, has asked of the allocator so far, whether freed again or not.
struct Allocations {
    std::size_t number;
    std::size_t bytes;
};

// Both stay 0 in a sanitized build, where the sanitizer is the allocator.
Allocations allocationsSoFar();

#endif
