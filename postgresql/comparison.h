#ifndef VELDAN_POSTGRESQL_COMPARISON_H
#define VELDAN_POSTGRESQL_COMPARISON_H

// The library's similarity for the server's functions. No function throws, allocates or keeps a pointer.

#ifdef __cplusplus
extern "C" {
#endif

/**
 * The similarity of two templates without a flaw, as zzMatchFeatureThread() has it; 0 when they are of different kinds,
 * which searches in memory pass over in the same way. The order of the two may show in the last bit.
 */
float veldan_similarity(const unsigned char* enrolled, const unsigned char* probe);

#ifdef __cplusplus
}
#endif

#endif
