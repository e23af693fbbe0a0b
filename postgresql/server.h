#ifndef VELDAN_POSTGRESQL_SERVER_H
#define VELDAN_POSTGRESQL_SERVER_H

// The server's headers that have to come before its others, and what all functions for it need. Errors of the server
// leave a function by a long jump; so all C++ stays behind functions that know nothing of the server and have returned
// before one is raised.

#include "template_text.h"

// clang-format off
#include <postgres.h>
#include <fmgr.h>
// clang-format on

#define TEMPLATE_ARGUMENT(n) ((const unsigned char*)PG_GETARG_POINTER(n))

// Rows of one size lie in a page at the same distances, mostly last to first. So the next template is likely to lie as
// far from this one as this one from the last; waiting for memory is most of the time of a search, and this saves a
// good part of it. Where the guess is wrong nothing happens, also where there is no memory.
static inline void prefetchAfter(const unsigned char** last, const unsigned char* current) {
    const uintptr_t distance = (uintptr_t)current - (uintptr_t)*last;
    *last = current;
    for (int i = 0; i <= VELDAN_TEMPLATE_SIZE; i += 64)
        __builtin_prefetch((const void*)((uintptr_t)current + distance + (uintptr_t)i));
}

#endif
