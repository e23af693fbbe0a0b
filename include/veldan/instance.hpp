#ifndef VELDAN_INSTANCE_HPP
#define VELDAN_INSTANCE_HPP

/**
 * @file
 * The algorithm instance behind the handle that zzInitAlgThread() returns, for C++ programs that want to call its
 * operations directly. C programs, and most C++ programs, use <veldan/face_api.h>.
 *
 * Neither this class nor the engines take locks: one instance serves one thread at a time. Separate instances are
 * independent of each other.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

#include <cstdint>

class MTCNN;
class QUALITYEVALUATION;
class MOBILEFACENET;
class vdSpoofDetection;
class vdFaceMask;
class vdFaceLandmark;
class OnetLandmark;
class MASKMOBILEFACENET;

/**
 * The instance. A plain record without constructor: it may live in raw memory, and vdInitAlg() gives every field its
 * value except the face records, which have none while their counts are 0.
 *
 * Images are packed 8-bit pixels, rows top to bottom without padding, width x 3 bytes a row in blue, green, red order.
 * They belong to the caller and are only read.
 */
class VELDAN_API VdFaceAPI {
public:
    /** @name Engines, null when not loaded
     * The order of the slots is fixed. */
    ///@{
    MTCNN* faceDetector;
    QUALITYEVALUATION* faceQuality;
    MOBILEFACENET* faceRecognizer;
    vdSpoofDetection* livenessDetector;
    vdFaceMask* faceMask;
    vdFaceLandmark* faceLandmark;
    OnetLandmark* onetLandmark;
    MASKMOBILEFACENET* maskFaceRecognizer;
    ///@}

    /** Number of records in currentFaces. */
    std::int32_t currentFaceNum;
    /** Number of records in previousFaces. */
    std::int32_t previousFaceNum;
    /** Faces of the current frame, as tracking last saw them. */
    VDFACEINFOEX currentFaces[VELDAN_MAX_FACES];
    /** Faces of the previous frame, as the caller handed them back. */
    VDFACEINFOEX previousFaces[VELDAN_MAX_FACES];

    /**
     * Search history: 100 rows, one per track identity modulo 100. A row holds 3 x (capacity + 1) integers: the number
     * of searches, two unused words, then three blocks of `capacity` scores.
     */
    std::int32_t** searchHistory;
    /** Most persons that a searched gallery may have. */
    std::int32_t capacity;

    /**
     * Loads all engines and allocates the search history. Must come first, on memory of any content.
     * @param path      accepted and not used: the networks are part of the library. May be null.
     * @param mode      accepted, without effect
     * @param capacity  most persons that a searched gallery may have; a negative value counts as 0. The history takes
     *                  100 x 3 x (capacity + 1) integers.
     * @return 0, or 20 when a network cannot be loaded; the instance then holds nothing, as after vdFreeAlg()
     * @throws std::bad_alloc when memory is short; vdFreeAlg() then releases what was loaded before
     */
    int vdInitAlg(char* path, int mode, int capacity);

    /** Releases the engines and the search history. May be called again. @return always 0 */
    int vdFreeAlg();

    /**
     * Writes the version, 32 characters and the terminating zero, to out.
     * @return 0, or 12 when out is null
     */
    static int vdGetAlgVersion(char* out);

    /** Copies src with its terminating zero to dst. Does nothing when either is null. @return dst */
    static char* vdMyStrcpy(char* dst, const char* src);

    /**
     * Finds the faces of a frame, largest first: box, key points 0 to 6, keyPointNum (5) and eyeDistance of each record
     * are written.
     * @param image    the pixels
     * @param width    image width in pixels
     * @param height   image height in pixels
     * @param faceNum  receives the number of faces; 0 whenever none were found or the call was rejected
     * @param faces    receives the records; the number of faces is not limited by this call, at most 5000
     * @return 0; 27 when width or height is below 100; 13 when there is no face or a pointer is null; 14 when the
     *         landmark engine failed
     */
    int vdDetectFace(unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces);

    /** @name Creation of the engines
     * Each stores 0, or 20 when a network cannot be loaded, to error, and returns the engine in either case. The caller
     * gives it back with the operation below. path is not used. */
    ///@{
    static MTCNN* InitFaceDetectorEngine(char* path, int* error);
    static QUALITYEVALUATION* InitFaceQualityEngine(char* path, int* error);
    static vdSpoofDetection* InitLivenessDetectorEngine(char* path, int* error);
    static vdFaceMask* InitFaceMaskEngine(char* path, int* error);
    static vdFaceLandmark* InitFaceLandmarkEngine(char* path, int* error);
    static OnetLandmark* InitOnetLandmarkEngine(char* path, int* error);
    ///@}

    /** @name Release of the engines
     * A null pointer is accepted and ignored. @return always 0 */
    ///@{
    static int FreeFaceDetectorEngine(MTCNN* engine);
    static int FreeQualityEngine(QUALITYEVALUATION* engine);
    static int FreeLivenessDetectorEngine(vdSpoofDetection* engine);
    static int FreeMaskEngine(vdFaceMask* engine);
    static int FreeLandmarkEngine(vdFaceLandmark* engine);
    static int FreeOnetLandmarkEngine(OnetLandmark* engine);
    ///@}
};

#endif
