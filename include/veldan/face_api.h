#ifndef VELDAN_FACE_API_H
#define VELDAN_FACE_API_H

/**
 * @file
 * The entry points of the Veldan Face SDK. C99 and C++; all symbols have plain names.
 *
 *     int error = 0;
 *     void* handle = zzInitAlgThread(NULL, &error);
 *     if (handle == NULL)
 *         return error;
 *     VDFACEINFOEX* faces = malloc(VELDAN_DETECT_CAPACITY * sizeof *faces);
 *     int faceNum = 0;
 *     error = zzDetectFaceThread(handle, pixels, width, height, &faceNum, faces);
 *     ...
 *     free(faces);
 *     zzFreeAlgThread(handle);
 *
 * Threads: a handle serves one thread at a time; the library takes no locks and starts no threads of its own. Handles
 * are independent of each other, so the usual arrangement is one handle per thread. (OpenCV, which runs the networks,
 * has its own pool; cv::setNumThreads() governs it.)
 *
 * Buffers: the caller owns every buffer and may release it as soon as the call has returned. Images are packed 8-bit
 * pixels, rows top to bottom without padding, width x 3 bytes a row in blue, green, red order; they are only read.
 *
 * Errors: results are the codes of <veldan/result_codes.h>, 0 for success. Memory running out, and faults inside
 * OpenCV, reach C++ callers as exceptions.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>
#include <veldan/result_codes.h>

/**
 * The most faces that detection can return, and so the number of records that makes any array large enough. Arrays with
 * fewer records are only safe when the frames are known: detection does not know the size of the array.
 */
#define VELDAN_DETECT_CAPACITY 5000

/** Bytes that the version string takes, with its terminating zero. */
#define VELDAN_VERSION_SIZE 33

/** Persons that a gallery may have when the instance was created by zzInitAlgThread(). */
#define VELDAN_DEFAULT_CAPACITY 15000

VELDAN_BEGIN_DECLS

/**
 * Writes the version of the algorithms. Needs no handle; may be called from any thread.
 * @param version  room for VELDAN_VERSION_SIZE characters
 * @return 0, or 12 when version is null
 */
VELDAN_API int zzGetAlgVersionThread(char* version);

/**
 * Creates an instance with all engines, for galleries of up to VELDAN_DEFAULT_CAPACITY persons.
 * @param path    accepted and not used: the networks are part of the library. May be null.
 * @param result  receives 0, or 20 when a network cannot be loaded. May be null.
 * @return the handle, to be given back with zzFreeAlgThread(); null when result is not 0
 */
VELDAN_API void* zzInitAlgThread(char* path, int* result);

/**
 * As zzInitAlgThread(), for galleries of up to capacity persons.
 * @param path      accepted and not used. May be null.
 * @param capacity  most persons of a searched gallery; an instance holds 1200 x (capacity + 1) bytes for it. A negative
 *                  value counts as 0.
 * @param result    receives 0, or 20 when a network cannot be loaded. May be null.
 * @return the handle, to be given back with zzFreeAlgThread(); null when result is not 0
 */
VELDAN_API void* zzInitAlgNThread(char* path, int capacity, int* result);

/**
 * Releases an instance. The handle is invalid afterwards.
 * @return 0, or 12 when handle is null
 */
VELDAN_API int zzFreeAlgThread(void* handle);

/**
 * Finds the faces of a frame and writes one record for each, largest box first. Of a record, box, keyPointNum, key
 * points 0 to 4 and eyeDistance are written, and key points 5 and 6 where the library has the engine for them; all
 * other words stay as they are.
 * @param handle   an instance
 * @param image    the pixels
 * @param width    image width in pixels, 100 or more
 * @param height   image height in pixels, 100 or more
 * @param faceNum  receives the number of faces; 0 whenever none were found or the call was rejected
 * @param faces    receives the records. Must have room for every face of the frame: VELDAN_DETECT_CAPACITY records are
 *                 enough for any frame.
 * @return 0; 12 when handle is null (then nothing is written); 27 when width or height is below 100; 13 when there is
 *         no face or a pointer is null; 14 when landmarks failed; 23 when there are more than 100 faces, whose records
 *         are written all the same
 */
VELDAN_API int zzDetectFaceThread(void* handle, unsigned char* image, int width, int height, int* faceNum,
                                  VDFACEINFOEX* faces);

VELDAN_END_DECLS

#endif
