#ifndef VELDAN_FACE_RECORD_H
#define VELDAN_FACE_RECORD_H

/**
 * @file
 * The record of one face, as applications keep it in arrays between calls. C99 and C++.
 *
 * Size, word order and the meaning of every word are part of the binary interface: 262 signed 32-bit words, 1048 bytes,
 * native byte order, no padding. All coordinates are pixels of the frame, origin at its top left corner; x runs to the
 * right, y down. All scores are integer percent, cut off (not rounded) to 0..100.
 */

#include <stdint.h>

/** Number of entries in each of the two key point arrays. The library writes entries 0 to 6 only. */
#define VELDAN_MAX_KEY_POINTS 120

/** Most faces that one frame may hold in the operations that follow faces from frame to frame. */
#define VELDAN_MAX_FACES 100

/** One face of one frame. Zero it before first use: see <veldan/face_api.h>. */
typedef struct VDFACEINFOEX {
    /** Left edge of the face box, 0 to image width. A box that VdFaceAPI::vdOnetLandmark() refined may leave the image.
     */
    int32_t x;
    /** Top edge of the face box, 0 to image height. */
    int32_t y;
    /** Width of the face box, 0 or more; x + width is at most the image width. */
    int32_t width;
    /** Height of the face box, 0 or more; y + height is at most the image height. */
    int32_t height;
    /** Key points that the detector produced: 5. Key points 5 and 6 come on top of it and do not change it. */
    int32_t keyPointNum;
    /** x of the key points: 0 and 1 the eyes, 2 the nose, 3 and 4 the mouth corners, 5 and 6 for masked faces,
     * which may lie outside of the image. */
    int32_t keyPointX[VELDAN_MAX_KEY_POINTS];
    /** y of the key points, same indices. */
    int32_t keyPointY[VELDAN_MAX_KEY_POINTS];
    /** Written, to -1, by tracking of a first frame only. */
    int32_t reserved1[3];
    /** Face quality, 0 to 100. */
    int32_t quality;
    /** Distance of key points 0 and 1 in pixels, cut off to an integer. */
    int32_t eyeDistance;
    /** Liveness score, 0 to 100; the visible-light and the near-infrared check both write it. */
    int32_t liveness;
    /** Written, to -1, by tracking of a first frame only. */
    int32_t reserved2;
    /** Identity of the face from frame to frame. */
    int32_t trackId;
    /** Written, to -1, by tracking of a first frame only. */
    int32_t reserved3;
    /** 0: not recognised yet; 1 or more: recognised, then counts calls since; -1: rejected by a one-shot search. */
    int32_t searchFlag;
    /** Index of the matched person in the gallery; -1: none; -100: matching failed in the largest-face flow. */
    int32_t searchId;
    /** Similarity of the best match, 0 to 100. */
    int32_t searchScore;
    /** Score of a mask being worn, 0 to 100. From 41 on the combined flows take the face as masked. */
    int32_t maskScore;
    /** 0, or 1 when a search declares the face unknown, then counts calls since. */
    int32_t strangerFlag;
    /** Written, to -1, by tracking of a first frame only. */
    int32_t reserved4[3];
} VDFACEINFOEX;

#endif
