#ifndef VELDAN_FACE_MASK_HPP
#define VELDAN_FACE_MASK_HPP

/**
 * @file
 * The mask classifier, and the square crop that it and the two-point landmark engine look at.
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
 * Cuts the square about a box, black where it leaves the image, and resizes it. The square has the box's longer side
 * and its centre, up to half a pixel.
 *
 * A square that leaves the image costs a bordered copy of the whole image. When img is a view into a larger image, that
 * border shows what surrounds the view.
 * @param img   the image, with 8-bit channels
 * @param x     left edge of the box
 * @param y     top edge
 * @param w     width of the box
 * @param h     height of the box
 * @param size  side of the crop in pixels
 * @param out   receives the crop
 * @return always 0
 * @throws cv::Exception when the image is empty, the longer side or size is not positive, or the square leaves the
 *         image and has more than 1 GiB of pixels
 */
VELDAN_API int get_crop(cv::Mat img, int x, int y, int w, int h, int size, cv::Mat& out);

/**
 * The classifier.
 *
 * THREAD SAFETY: the network is not reentrant, so an object serves one thread at a time. Separate objects are
 * independent of each other.
 *
 * Exceptions that OpenCV raises are not caught.
 */
class VELDAN_API vdFaceMask {
public:
    vdFaceMask();
    ~vdFaceMask();
    vdFaceMask(const vdFaceMask&) = delete;
    vdFaceMask& operator=(const vdFaceMask&) = delete;

    /**
     * Loads the network; called again, it replaces it.
     * @param path  not used: the network is part of the library. May be null.
     * @return 0, or 20 when the network is damaged
     */
    int maskInitAlg(char* path);

    /**
     * Writes maskScore of each record, and nothing else: the probability that the face wears a mask, 0 to 100, cut off.
     * @param image    packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width    image width in pixels
     * @param height   image height in pixels
     * @param faceNum  number of records; 0 or less writes nothing
     * @param faces    the records
     * @return 0; -1 with nothing written when there are faces but a pointer is null, a size is not positive or the
     *         network is not loaded
     * @throws cv::Exception when a box has no crop, see get_crop(); the records before it are written
     */
    int maskEvaluation(unsigned char* image, int width, int height, int faceNum, VDFACEINFOEX* faces);

    /** Does nothing: the network lives as long as the object. @return always 0 */
    int maskFreeAlg();

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

private:
    // For the tests: networks of their own in place of the embedded one.
    friend struct veldan::EngineAccess;

    std::unique_ptr<veldan::EngineNetwork> network;
};

#endif
