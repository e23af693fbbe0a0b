#ifndef VELDAN_POSTGRESQL_NEAREST_H
#define VELDAN_POSTGRESQL_NEAREST_H

#include "template_text.h"

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

// The persons that are most similar to a probe, of templates that come one after the other in any order. Knows nothing
// of the server: states lie in memory of the caller, aligned for doubles. No function throws or allocates.

#ifdef __cplusplus
extern "C" {
#endif

/** A person, with the photo that speaks most for it. */
typedef struct veldan_match {
    int64_t person;
    int64_t photo;
    float similarity;
} veldan_match;

/** A search under way. */
typedef struct veldan_nearest veldan_nearest;

enum { VELDAN_MOST_MATCHES = 10000 };

/** Bytes that veldan_nearest_start() needs. @param count  most persons, 1 to VELDAN_MOST_MATCHES */
size_t veldan_nearest_size(int count);

/**
 * Begins a search in that memory.
 * @param probe      a template without a flaw
 * @param threshold  similarity that a person must reach; a number
 */
veldan_nearest* veldan_nearest_start(void* memory, const unsigned char* probe, int count, float threshold);

/** Whether the search is this one. */
bool veldan_nearest_is(const veldan_nearest* search, const unsigned char* probe, int count, float threshold);

/** Adds a template without a flaw; those of the other kind than the probe's are passed over. */
void veldan_nearest_add(veldan_nearest* search, int64_t person, int64_t photo, const unsigned char* bytes);

/** Adds what another search for the same has found. */
void veldan_nearest_offer(veldan_nearest* search, const veldan_match* match);

/**
 * Ends the search: nothing may be added any more.
 * @return what has been found, the most similar person first; of equals the one with the lower number, and of a
 * person's photos that are equals likewise
 */
const veldan_match* veldan_nearest_finish(veldan_nearest* search, int* number);

const unsigned char* veldan_nearest_probe(const veldan_nearest* search);
int veldan_nearest_count(const veldan_nearest* search);
float veldan_nearest_threshold(const veldan_nearest* search);

#ifdef __cplusplus
}
#endif

#endif
