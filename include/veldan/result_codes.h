#ifndef VELDAN_RESULT_CODES_H
#define VELDAN_RESULT_CODES_H

/**
 * @file
 * Result codes of the instance operations and of the exported entry points. C99 and C++.
 */

/** Result codes; the entry points return them as int. */
typedef enum VdResult {
    /** Success. */
    VD_OK = 0,
    /** The instance handle is null, or the instance could not be freed. */
    VD_ERR_HANDLE = 12,
    /** No face was found, or a buffer is missing; in tracking: any failure of detection. */
    VD_ERR_NO_FACE = 13,
    /** The two-point landmark engine or the landmark refinement failed after detection. */
    VD_ERR_LANDMARK = 14,
    /** The quality check for enrolment takes exactly one face. */
    VD_ERR_NOT_ONE_FACE = 15,
    /** A feature template could not be decoded: wrong kind, or damaged. */
    VD_ERR_TEMPLATE = 17,
    /** Feature extraction failed in the largest-face flow. */
    VD_ERR_EXTRACT = 18,
    /** An engine could not load its network. */
    VD_ERR_NETWORK = 20,
    /** More than 100 faces were detected. */
    VD_ERR_TOO_MANY_FACES = 23,
    /** Image width or height is below 100 pixels. */
    VD_ERR_IMAGE_TOO_SMALL = 27,
    /** The quality, mask or landmark engine failed; in the largest-face flow: quality below the threshold. */
    VD_ERR_ENGINE = 32,
    /** Search: no decision yet, or the best score is below the caller's threshold. */
    VD_SEARCH_UNDECIDED = -1,
    /** Search: the face is declared unknown. */
    VD_SEARCH_UNKNOWN = -2,
    /** Search: the gallery has more persons than the instance's capacity. */
    VD_SEARCH_CAPACITY = -3
} VdResult;

#endif
