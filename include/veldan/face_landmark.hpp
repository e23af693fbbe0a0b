#ifndef VELDAN_FACE_LANDMARK_HPP
#define VELDAN_FACE_LANDMARK_HPP

/**
 * @file
 * The two-point landmark engine, for faces whose lower half is covered: key points 5 and 6, which become the corners of
 * the crop that alignface_mask() cuts.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

#include <opencv2/core.hpp>

#include <memory>

namespace veldan {
struct EngineAccess;
struct EngineNetwork;
} // namespace veldan

/**
 * The square crop of get_crop() in <veldan/face_mask.hpp>, and the square itself.
 * @param rect  receives the square. When it leaves the image, the crop is cut out of a copy of the image with a border
 *              around it, and the square is given in pixels of that copy, on purpose: shifted to the right and down by
 *              the border's width. What an int cannot hold becomes the nearest int.
 * @return always 0
 */
VELDAN_API int get_crop_landmark(cv::Mat img, int x, int y, int w, int h, int size, cv::Mat& out, cv::Rect& rect);

/**
 * The engine.
 *
 * THREAD SAFETY: the network is not reentrant, so an object serves one thread at a time. Separate objects are
 * independent of each other.
 *
 * Exceptions that OpenCV raises are not caught.
 */
class VELDAN_API vdFaceLandmark {
public:
    vdFaceLandmark();
    ~vdFaceLandmark();
    vdFaceLandmark(const vdFaceLandmark&) = delete;
    vdFaceLandmark& operator=(const vdFaceLandmark&) = delete;

    /**
     * Loads the network; called again, it replaces it.
     * @param path  not used: the network is part of the library. May be null.
     * @return 0, or 20 when the network is damaged
     */
    int landmarkInitAlg(char* path);

    /**
     * Writes key points 5 and 6 of each record, and nothing else; keyPointNum stays.
     *
     * Where the square about the box leaves the image, both points come out shifted to the right and down by as much as
     * it leaves the image by at most: see get_crop_landmark().
     * @param image    packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width    image width in pixels
     * @param height   image height in pixels
     * @param faceNum  number of records; 0 or less writes nothing
     * @param faces    the records
     * @return 0; -1 with nothing written when there are faces but a pointer is null, a size is not positive or the
     *         network is not loaded
     * @throws cv::Exception when a box has no crop, see get_crop(); the records before it are written
     */
    int landmarkEvaluation(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);

    /** Does nothing: the network lives as long as the object. @return always 0 */
    int landmarkFreeAlg();

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

private:
    // For the tests: networks of their own in place of the embedded one.
    friend struct veldan::EngineAccess;

    std::unique_ptr<veldan::EngineNetwork> network;
};

#endif
