#ifndef VELDAN_IMAGE_TOOL_H
#define VELDAN_IMAGE_TOOL_H

/**
 * @file
 * Image tools with plain symbol names: load, save, decode, encode, convert, resize, rotate, flip, cut and draw, a
 * stopwatch and the tool version. C99 and C++.
 *
 * Images. A raw image is a buffer of 8-bit samples, rows from top to bottom, pixels from left to right, no padding
 * between rows. Three channels mean blue, green, red in that order (width x 3 bytes a row), one channel means grey
 * (width bytes a row). Widths, heights and coordinates are pixels; x runs to the right, y down.
 *
 * Buffers. The caller owns every buffer, input and output, and the library keeps none of them after a call. No function
 * takes the room in an output buffer: the caller provides enough, and each function says how much that is. Input and
 * output may be the same buffer, or overlap, except in ImageYUV2RGB and in the encoders.
 *
 * Results. 1 means success; other values are named at each function. A function that is handed a null pointer for an
 * image, a rectangle, a list of points or a text does nothing and returns 0, unless it says otherwise; a null pointer
 * for a size that would be reported is skipped.
 *
 * Errors. What OpenCV finds wrong (a negative size, an empty image, an unknown file extension, a number of channels
 * that a format cannot hold, no memory) leaves these functions as a cv::Exception; output buffers and sizes are then as
 * they were. C programs therefore check sizes and format names before the call.
 *
 * Threads. All functions may run at the same time in several threads as long as they do not share buffers. The
 * stopwatch is one value for the whole process: a second CVTimeStart replaces the first.
 */

#include <veldan/export.h>

/** Colours of the drawing functions. Every other value draws in red. */
enum VdColour {
    /** (blue, green, red) = (0, 0, 255) */
    VD_COLOUR_RED = 0,
    /** (0, 255, 0) */
    VD_COLOUR_GREEN = 1,
    /** (255, 0, 0) */
    VD_COLOUR_BLUE = 2
};

/** Bytes that CVToolVersion writes, terminating zero included. */
#define VELDAN_TOOL_VERSION_SIZE 30

VELDAN_BEGIN_DECLS

/**
 * Loads an image file of any format that OpenCV reads (bmp, jpg, png, webp and others; not DICOM and Radiance HDR,
 * whose readers harm the process on damaged files). A JPEG or PNG file with an EXIF orientation comes out upright;
 * width and height are those of the upright picture. The orientation of a WebP file is not looked at. A file that tells
 * of more than 2^30 pixels raises a cv::Exception, with which a C program ends.
 * @param path    file name
 * @param flag    1: grey, one channel; any other value: three channels
 * @param out     receives width x height x channels bytes; null: only the sizes are reported
 * @param width   receives the width
 * @param height  receives the height
 * @return 1; -3 with nothing written when the file cannot be read or decoded, or path is null
 */
VELDAN_API int ImageLoad(const char* path, int flag, unsigned char* out, int* width, int* height);

/**
 * Writes an image file; the extension of the path names the format.
 * @param path      file name with an extension that OpenCV writes, otherwise a cv::Exception
 * @param image     width x height x channels bytes
 * @param channels  1, 3, or what else the format holds
 * @return 1 always: whether the file could be written is not reported. With a null pointer nothing is written.
 */
VELDAN_API int ImageSave(const char* path, unsigned char* image, int width, int height, int channels);

/**
 * Converts a frame of an NV21 camera to blue, green, red and mirrors it left to right, as a preview shows it.
 * @param yuv     width x height bytes of Y, then width x height / 2 bytes of interleaved V and U
 * @param width   even
 * @param height  even; odd sizes raise a cv::Exception
 * @param out     receives width x height x 3 bytes; must not overlap yuv
 */
VELDAN_API void ImageYUV2RGB(unsigned char* yuv, int width, int height, unsigned char* out);

/**
 * Converts three channels to grey.
 * @param image  width x height x 3 bytes
 * @param out    receives width x height bytes
 */
VELDAN_API void ImageRGB2GRAY(unsigned char* image, int width, int height, unsigned char* out);

/**
 * Resizes with bilinear interpolation.
 * @param image     width x height x channels bytes
 * @param channels  number of channels
 * @param newWidth  width of the result
 * @param newHeight height of the result
 * @param out       receives newWidth x newHeight x channels bytes
 * @return 1
 */
VELDAN_API int ImageZoom(unsigned char* image, int width, int height, int channels, int newWidth, int newHeight,
                         unsigned char* out);

/**
 * Draws the frame of a rectangle, 8 pixels thick, with its corners at (x, y) and (x + w, y + h). What lies outside of
 * the image is not drawn; any coordinates are allowed.
 * @param image   width x height x 3 bytes, drawn on in place
 * @param rect    x, y, w, h
 * @param colour  a VdColour
 * @return 1
 */
VELDAN_API int ImageDrawRect(unsigned char* image, int width, int height, int* rect, int colour);

/**
 * Copies a part of an image. The rectangle is clipped in the caller's array, in this order: an x below 0 or beyond
 * width becomes 0; an y below 0 or beyond height becomes 0; w = 0 becomes width; a w that reaches over the right edge
 * becomes width - x; h likewise. A negative w or h is not corrected and raises a cv::Exception.
 * @param image      width x height x 3 bytes
 * @param rect       x, y, w, h; holds the rectangle that was cut afterwards
 * @param out        receives w x h x 3 bytes of the clipped rectangle
 * @param outWidth   receives the clipped w
 * @param outHeight  receives the clipped h
 * @return 1
 */
