#ifndef VELDAN_FACE_FLOWS_HPP
#define VELDAN_FACE_FLOWS_HPP

/**
 * @file
 * The flows behind the search entry points of <veldan/face_api.h>, with the kind of template as an argument. C++ only:
 * these functions carry their argument types in their symbols. Handles, images, records and galleries as there.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

/**
 * Tracked search of one kind: zzSearchFaceThread() for kind 1, zzMaskSearchFaceThread() for any other kind.
 * @return 12 when handle is null, otherwise 0
 */
VELDAN_API int SearchFaceThread(int kind, void* handle, unsigned char* gallery, int galleryNum, int* templateNums,
                                int personNum, int threshold, int qualityThreshold, unsigned char* image, int width,
                                int height, int faceNum, VDFACEINFOEX* faces);

/**
 * One-shot search in a gallery of one template per person.
 * @param kind       1 bare, any other value masked
 * @param threshold  similarity that the best template must reach, 0 to 1
 * @param face       receives searchFlag (1 or 0), searchId (index or -1) and searchScore (percent, cut off)
 * @return 0 when the best template reaches the threshold, otherwise -1; 12 when handle is null; 17 when a pointer is
 * null
 */
VELDAN_API int DetectSearchFeatureThread(void* handle, int kind, unsigned char* gallery, int galleryNum,
                                         float threshold, unsigned char* feature, VDFACEINFOEX* face);

/**
 * One-shot search of every face of enough quality: zzDetectSearchFaceThread() for kind 1, any other kind with masked
 * templates.
 * @return always 0
 */
VELDAN_API int DetectSearchFaceThread(int kind, void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                      int qualityThreshold, unsigned char* image, int width, int height, int faceNum,
                                      VDFACEINFOEX* faces);

/** As zzDetectSearchFeatureThread(), of faces with masks. Exported under its decorated name only, on purpose. */
VELDAN_API int zzMaskDetectSearchFeatureThread(void* handle, unsigned char* gallery, int galleryNum, int threshold,
                                               unsigned char* feature, VDFACEINFOEX* face);

#endif
