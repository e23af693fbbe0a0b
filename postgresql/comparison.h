#ifndef VELDAN_POSTGRESQL_COMPARISON_H
#define VELDAN_POSTGRESQL_COMPARISON_H

#include "template_text.h"

// The library's similarity for the server's functions. No function throws, allocates or keeps a pointer.

#ifdef __cplusplus
extern "C" {
#endif

/** A probe ready for many comparisons. */
typedef struct veldan_probe {
    unsigned char bytes[VELDAN_TEMPLATE_SIZE]; /**< the template */
    double squared_norm;
    double norm;
} veldan_probe;

/** @param bytes of a template without a flaw */
void veldan_prepare_probe(veldan_probe* probe, const unsigned char* bytes);

/**
 * The similarity of a template without a flaw to a probe, as zzMatchFeatureThread() has it, to the last bit; 0 when
 * they are of different kinds, which searches in memory pass over in the same way. Which of the two is the probe may
 * show in the last bit.
 */
float veldan_similarity(const unsigned char* enrolled, const veldan_probe* probe);

#ifdef __cplusplus
}
#endif

#endif
