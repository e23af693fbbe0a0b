#ifndef VELDAN_FEATURE_TEMPLATE_HPP
#define VELDAN_FEATURE_TEMPLATE_HPP

/**
 * @file
 * The form in which features leave the library and come back: seven characters that tell the kind, a checksum byte, the
 * feature's bytes. C++ only. No state: any number of threads may call these functions.
 *
 * | bytes       | content                                                    |
 * |-------------|------------------------------------------------------------|
 * | 0 to 6      | "VD_V5.0": a bare face; "VD_V5.4": a face with a mask      |
 * | 7           | exclusive or of all other bytes                            |
 * | 8 to 8+n-1  | the feature, 32-bit floats in the machine's byte order     |
 *
 * The checksum finds every single damaged bit. Two bytes that changed places, or the same bit flipped in two bytes, it
 * does not find: it protects against accidents, not against forgery.
 *
 * Buffers belong to the caller and may not overlap. Lengths are trusted, except that calls that make no sense at all
 * (null pointers, a template shorter than 8 bytes) are refused.
 */

#include <veldan/export.h>

/** Puts the checksum of the first `length` bytes, without the one at `position`, to `position`. @return 0 */
VELDAN_API int AddSum(unsigned char* buffer, int length, int position);

/** @return 0 when the byte at `position` is the checksum of the other bytes, otherwise -1 */
VELDAN_API int CheckSum(const unsigned char* buffer, int length, int position);

/**
 * Makes a template.
 * @param kind           1: bare face; any other value: face with a mask
 * @param feature        the feature's bytes
 * @param featureLength  number of bytes
 * @param out            receives featureLength + 8 bytes
 * @return 0; -1 with nothing written when a pointer is null or the length negative
 */
VELDAN_API int TzEncode(int kind, const unsigned char* feature, int featureLength, unsigned char* out);

/**
 * Checks a template and takes the feature out of it. The checksum is checked first: a damaged template of the wrong
 * kind is reported as damaged.
 * @param kind            the kind that the template must have: 1 bare face, any other value face with a mask
 * @param data            the template
 * @param templateLength  its length in bytes
 * @param feature         receives templateLength - 8 bytes; nothing is written on failure
 * @return 0; -1 when the template is damaged; -2 when it is of the other kind
 */
VELDAN_API int TzDecode(int kind, const unsigned char* data, int templateLength, unsigned char* feature);

#endif
