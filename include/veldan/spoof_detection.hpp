#ifndef VELDAN_SPOOF_DETECTION_HPP
#define VELDAN_SPOOF_DETECTION_HPP

/**
 * @file
 * Liveness under visible and near-infrared light: how likely a face is a person and not a picture of one.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

#include <opencv2/dnn.hpp>

namespace veldan {
struct EngineAccess;
}

/**
 * The engine, with a network for each kind of light.
 *
 * Both evaluations align the face first. A face whose maskScore is 40 or more is aligned by key points 5 and 6, which
 * the two-point landmark engine writes, any other one by key points 0 to 4. (The combined flows take a face as masked
 * from 41 on; the difference is intended.) Points that were never written are used as they are. What score counts as
 * live is the caller's decision.
 *
 * THREAD SAFETY: the networks are not reentrant, so an object serves one thread at a time. Separate objects are
 * independent of each other.
 *
 * Exceptions that OpenCV raises are not caught.
 */
class VELDAN_API vdSpoofDetection {
public:
    vdSpoofDetection();
    ~vdSpoofDetection();
    vdSpoofDetection(const vdSpoofDetection&) = delete;
    vdSpoofDetection& operator=(const vdSpoofDetection&) = delete;

    /**
     * Loads both networks; called again, it replaces them.
     * @param path  not used: the networks are part of the library. May be null.
     * @return 0, or 20 when a network is damaged. The one for visible light comes first: it is usable when only the
     *         other one is damaged.
     */
    int vdSpoofInitAlg(char* path);

    /** Does nothing: the networks live as long as the object. @return always 0 */
    int vdSpoofFreeAlg();

    /**
     * Writes liveness of each record, and nothing else: the probability of a live face under visible light, 0 to 100,
     * cut off.
     * @param image    packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width    image width in pixels
     * @param height   image height in pixels
     * @param faceNum  number of records; 0 or less writes nothing
     * @param faces    the records
     * @return 0; -1 with nothing written when there are faces but a pointer is null, a size is not positive or the
     *         network is not loaded
     * @throws cv::Exception when a side of the image is 32767 pixels or more
     */
    int vdSpoofRGBEvaluation(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);

    /**
     * As vdSpoofRGBEvaluation(), for a frame of a near-infrared camera, given with three channels as well. Writes the
     * same word of the records.
     */
    int vdSpoofNIREvaluation(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

private:
    // For the tests: networks of their own in place of the embedded ones.
    friend struct veldan::EngineAccess;

    cv::dnn::Net rgbNet;
    cv::dnn::Net nirNet;
};

#endif
