#ifndef VELDAN_MASK_RECOGNIZER_HPP
#define VELDAN_MASK_RECOGNIZER_HPP

/**
 * @file
 * The recognizer of faces that may wear a mask: it looks at the upper half only. Its features are compared with
 * MOBILEFACENET::mfFeatureMatch(), and only with each other.
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
 * independent of each other.
 *
 * Exceptions that OpenCV raises are not caught.
 */
class VELDAN_API MASKMOBILEFACENET {
public:
    MASKMOBILEFACENET();
    ~MASKMOBILEFACENET();
    MASKMOBILEFACENET(const MASKMOBILEFACENET&) = delete;
    MASKMOBILEFACENET& operator=(const MASKMOBILEFACENET&) = delete;

    /**
     * Loads the network; called again, it replaces it.
     * @param path  not used: the network is part of the library. May be null.
     * @return 0, or 20 when the network is damaged
     */
    int maskfInitAlg(char* path);

    /** Does nothing: the network lives as long as the object. @return always 0 */
    int maskfFreeAlg();

    /** Length of a feature: 128 floats. */
    int maskfFeatureSize();

    /**
     * Writes the feature of each face, as the network answers it, not normalised. The aligned crop's lower half, rows
     * 56 to 111, is painted over: what is there has no influence.
     * @param fivePoints  whether key points 0 to 4 align the face, as when a bare face is enrolled; otherwise key
     * points 5 and 6 do, which a mask does not disturb
     * @param image       packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width       image width in pixels
     * @param height      image height in pixels
     * @param faceNum     number of records; 0 or less writes nothing
     * @param faces       the records, only read. Equal key points 5 and 6 are not rejected; the feature then says
     *                    nothing.
     * @param feature     receives faceNum x 128 floats
     * @return 0; -1 with nothing written when there are faces but a pointer is null, a size is not positive or the
     *         network is not loaded
     */
    int maskfFeatureExtract(bool fivePoints, unsigned char* image, int width, int height, int faceNum,
                            VDFACEINFOEX* faces, float* feature);

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

private:
    // For the tests: networks of their own in place of the embedded one.
    friend struct veldan::EngineAccess;

    std::unique_ptr<veldan::EngineNetwork> network;
};

#endif
