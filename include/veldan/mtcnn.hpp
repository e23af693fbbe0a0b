#ifndef VELDAN_MTCNN_HPP
#define VELDAN_MTCNN_HPP

/**
 * @file
 * The face detector, a cascade of three networks: a proposal network over an image pyramid, a refinement network on
 * 24 x 24 crops and an output network on 48 x 48 crops that also gives five landmarks. For C++ programs that want the
 * detector alone or one of its stages; <veldan/face_api.h> offers detection behind plain functions.
 *
 * Boxes are given by their corner pixels in single precision, origin at the top left of the image. Wherever a side
 * length or an area of such a box is used, it is x2 - x1 + 1 by y2 - y1 + 1, unless stated otherwise.
 */

#include <veldan/export.h>
#include <veldan/face_record.h>

#include <opencv2/core.hpp>
#include <opencv2/dnn.hpp>

#include <memory>
#include <vector>

namespace veldan {
struct DetectorAccess;
struct DetectorWorkspace;
} // namespace veldan

/** One candidate: 29 consecutive floats. */
struct FaceInfo {
    /** Regression that a network gave for this box: left, top, right, bottom. */
    float regression[4];
    /** Part of the record's layout; no stage writes or reads it. */
    float landmarkRegression[10];
    /** Five points x0, y0, ... x4, y4 in image pixels; only the output stage writes them. */
    float landmark[10];
    /** Left edge in image pixels. */
    float x1;
    /** Top edge. */
    float y1;
    /** Right edge. */
    float x2;
    /** Bottom edge. */
    float y2;
    /** Face probability, 0 to 1, of the stage that made the candidate. */
    float score;
};

/** Whether a's score is the higher one. */
VELDAN_API bool CompareBBox(const FaceInfo& a, const FaceInfo& b);

/** Whether a's area is the larger one; sides without the + 1. */
VELDAN_API bool CompareFacearea(const FaceInfo& a, const FaceInfo& b);

/** Squared distance of two points, in single precision; the caller takes the root. */
VELDAN_API double Pointdistance(cv::Point a, cv::Point b);

/**
 * The detector.
 *
 * THREAD SAFETY: an object keeps scratch from call to call and its networks are not reentrant, so it serves one thread
 * at a time. Separate objects are independent of each other.
 *
 * Images are 8-bit with three channels, in the order that the networks were trained with: blue, green, red. They are
 * only read. Before mtcnnInitAlg() has succeeded nothing is ever found.
 *
 * Exceptions that OpenCV raises while a network runs are not caught.
 */
class VELDAN_API MTCNN {
public:
    MTCNN();
    ~MTCNN();
    MTCNN(const MTCNN&) = delete;
    MTCNN& operator=(const MTCNN&) = delete;

    /**
     * Loads the three networks; called again, it replaces them.
     * @param path  not used: the networks are part of the library. May be null.
     * @return 0, or 20 when a network is damaged; those loaded before it stay
     */
    int mtcnnInitAlg(char* path);

    /** Does nothing: the networks live as long as the object. @return always 0 */
    int mtcnnFreeAlg();

    /**
     * Finds the faces of an image and writes their records, the largest face first. Of a record, box, key points 0 to
     * 4, keyPointNum and eyeDistance are written and nothing else.
     *
     * The smallest face searched for is 45 pixels; 70 when the image is more than 640 wide and more than 480 high.
     * @param image    packed pixels, 3 x width bytes a row
     * @param width    image width in pixels
     * @param height   image height in pixels
     * @param faceNum  receives the number of faces
     * @param faces    receives the records; must have room for every face found, at most 5000
     * @return 0; -1 with *faceNum 0 when there is no face, a pointer is null or a size is not positive
     */
    int mtcnnFaceDetect(unsigned char* image, int width, int height, int* faceNum, VDFACEINFOEX* faces);

    /**
     * Runs the cascade.
     * @param img        the image
     * @param minSize    smallest face to look for, in pixels, above 0
     * @param threshold  least score for each of the three stages; three values
     * @param factor     size ratio of neighbouring pyramid levels, above 0 and below 1
     * @param stage      1: return the proposals, regressed, best score first; 2: the refined boxes; 3 or more: the
     *                   faces, with landmarks; 0 or less: nothing
     * @return the candidates; none when an argument lies outside of its range or the image is empty or of another type
     */
    std::vector<FaceInfo> Detect_mtcnn(const cv::Mat& img, int minSize, const float* threshold, float factor,
                                       int stage);

