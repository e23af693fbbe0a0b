#ifndef VELDAN_ALIGN_H
#define VELDAN_ALIGN_H

/**
 * @file
 * Face alignment: turns, scales and shifts the part of a frame that shows a face into a small upright crop. C99 and
 * C++.
 *
 * Images are packed 8-bit pixels with three channels, rows top to bottom without padding, width x 3 bytes a row. All
 * memory belongs to the caller. Neither function keeps state: any number of threads may call them.
 */

#include <veldan/export.h>

VELDAN_BEGIN_DECLS

/**
 * The five points that a face has in a crop of 112 x 112 pixels: x0, y0, ... x4, y4 of the eye on the image's left, the
 * eye on its right, the nose tip and the mouth corners on its left and right.
 *
 * For callers only; alignment does not read it, so writing to it changes nothing here. On purpose the y of the second
 * point, 51.6953, is not the one that alignface_pinv() aims at, which is 51.5014.
 */
extern VELDAN_API float templatekeypoints[10];

/**
 * Aligns a face by its five key points: the turn, scale and shift that bring them nearest to their places in the crop,
 * by least squares. No shear, no mirroring. What lies outside of the frame becomes black.
 *
 * The places are made for a crop of 112 x 112 pixels; in a crop of another size they keep their distances and stay
 * centred. Points that are all equal are not rejected: the crop is then what the solution of least norm shows.
 * @param image          the frame
 * @param width          its width in pixels
 * @param height         its height in pixels
 * @param aligned        receives alignedWidth x alignedHeight x 3 bytes
 * @param alignedWidth   width of the crop in pixels
 * @param alignedHeight  height of the crop in pixels
 * @param points         ten values x0, y0, ... x4, y4 in frame pixels, in the order of templatekeypoints
 * @return always 0. When a pointer is null or a size is not positive, nothing is written. A frame or a crop with a side
 *         of 32767 pixels or more raises OpenCV's exception (C++).
 */
VELDAN_API int alignface_pinv(const unsigned char* image, int width, int height, unsigned char* aligned,
                              int alignedWidth, int alignedHeight, const float* points);

/**
 * Aligns a face by two points, for faces whose lower half is covered: the first point becomes (0, 0) and the second one
 * (112, 112) of the crop, whatever size of crop is asked for. Otherwise as alignface_pinv().
 * @param points  four values x0, y0, x1, y1 in frame pixels: key points 5 and 6 of a face record
 * @return as alignface_pinv()
 */
VELDAN_API int alignface_mask(const unsigned char* image, int width, int height, unsigned char* aligned,
                              int alignedWidth, int alignedHeight, const float* points);

VELDAN_END_DECLS

#endif
