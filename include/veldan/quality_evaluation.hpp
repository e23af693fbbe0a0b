#ifndef VELDAN_QUALITY_EVALUATION_HPP
#define VELDAN_QUALITY_EVALUATION_HPP

/**
 * @file
 * The learned face quality.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

#include <opencv2/dnn.hpp>

namespace veldan {
struct EngineAccess;
}

/**
 * The engine.
 *
 * THREAD SAFETY: the network is not reentrant, so an object serves one thread at a time. Separate objects are
 * independent of each other.
 *
 * Exceptions that OpenCV raises are not caught.
 */
class VELDAN_API QUALITYEVALUATION {
public:
    QUALITYEVALUATION();
    ~QUALITYEVALUATION();
    QUALITYEVALUATION(const QUALITYEVALUATION&) = delete;
    QUALITYEVALUATION& operator=(const QUALITYEVALUATION&) = delete;

    /**
     * Loads the network; called again, it replaces it.
     * @param path  not used: the network is part of the library. May be null.
     * @return 0, or 20 when the network is damaged
     */
    int mqInitAlg(char* path);

    /**
     * Writes quality of each record, and nothing else: the probability of a good face, 0 to 100, cut off.
     *
     * The network sees the square about the box, clipped to the image and stretched to a square again.
     * @param image      packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width      image width in pixels
     * @param height     image height in pixels
     * @param faceCount  number of records; 0 or less writes nothing
     * @param faces      the records
     * @return 0; -1 with nothing written when there are faces but a pointer is null, a size is not positive or the
     *         network is not loaded
     * @throws cv::Exception when a box is empty or lies outside of the image; the records before it are written
     */
    int mqQualityEvaluation(unsigned char* image, int width, int height, int faceCount, VDFACEINFOEX* faces);

    /** Does nothing: the network lives as long as the object. @return always 0 */
    int mqFreeAlg();

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

    /**
     * Rounds to the nearest integer. Halves above zero go to the even neighbour (2.5 to 2, 3.5 to 4), halves below zero
     * away from zero (-2.5 to -3). What an int cannot hold becomes the nearest int, a value that is no number 0.
     */
    int np_round(float value);

private:
    // For the tests: networks of their own in place of the embedded one.
    friend struct veldan::EngineAccess;

    cv::dnn::Net net;
};

#endif
