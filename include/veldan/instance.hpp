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

    /**
     * Finds the faces of a frame and carries identities and search verdicts over from the frame before, by the overlap
     * of the boxes. The caller hands back what the previous call returned; a count of 0 starts anew, and that first
     * frame gets no identities (its records keep whatever words the engines do not write, the first one those of the
     * default record: -1, trackId and searchFlag 0).
     *
     * A face that overlaps no face of the frame before inherits the identity of face 0 unless another face overlaps
     * that one. A face with a new identity keeps the other verdict words that stood in the caller's record.
     * @param faceNum  in: faces handed back, 0 to 100 (a larger number counts as 100); out: faces of this frame, at
     * most 100, largest first
     * @param faces    in and out; room as for vdDetectFace(). Box, points, eye distance, quality, trackId and
     * searchFlag are written.
     * @return 0; 13 when detection failed, whatever it said, or a pointer is null; 32 when the quality engine failed
     */
    int vdTrackFace(unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces);

    /** @name One engine over all faces of a frame
     * Records of faces that vdDetectFace() found in the same image. */
    ///@{
    /** Writes box and key points 0 to 4 anew. @return 0, or 14 when the engine failed */
    int vdOnetLandmark(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);
    /** Writes quality. @return 0, or 32 when the engine failed */
    int vdFaceQuality(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);
    /**
     * Quality for enrolment, of one face: as vdFaceQuality(), lowered to 0.8 of it, cut off, when the face is blurred.
     * @return the quality, 0 to 100; 15 when faceNum is not 1; 32 when the engine failed. A quality of 15 or 32 reads
     *         like the error: look at faces[0].quality to tell them apart.
     */
    int vdFaceQuality4Register(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);
    /** Writes liveness, of a picture in visible light. @return what vdSpoofDetection::vdSpoofRGBEvaluation() says */
    int vdVisLivenessDetect(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);
    /** Writes liveness, of a near-infrared picture. @return what vdSpoofDetection::vdSpoofNIREvaluation() says */
    int vdNirLivenessDetect(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);
    /** Writes maskScore. @return 0, or 32 when the engine failed */
    int vdFaceMaskRGB(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);
    /** Writes key points 5 and 6. @return 0, or 32 when the engine failed */
    int vdFaceLandMarkRGB(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);
    ///@}

    /** Intersection over union of two boxes (left, top, width, height), from 0 to 1; boxes that only touch give 0. */
    static double vdIou(int x1, int y1, int w1, int h1, int x2, int y2, int w2, int h2);

    /** Nearest integer; halves above 0 go to the even neighbour, those below 0 away from 0: 2.5 gives 2, -2.5 gives -3.
     */
    static int np_round(float f);

    /** Bytes of a template of either kind, 520; 0 when the recognizer is not loaded. */
    int vdGetFeatureSize();

    /** @name Extraction
     * Writes one template of vdGetFeatureSize() bytes for each face. Extraction cannot fail for a face; where the
     * arguments make no sense (null image, a size that is not positive), the templates hold zeros, which are similar to
     * nothing. @return always 0 */
    ///@{
    /** Templates of bare faces, aligned by key points 0 to 4. */
    int vdExtractFeature(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                         unsigned char* feature);
    /** Templates of faces with masks, for recognition: aligned by key points 5 and 6. */
    int vdMaskExtractFeature(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                             unsigned char* feature);
    /** Templates of the masked kind, for enrolment from a bare face: aligned by key points 0 to 4. */
    int vdMaskExtractFeature4Reg(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces,
                                 unsigned char* feature);
    ///@}

    /**
     * Similarity of two templates, (cosine + 1) / 2; not a number when one of them holds zeros.
     * @param kind   that both must have: 1 bare, 2 masked
     * @param score  receives the similarity
     * @return 0; 17 with score untouched when a template is damaged, of the other kind or null
     */
    int MatchFeature(int kind, unsigned char* featureA, unsigned char* featureB, float* score);
    /** MatchFeature() of bare faces. */
    int vdMatchFeature(unsigned char* featureA, unsigned char* featureB, float* score);
    /** MatchFeature() of faces with masks. */
    int vdMaskMatchFeature(unsigned char* featureA, unsigned char* featureB, float* score);

    /**
     * Searches a gallery for the person of a template. A similarity of 0.8 or more is accepted at once. Otherwise the
     * best similarities of the last three searches of the same track (face->trackId modulo 100) are averaged for each
     * person, and the best average must reach the threshold; after five searches without success the face is declared
     * unknown. Every decision begins the count of all tracks anew.
     *
     * Templates of the gallery that are damaged or of the other kind are passed over.
     * @param kind          1 bare, 2 masked
     * @param gallery       the templates of person 0, then those of person 1, and so on
     * @param galleryNum    size of the gallery that is compared with the capacity; the larger of it and personNum
     * counts
     * @param templateNums  number of templates of each person; null for one each
     * @param personNum     number of persons
     * @param threshold     percent that the average of three searches must reach
     * @param feature       the template to search for
     * @param face          its record: trackId and searchFlag are read; searchFlag, searchId and searchScore written
     * @return 0 when the person is known: searchFlag is 1, searchId the index of the person, searchScore the similarity
     *         in percent (also when searchFlag was 1 already, nothing then changes); -1 when undecided; -2 when
     * unknown: searchScore is the best average; -3 when the gallery is too large; 17 when a pointer is null
     */
    int SearchFeature(int kind, unsigned char* gallery, int galleryNum, int* templateNums, int personNum, int threshold,
                      unsigned char* feature, VDFACEINFOEX* face);
    /** SearchFeature() of bare faces. */
    int vdSearchFeature(unsigned char* gallery, int galleryNum, int* templateNums, int personNum, int threshold,
                        unsigned char* feature, VDFACEINFOEX* face);
    /** SearchFeature() of faces with masks. */
    int vdMaskSearchFeature(unsigned char* gallery, int galleryNum, int* templateNums, int personNum, int threshold,
                            unsigned char* feature, VDFACEINFOEX* face);

    /** @name Creation of the engines
     * Each stores 0, or 20 when a network cannot be loaded, to error, and returns the engine in either case. The caller
     * gives it back with the operation below. path is not used. */
    ///@{
    static MTCNN* InitFaceDetectorEngine(char* path, int* error);
    static QUALITYEVALUATION* InitFaceQualityEngine(char* path, int* error);
    static MOBILEFACENET* InitFaceRecognizerEngine(char* path, int* error);
    static vdSpoofDetection* InitLivenessDetectorEngine(char* path, int* error);
    static vdFaceMask* InitFaceMaskEngine(char* path, int* error);
    static vdFaceLandmark* InitFaceLandmarkEngine(char* path, int* error);
    static MASKMOBILEFACENET* InitMaskFaceRecognizerEngine(char* path, int* error);
    static OnetLandmark* InitOnetLandmarkEngine(char* path, int* error);
    ///@}

    /** @name Release of the engines
     * A null pointer is accepted and ignored. @return always 0 */
    ///@{
    static int FreeFaceDetectorEngine(MTCNN* engine);
    static int FreeQualityEngine(QUALITYEVALUATION* engine);
    static int FreeFaceRecognizerEngine(MOBILEFACENET* engine);
    static int FreeLivenessDetectorEngine(vdSpoofDetection* engine);
    static int FreeMaskEngine(vdFaceMask* engine);
    static int FreeLandmarkEngine(vdFaceLandmark* engine);
    static int FreeMaskFaceRecognizerEngine(MASKMOBILEFACENET* engine);
    static int FreeOnetLandmarkEngine(OnetLandmark* engine);
    ///@}
};

#endif
