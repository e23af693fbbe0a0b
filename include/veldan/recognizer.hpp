#ifndef VELDAN_RECOGNIZER_HPP
#define VELDAN_RECOGNIZER_HPP

/**
 * @file
 * The recognizer of bare faces: a face becomes 128 numbers, two faces become a similarity. Programs that only keep
 * templates use the entry points; the numbers themselves are for those who compare them in their own way.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

#include <memory>

namespace veldan {
struct EngineAccess;
struct EngineNetwork;
} // namespace veldan

/**
 * The recognizer.
 *
 * THREAD SAFETY: the network is not reentrant, so an object serves one thread at a time. Separate objects are
 * independent of each other. mfFeatureMatch() uses nothing of the object: any number of threads may call it.
 *
 * Exceptions that OpenCV raises are not caught.
 */
class VELDAN_API MOBILEFACENET {
public:
    MOBILEFACENET();
    ~MOBILEFACENET();
    MOBILEFACENET(const MOBILEFACENET&) = delete;
    MOBILEFACENET& operator=(const MOBILEFACENET&) = delete;

    /**
     * Loads the network; called again, it replaces it.
     * @param path  not used: the network is part of the library. May be null.
     * @return 0, or 20 when the network is damaged
     */
    int mfInitAlg(char* path);

    /** Does nothing: the network lives as long as the object. @return always 0 */
    int mfFreeAlg();

    /** Length of a feature: 128 floats. */
    int mfFeatureSize();

    /**
     * Writes the feature of each face: aligned by key points 0 to 4 of its record, as the network answers it, not
     * normalised. The answer for a face does not depend on the other faces of the call.
     * @param image    packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width    image width in pixels
     * @param height   image height in pixels
     * @param faceNum  number of records; 0 or less writes nothing
     * @param faces    the records, only read
     * @param feature  receives faceNum x 128 floats
     * @return 0; -1 with nothing written when there are faces but a pointer is null, a size is not positive or the
     *         network is not loaded
     */
    int mfFeatureExtract(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces, float* feature);

    /**
     * Similarity of two features of 128 floats, of either kind: (cosine + 1) / 2, from 0 (opposite) over 0.5 (unlike)
     * to 1 (equal direction).
     *
     * A feature of zeros has no direction: the result is then not a number. Null pointers give 0.
     */
    double mfFeatureMatch(const float* a, const float* b);

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

private:
    // For the tests: networks of their own in place of the embedded one.
    friend struct veldan::EngineAccess;

    std::unique_ptr<veldan::EngineNetwork> network;
};

#endif
