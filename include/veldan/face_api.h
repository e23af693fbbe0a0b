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
 *     VDFACEINFOEX* faces = calloc(VELDAN_DETECT_CAPACITY, sizeof *faces);
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
 * Records: zero them before first use. Each call writes the words that it names and no others; what no call has written
 * is what the memory held, and would be read as a score or a verdict.
 *
 * Evidence: a tracked search counts what earlier searches of the same trackId (modulo 100) found, also those of another
 * video or of somebody who has left. Before a new video, and whenever a frame was empty, begin the counts anew: create
 * a new instance, or search a template in a gallery of itself alone, which is accepted at once as every decision begins
 * all counts anew:
 *
 *     VDFACEINFOEX any = {0};
 *     zzSearchFeatureThread(handle, gallery, 1, 100, gallery, &any);
 *
 * (gallery: of bare faces, its first template an intact one; capacity 1 or more). veldan::Tracker of
 * <veldan/veldan.hpp> keeps the evidence of videos and faces apart by itself.
 *
 * Errors: results are the codes of <veldan/result_codes.h>, 0 for success. Memory running out, and faults inside
 * OpenCV, reach C++ callers as exceptions; a C program ends then. So C programs hand in records as detection wrote them
 * for the very image. These throw:
 * - a box that is empty (a zeroed record) or larger than memory: quality, mask, and the flows that judge them;
 * - a box wholly outside of the image: quality, and the flows that judge it;
 * - an image with a side of 32,767 pixels or more: extraction and liveness, and the flows that extract. Detection and
 *   mask classification take it.
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
 * other words stay as they are. Box and key points 0 to 4 lie within the image; key points 5 and 6 may lie outside.
 *
 * Where the square around a box, as long as its longer side and on the same centre, leaves the image, key points 5 and
 * 6 are shifted to the right and down by as much as it leaves it: see the masked templates below.
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

/**
 * zzDetectFaceThread() and quality, with identities and search verdicts carried over from the frame before by the
 * overlap of the boxes. Hand back what the previous call returned; a count of 0 starts anew.
 *
 * The first frame, and the first one after an empty frame, gets no identities: set trackId of its records, each another
 * number from 0 on, before the next call, and see "Evidence" above. With a count of 0 this call first sets all words of
 * faces[0], reserved ones too, to -1, but trackId and searchFlag to 0, also when it fails then; it is the only one that
 * writes reserved words.
 *
 * Box, key points, eyeDistance and quality are written, and trackId with the four words of the verdict when the face
 * was in the frame before. All other words, among them maskScore and liveness, stay at their index in the array while
 * the faces may change places: judge them anew. So do searchId, searchScore and strangerFlag of a face with a new
 * identity, of which only trackId and searchFlag (0) are written.
 * @param faceNum  in: faces of the previous call, 0 to 100; out: faces of this frame, at most 100, largest first
 * @param faces    in and out; room as for zzDetectFaceThread(). trackId tells a person's faces in successive frames.
 *                 A face that overlaps none of the frame before gets the identity of its face 0 unless another face
 *                 claims it.
 * @return 0; 12 when handle is null; 13 when detection failed for whatever reason; 32 when quality failed
 */
VELDAN_API int zzTrackFaceThread(void* handle, unsigned char* image, int width, int height, int* faceNum,
                                 VDFACEINFOEX* faces);

/** @name One engine over the faces of a frame
 * Records as detection wrote them for the same image; each writes one word of them. 12 when handle is null. */
/**@{*/
/** Writes quality, 0 to 100. @return 0, 12, or 32 when it failed */
VELDAN_API int zzFaceQualityThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                   VDFACEINFOEX* faces);
/**
 * Quality for enrolment, of exactly one face: lowered to 0.8 of it when the face is blurred.
 * @return the quality, 0 to 100; 12; 15 when faceNum is not 1; 32 when it failed. A quality of 12, 15 or 32 reads like
 * an error: look at faces[0].quality to tell them apart.
 */
VELDAN_API int zzFaceQuality4RegisterThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                            VDFACEINFOEX* faces);
/**
 * Writes liveness, 0 to 100, of a picture in visible light. Reads maskScore, so call zzFaceMaskThread() first: from 40
 * on the face is aligned by key points 5 and 6, otherwise by 0 to 4, which gives other scores.
 * @return 0, 12, or -1 when the arguments make no sense */
