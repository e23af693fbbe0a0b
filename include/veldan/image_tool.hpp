#ifndef VELDAN_IMAGE_TOOL_HPP
#define VELDAN_IMAGE_TOOL_HPP

/**
 * @file
 * The image tools that carry their argument types in their symbols: BMP files in memory and a string copy. C++ only.
 * Images are as in image_tool.h. All of them may be called from any number of threads.
 */

#include <veldan/export.h>
#include <veldan/image_tool.h>

/**
 * Unpacks a Windows bitmap that is held in memory: 8 bits a pixel to one channel (palette indices are taken as grey
 * values), 24 and 32 to three channels, blue, green, red (the fourth byte is dropped).
 *
 * Made for the files of RawToBMP and of programs that write the same plain form. The header's offset of the pixels is
 * not read: they are taken from byte 54, or 1078 with 8 bits. Compression is not read either. A negative height (rows
 * stored from top to bottom) is reported as it stands, and no pixel is copied.
 * @param bmp       the file
 * @param size      length of the file in bytes, up to which bytes are read at most. 0 or less: the length is not known,
 *                  and the caller vouches that the file is as long as its header says.
 * @param out       receives width x height x channels bytes; null: only the sizes are reported
 * @param width     receives the width; null: skipped, as the next two
 * @param height    receives the height
 * @param channels  receives bits per pixel / 8, but 3 for 32 bits
 * @return 1; 0 when out is null; -1 with nothing written when bmp is null, does not begin with "BM", has a negative
 * width, or is shorter than its header says; -2 for another number of bits than 8, 24 and 32 (after the sizes were
 *         reported)
 */
VELDAN_API int BMPToRaw(unsigned char* bmp, int size, unsigned char* out, int* width, int* height, int* channels);

/**
 * Packs an image into a Windows bitmap: 8 bits with a grey palette, or 24 bits, rows from bottom to top.
 * @param raw       width x height x channels bytes
 * @param channels  1: grey; any other value: three channels
 * @param out       receives the file: (width rounded up to a multiple of 4) x height + 1078 bytes for grey, (width x 3
 *                  rounded up to a multiple of 4) x height + 54 bytes for three channels; null: only the length is
 * reported
 * @param outSize   receives the length of the file; 0 with nothing written when raw is null, a size is negative, or the
 *                  file would be longer than an int can tell
 * @return 1 always
 */
VELDAN_API int RawToBMP(unsigned char* raw, int width, int height, int channels, unsigned char* out, int* outSize);

/**
 * Copies a text with its terminating zero.
 * @param dst  room for the text; null, or a null src: nothing is copied
 * @return dst
 */
VELDAN_API char* ITStrcpy(char* dst, const char* src);

#endif
