#ifndef VELDAN_POSTGRESQL_TEMPLATE_TEXT_H
#define VELDAN_POSTGRESQL_TEMPLATE_TEXT_H

#include <stddef.h>

// Templates as text, and what is wrong with one: what the type face_template takes in and gives out. Knows nothing of
// the server. No function throws, allocates or keeps a pointer. Faults are told in words that continue "the template".

#ifdef __cplusplus
extern "C" {
#endif

enum {
    VELDAN_TEMPLATE_SIZE = 520,
    VELDAN_HEX_LENGTH = 2 + 2 * VELDAN_TEMPLATE_SIZE,
    VELDAN_BASE64_LENGTH = (VELDAN_TEMPLATE_SIZE + 2) / 3 * 4
};

/** Why these bytes are no template that extraction could have made; NULL when nothing is wrong. @param size any */
const char* veldan_template_flaw(const unsigned char* bytes, size_t size);

/** 1: of a bare face, 2: of a face with a mask. @param bytes of a template without a flaw */
int veldan_template_kind(const unsigned char* bytes);

/**
 * Reads `\x` and hexadecimal digits, or base64.
 * @param out  room for a template; undefined on failure
 * @return NULL, or why the text is no template
 */
const char* veldan_template_from_text(const char* text, size_t length, unsigned char* out);

/** Writes VELDAN_HEX_LENGTH characters, without a final zero. */
void veldan_template_to_hex(const unsigned char* bytes, char* out);

/** Writes VELDAN_BASE64_LENGTH characters, without a final zero. */
void veldan_template_to_base64(const unsigned char* bytes, char* out);

#ifdef __cplusplus
}
#endif

#endif