VELDAN_API int zzVisLivenessDetectThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                         VDFACEINFOEX* faces);
/**
 * Writes liveness, 0 to 100, of a near-infrared picture. Reads maskScore as zzVisLivenessDetectThread() does.
 * @return 0, 12, or -1 when the arguments make no sense */
VELDAN_API int zzNirLivenessDetectThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                         VDFACEINFOEX* faces);
/** Writes maskScore, 0 to 100; the flows below take a face as masked from 41 on. @return 0, 12, or 32 when it failed */
VELDAN_API int zzFaceMaskThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                VDFACEINFOEX* faces);
/**@}*/

/** Bytes of a template of either kind: 520. 12 when handle is null, which no template size is. */
VELDAN_API int zzGetFeatureSizeThread(void* handle);

/** @name Templates
 * Writes one template of zzGetFeatureSizeThread() bytes for each face to feature. Where image or size make no sense,
 * the templates hold zeros and are similar to nothing. @return 0, or 12 when handle is null */
/**@{*/
/** Bare faces, for enrolment and recognition. */
VELDAN_API int zzExtractFeatureThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                      VDFACEINFOEX* faces, unsigned char* feature);
/**
 * Faces that may wear a mask, for recognition: key points 5 and 6 align them. Near the border of the image, where the
 * square around the box leaves it, these are shifted and the template is that of another part of the face (similarity
 * to the template of the same face away from the border: 0.99 with room, 0.71 and 0.39 on two portraits cut at the
 * box).
 */
VELDAN_API int zzMaskExtractFeatureThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                          VDFACEINFOEX* faces, unsigned char* feature);
/** The same kind of template for enrolment, from a bare face: key points 0 to 4 align it, also near the border. */
VELDAN_API int zzMaskExtractFeature4RegThread(void* handle, unsigned char* image, int width, int height, int faceNum,
                                              VDFACEINFOEX* faces, unsigned char* feature);
/**@}*/

/**
 * Similarity of two templates of bare faces: (cosine + 1) / 2, from 0 to 1 for templates of this library. Forged ones,
 * whose values are so small or large that their squares cannot be held, may be more similar than 1: refuse templates
 * from elsewhere that cannot be any, as veldan::flawOf() of <veldan/template.hpp> does.
 * @param score  receives it; not a number when a template holds zeros
 * @return 0; 12 when handle is null; 17, score untouched, when a template is damaged, of the other kind or null
 */
VELDAN_API int zzMatchFeatureThread(void* handle, unsigned char* featureA, unsigned char* featureB, float* score);
/** As zzMatchFeatureThread(), of faces with masks. */
VELDAN_API int zzMaskMatchFeatureThread(void* handle, unsigned char* featureA, unsigned char* featureB, float* score);

/**
 * Searches a gallery for the person of a template. A gallery is an array of templates of one kind, grouped by person.
 *
 * A similarity of 0.80 and more is accepted at once. Otherwise the best similarities of the last three searches of the
 * same track (face->trackId modulo 100) are averaged for each person, and the best average must reach the threshold;
 * after five searches without success the face is declared unknown. Every decision begins the counts of all tracks
 * anew.
 * @param gallery       the templates of person 0, then those of person 1, and so on; damaged ones are passed over
 * @param galleryNum    size of the gallery, compared with the instance's capacity: templates or persons, at least
 *                      personNum
 * @param templateNums  number of templates of each person; null for one each
 * @param personNum     number of persons
 * @param threshold     percent
 * @param feature       the template to search for
 * @param face          its record: trackId and searchFlag are read; searchFlag, searchId and searchScore are written
 * @return 0 when known: searchFlag 1, searchId the person's index, searchScore the similarity in percent (nothing
 * changes when searchFlag was 1 before); 12 when handle is null; 17 when a pointer is null; VD_SEARCH_UNDECIDED;
 *         VD_SEARCH_UNKNOWN; VD_SEARCH_CAPACITY
 */
VELDAN_API int zzSearchNFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums,
                                      int personNum, int threshold, unsigned char* feature, VDFACEINFOEX* face);
/** As zzSearchNFeatureThread(), of faces with masks. */
VELDAN_API int zzMaskSearchNFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums,
                                          int personNum, int threshold, unsigned char* feature, VDFACEINFOEX* face);
/** As zzSearchNFeatureThread(), with one template per person. */
VELDAN_API int zzSearchFeatureThread(void* handle, unsigned char* gallery, int personNum, int threshold,
                                     unsigned char* feature, VDFACEINFOEX* face);
