#ifndef VELDAN_FACE_QUALITY_HPP
#define VELDAN_FACE_QUALITY_HPP

/**
 * @file
 * Two tests of a face that need no network: is it sharp, and does it look at the camera?
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

/** The tests. An object holds nothing; any number of threads may use it. */
class VELDAN_API FaceQuality {
public:
    FaceQuality();
    ~FaceQuality();

    /**
     * Sharpness inside the face box: mean and spread of the magnitude of the Laplacian.
     * @param image   packed pixels in blue, green, red order, 3 x width bytes a row
     * @param width   image width in pixels
     * @param height  image height in pixels
     * @param face    the face; its box is clipped to the image
     * @return 1 when the mean is above 10, the standard deviation above 20 and their ratio above 0.5, else 0; also 0
     *         when the box lies outside of the image, the image is null or a size is not positive
     */
    int Face_blurRGB(unsigned char* image, int width, int height, VDFACEINFOEX face);

    /**
     * Frontalness, from the five key points and the box alone: the nose between the eyes and between the mouth corners,
     * half way down, and the face in the middle of its box; the eyes further apart than the mouth corners.
     * @param image   not read; may be null
     * @param width   not used
     * @param height  not used
     * @param face    the face, with key points 0 to 4 in the detector's order
     * @return 1 when every ratio lies within its bounds, else 0
     */
    int Face_Front(unsigned char* image, int width, int height, VDFACEINFOEX face);
};

#endif