VELDAN_API int ImageCutRect(unsigned char* image, int width, int height, int* rect, unsigned char* out, int* outWidth,
                            int* outHeight);

/**
 * Draws a filled circle of radius 1 at each point. What lies outside of the image is not drawn; any coordinates are
 * allowed.
 * @param image   width x height x 3 bytes, drawn on in place
 * @param points  x0, y0, x1, y1, ...: 2 x count values
 * @param count   number of points; 0 or less draws nothing
 * @param colour  a VdColour
 * @return 1
 */
VELDAN_API int ImageDrawPoint(unsigned char* image, int width, int height, int* points, int count, int colour);

/**
 * Draws a text in OpenCV's simplex Hershey face, asked for in italic (which OpenCV 4.6 does not have for this face),
 * one pixel thick. What lies outside of the image is not drawn.
 * @param image      width x height x 3 bytes, drawn on in place
 * @param x          left end of the baseline
 * @param y          baseline
 * @param text       ASCII, zero-terminated; other bytes are drawn as question marks
 * @param fontScale  1: capitals about 21 pixels high; 2: twice that, and so on
 * @param colour     a VdColour
 * @return 1
 */
VELDAN_API int ImageDrawText(unsigned char* image, int width, int height, int x, int y, const char* text, int fontScale,
                             int colour);

/**
 * Decodes an image file that is held in memory to three channels. Data that begin with "BM" are read by BMPToRaw (see
 * image_tool.hpp), everything else by OpenCV; formats, EXIF orientation and files of absurd size as in ImageLoad.
 *
 * Call it twice: first with a null out for the sizes, then with a buffer.
 * @param data    the file
 * @param size    its length in bytes
 * @param out     receives width x height x 3 bytes (an 8-bit BMP: width x height bytes); null: only the sizes are
 *                reported
 * @param width   receives the width; 0 when the data could not be decoded
 * @param height  receives the height; 0 when the data could not be decoded
 * @return 1 when out is given, also when the data could not be decoded: check the sizes; 0 when out is null; for BMP
 * data also -1 and -2 of BMPToRaw. Null data, or a size of 0 or less, count as data that could not be decoded.
 */
VELDAN_API int ImageDecode(const unsigned char* data, int size, unsigned char* out, int* width, int* height);

/**
 * Encodes a three-channel image as a file in memory.
 * @param image    width x height x 3 bytes
 * @param format   ".jpg", ".png", ".webp", ".bmp" or another extension that OpenCV writes, or a file name that ends so;
 * the dot may be missing for bmp only. bmp is written by RawToBMP (see image_tool.hpp).
 * @param out      receives *outSize bytes; null: only the length is reported
 * @param outSize  receives the length of the file in bytes; 0 when nothing could be encoded, and for null pointers
 * @return 1
 */
VELDAN_API int ImageEncode(unsigned char* image, int width, int height, const char* format, unsigned char* out,
                           int* outSize);

/**
 * Encodes a grey or three-channel image as a file in memory, with a quality.
 * @param image     width x height x channels bytes
 * @param channels  1: grey; any other value: three channels
 * @param format    as in ImageEncode
 * @param quality   0 to 100 for jpg, 1 to 100 for webp (above 100: lossless). Only the spellings jpg and webp, in any
 *                  case, carry it: with jpeg and every other format it is ignored.
 * @param out       receives *outSize bytes; null: only the length is reported
 * @param outSize   receives the length of the file in bytes; 0 when nothing could be encoded, and for null pointers
 * @return 1
 */
VELDAN_API int ImageEncode2(unsigned char* image, int width, int height, int channels, const char* format, int quality,
                            unsigned char* out, int* outSize);

/**
 * Turns a three-channel image clockwise by 90, 180 or 270 degrees. Any other angle copies it unchanged.
 * @param image      width x height x 3 bytes
 * @param angle      degrees
 * @param out        receives width x height x 3 bytes
 * @param outWidth   receives the width of the result: height for 90 and 270, else width
 * @param outHeight  receives the height of the result
 * @return 1
 */
VELDAN_API int ImageRotate(unsigned char* image, int width, int height, int angle, unsigned char* out, int* outWidth,
                           int* outHeight);

/**
 * Mirrors a three-channel image.
 * @param image     width x height x 3 bytes
 * @param flipCode  0: upside down; positive: left to right; negative: both
 * @param out       receives width x height x 3 bytes
 * @return 1
 */
VELDAN_API int ImageFlip(unsigned char* image, int width, int height, int flipCode, unsigned char* out);

/** Starts the stopwatch of the process. */
VELDAN_API void CVTimeStart(void);

/** @return milliseconds since the last CVTimeStart */
VELDAN_API double CVTimeRun(void);

/**
 * Tells the version of the image tools.
 * @param out  receives the text with its terminating zero, VELDAN_TOOL_VERSION_SIZE bytes; null: nothing happens
 */
VELDAN_API void CVToolVersion(char* out);

VELDAN_END_DECLS

#endif