/** As zzSearchFeatureThread(), of faces with masks. */
VELDAN_API int zzMaskSearchFeatureThread(void* handle, unsigned char* gallery, int personNum, int threshold,
                                         unsigned char* feature, VDFACEINFOEX* face);

/**
 * Tracked search: to be called after zzTrackFaceThread() for every frame, with the same records. Searches each face
 * whose quality reaches qualityThreshold and that is not recognised yet, as zzSearchNFeatureThread() does; the verdict
 * is in the records. searchFlag counts the calls since a face was recognised (1, 2, ...; after 1000000 again from 1),
 * strangerFlag those since it was declared unknown. Look at searchFlag first: a face that was declared unknown is
 * searched on and may be recognised, and its strangerFlag goes on counting then.
 * @return 0, or 12 when handle is null. Failures of single faces are passed over; so is VD_SEARCH_CAPACITY, with which
 *         nobody is ever recognised or declared unknown: compare galleryNum and personNum with the capacity yourself
 */
VELDAN_API int zzSearchFaceThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums,
                                  int personNum, int threshold, int qualityThreshold, unsigned char* image, int width,
                                  int height, int faceNum, VDFACEINFOEX* faces);
/** As zzSearchFaceThread(), with templates of faces with masks. */
VELDAN_API int zzMaskSearchFaceThread(void* handle, unsigned char* gallery, int galleryNum, int* templateNums,
                                      int personNum, int threshold, int qualityThreshold, unsigned char* image,
                                      int width, int height, int faceNum, VDFACEINFOEX* faces);
/**
 * As zzSearchFaceThread(), and looks first whether each face wears a mask: masked faces are searched in maskGallery
 * with maskThreshold, and half of qualityThreshold is enough for them. Both galleries have the same persons and counts.
 * @return 0, or 12 when handle is null
 */
VELDAN_API int zzSearchAllFaceThread(void* handle, unsigned char* gallery, unsigned char* maskGallery, int galleryNum,
                                     int* templateNums, int personNum, int threshold, int maskThreshold,
                                     int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                                     VDFACEINFOEX* faces);

/**
 * Recognises the first face of a frame in one call, without history: mask and quality are judged for all faces, then
 * faces[0] is compared with the gallery of its kind.
 * @param galleryNum  accepted and not used
 * @return 0: searchFlag 1, searchId and searchScore of the person when the threshold is reached; otherwise searchFlag
 * -1, searchId -1, searchScore the best one. 12 when handle is null; 32 when quality is too low or there is no face; 18
 * when extraction failed; 17 when a template of the gallery is damaged or of the other kind: searchFlag -1, searchId
 * -100, searchScore 0
 */
VELDAN_API int zzMaxFaceRecogThread(void* handle, unsigned char* gallery, unsigned char* maskGallery, int galleryNum,
                                    int* templateNums, int personNum, int threshold, int maskThreshold,
                                    int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                                    VDFACEINFOEX* faces);

/**
 * One-shot search, without history, in a gallery of one template of a bare face per person.
 * @param galleryNum  number of templates
 * @param threshold   percent that the best template must reach
 * @param face        receives searchFlag (1 or 0), searchId (index or -1) and searchScore (percent, cut off)
 * @return 0 when the threshold is reached, -1 when not; 12 when handle is null; 17 when a pointer is null
 */
VELDAN_API int zzDetectSearchFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                           unsigned char* feature, VDFACEINFOEX* face);
/**
 * zzDetectSearchFeatureThread() for every face of a frame whose quality, which is judged first, reaches
 * qualityThreshold.
 * @return always 0: also a null handle is not an error here
 */
VELDAN_API int zzDetectSearchFaceThread(void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                        int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                                        VDFACEINFOEX* faces);
/**
 * As zzDetectSearchFaceThread(), with mask judged too: masked faces need half the quality, and are compared as masked
 * ones with maskThreshold.
 * @param gallery      where both kinds are searched
 * @param maskGallery  accepted and deliberately not used
 * @return always 0
 */
VELDAN_API int zzDetectSearchAllFaceThread(void* handle, unsigned char* gallery, unsigned char* maskGallery,
                                           int galleryNum, int threshold, int maskThreshold, int qualityThreshold,
                                           unsigned char* image, int width, int height, int faceNum,
                                           VDFACEINFOEX* faces);

VELDAN_END_DECLS

#endif