    /**
     * Runs the refinement network (stage 2) or the output network (stage 3) on crops of the boxes, all in one batch. A
     * crop is black where its box leaves the image. A box that has no crop is left out: one less than a pixel wide or
     * high, one with a corner that is not finite or 2^30 and more away, and one whose crop would be larger than both
     * 4096 pixels and twice the longer side of the image.
     * @param img        the image
     * @param boxes      the candidates; not changed
     * @param width      width of the network's input: 24 in stage 2, 48 in stage 3
     * @param height     height of the network's input, equal to the width
     * @param stage      2 or 3; any other stage returns nothing
     * @param threshold  least score that survives
     * @return the surviving boxes in input order, with the network's score and regression, which is not applied; in
     *         stage 3 with landmarks. A box for which the network gives a value that is not finite does not survive.
     */
    std::vector<FaceInfo> NextStage(const cv::Mat& img, std::vector<FaceInfo>& boxes, int width, int height, int stage,
                                    float threshold);

    /** Moves each edge by regression x side. Landmarks stay. */
    void BBoxRegression(std::vector<FaceInfo>& boxes);

    /** Clamps the boxes into an image of width x height pixels and rounds the edges. Landmarks stay. */
    void BBoxPad(std::vector<FaceInfo>& boxes, int width, int height);

    /** Makes each box a square of its longer side about the same centre, with whole edges. The sizes are not used. */
    void BBoxPadSquare(std::vector<FaceInfo>& boxes, int width, int height);

    /**
     * The proposal stage: image pyramid, proposal network, suppression, regression. Arguments as in Detect_mtcnn().
     * @return the proposals, best score first; their number is not limited
     */
    std::vector<FaceInfo> ProposalNet(const cv::Mat& img, int minSize, float threshold, float factor);

    /**
     * Turns the maps of one pyramid level into candidates, which replace those of the level before.
     * @param score      1 x 8 x rows x columns: background and face probability of each of the four anchors
     * @param location   1 x 16 x rows x columns: four regression values for each anchor
     * @param scale      size of the level relative to the image
     * @param threshold  least face probability, itself included
     */
    void GenerateBBox(cv::Mat* score, cv::Mat* location, float scale, float threshold);

    /** Softmax of each anchor's background and face value, in place; 1 x 8 x rows x columns. */
    void softmax_in_anchor(cv::Mat& score);

    /** Applies the proposal network's regression: a shift of the centre and a change of size. */
    void BBoxRegression_rpn(std::vector<FaceInfo>& boxes);

    /**
     * Greedy suppression: from the best score down, each box removes those after it that overlap it by more than
     * threshold. Equal scores keep their order. A box with a coordinate that is not a number neither removes others nor
     * is removed.
     * @param boxes      the candidates; sorted by score when the call returns
     * @param threshold  overlap that is still kept
     * @param mode       'u': intersection over union; 'm': over the smaller area; anything else removes nothing
     * @return the boxes that remain, best score first
     */
    std::vector<FaceInfo> NMS(std::vector<FaceInfo>& boxes, float threshold, char mode);

    /**
     * Overlap of two boxes, each given as left, top, right, bottom; 0 when they do not meet.
     * @param overSmaller  divide by the smaller area instead of the union
     */
    float IoU(float ax1, float ay1, float ax2, float ay2, float bx1, float by1, float bx2, float by2, bool overSmaller);

    /** Length of a file in bytes; 0 when it cannot be opened, is no regular file or is longer than an int can say. */
    int vdGetDataSize(char* path);

private:
    // Internals for the tests and benchmarks: networks of their own in place of the embedded ones.
    friend struct veldan::DetectorAccess;

    cv::dnn::Net pnet;
    cv::dnn::Net rnet;
    cv::dnn::Net onet;
    std::vector<FaceInfo> candidateBoxes;
    std::vector<FaceInfo> totalBoxes;
    int anchorNum;
    float anchorScale;
    int cellSize;
    float anchorStride;
    float anchorBase;
    int maxProposals;
    float pixelMean;
    float pixelScale;
    int batchSize;
    float centerVariance[2];
    float sizeVariance[2];
    std::unique_ptr<veldan::DetectorWorkspace> workspace;
};

#endif
