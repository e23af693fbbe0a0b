#ifndef VELDAN_ONET_LANDMARK_HPP
#define VELDAN_ONET_LANDMARK_HPP

/**
 * @file
 * Landmark refinement: the detector's output network once more, on boxes that are already known.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

#include <memory>

namespace veldan {
struct EngineAccess;
struct EngineNetwork;
} // namespace veldan

/**
 * The engine.
 *
 * THREAD SAFETY: the network is not reentrant, so an object serves one thread at a time. Separate objects are
 * independent of each other.
 *
 * Exceptions that OpenCV raises are not caught.
 */
class VELDAN_API OnetLandmark {
public:
    OnetLandmark();
    ~OnetLandmark();
    OnetLandmark(const OnetLandmark&) = delete;
    OnetLandmark& operator=(const OnetLandmark&) = delete;

    /**
     * Loads the network; called again, it replaces it.
     * @param path  not used: the network is part of the library. May be null.
     * @return 0, or 20 when the network is damaged
     */
    int mOnetInitAlg(char* path);

    /**
     * Rewrites box, key points 0 to 4 and keyPointNum of each record from the network's answer for its box. There is no
     * score: every record is refined. Nothing is clamped, so a refined box may reach past the image; eyeDistance and
     * all other words stay.
     *
     * The crop is the square about the box, clamped to the image. Its right and bottom edges lie one side length from
     * the box's own left and top edges, not from those of the square: the network was trained for that.
     * @param image    packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width    image width in pixels
     * @param height   image height in pixels
     * @param faceNum  number of records; 0 or less refines nothing
     * @param faces    the records
     * @return 0; -1 with nothing written when there are faces to refine but a pointer is null, a size is not positive
     *         or the network is not loaded
     * @throws cv::Exception when a box lies outside of the image; the records before it are refined
     */
    int mOnetLandmark(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);

    /** Does nothing: the network lives as long as the object. @return always 0 */
    int mOnetFreeAlg();

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

private:
    // For the tests: networks of their own in place of the embedded one.
    friend struct veldan::EngineAccess;

    std::unique_ptr<veldan::EngineNetwork> network;
};

#endif
