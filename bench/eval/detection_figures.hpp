#ifndef VELDAN_EVAL_DETECTION_FIGURES_HPP
#define VELDAN_EVAL_DETECTION_FIGURES_HPP

#include "labels.hpp"
#include "tables.hpp"

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace veldan::eval {

/** A face that the library found, in pixels of the picture it was given. */
struct FoundFace {
    Box box;
    FivePoints points;
};

struct DetectionRules {
    /** Least overlap of a found face with a label. */
    double leastOverlap = 0.5;
    /** From this score on a label of the teacher is a face; below, it is uncertain. */
    double faceScore = 0.6;
    /** Faces smaller than this need not be found. */
    double leastSize = 45;
    SizeMeasure measure = SizeMeasure::Geometric;
    /**
     * Least overlap with something that is neither face nor background. Less is asked than of a face, since such labels
     * are less exact.
     */
    double leastIgnoreOverlap = 0.3;
};

enum class Verdict { True, False, Ignored };

/** What came of one photo. */
struct PhotoVerdict {
    /** One for each found face, in their order. */
    std::vector<Verdict> found;
    /** Faces that had to be found, and which of them were. */
    std::vector<Box> wanted;
    std::vector<bool> wantedFound;
    /** Which of them are turned far to the side (isProfile). */
    std::vector<bool> wantedProfile;
};

/**
 * Compares the faces found in a photo with its labels; both in the same pixels, those of the picture in which the faces
 * were looked for.
 *
 * To be found are the teacher's faces of faceScore and leastSize or more. Each is given to at most one found face, the
 * pair with the best overlap first. A found face left over is ignored when it overlaps an uncertain label, a label that
 * is too small, or a box that a person set; unless that label lies on a face that is found already, for then it is a
 * second box for one face. Everything else is false.
 */
PhotoVerdict judge(const std::vector<FoundFace>& found, const LabelledPhoto& labels, double pictureWidth,
                   double pictureHeight, const DetectionRules& rules);

/**
 * Error of the five points against those that a person set: the mean distance of the five, and each of them, in units
 * of the person's eye distance. The found face is the one that contains the centroid of the person's points and fits
 * best.
 */
struct PointError {
    bool matched = false;
    double mean = 0;
    std::array<double, 5> each{};
};
PointError pointError(const std::vector<FoundFace>& found, const FivePoints& truth);

/**
 * True when the person's points and the teacher's faces cannot both be right: the photo has a face of the teacher's,
 * and the points of none lie within a fifth of its height of the person's (distance of the centroids). In one pack of
 * the validation photos two files of five have their points moved by half a face.
 */
bool pointsContradictFaces(const LabelledPhoto& labels, double faceScore);

/** Figures over photos. */
class DetectionFigures {
public:
    /**
     * Adds one photo; labels are in the same pixels as the found faces. refused: the library did not take the picture,
     * so nothing was found.
     */
    void add(const std::vector<FoundFace>& found, const LabelledPhoto& labels, double pictureWidth,
             double pictureHeight, const DetectionRules& rules, double milliseconds, bool refused = false);

    std::size_t photos() const { return milliseconds_.size(); }

    /**
     * Faces whose points contradict the other labels (pointFacesContradicted) are in none of the other figures but
     * pointErrorMeanOfAll, which tells how much leaving them out matters. Errors are shares of the eye distance.
     * personBoxes: boxes set by people, of the least size and more, and how many of them were found.
     */
    Json toJson() const;

private:
    struct Count {
        std::size_t all = 0;
        std::size_t found = 0;
    };

    Count faces_;
    Count profiles_;
    std::map<std::string, Count> personBoxes_;
    std::size_t falsePositives_ = 0;
    std::size_t smallFalsePositives_ = 0;
    std::size_t ignored_ = 0;
    std::size_t emptyPhotos_ = 0;
    std::size_t emptyFalsePositives_ = 0;
    std::size_t refused_ = 0;
    std::size_t pointFacesMissed_ = 0;
    std::size_t pointFacesContradicted_ = 0;
    std::vector<double> pointErrors_;
    std::vector<double> contradictedErrors_;
    std::array<double, 5> pointErrorSums_{};
    std::vector<double> milliseconds_;
};

} // namespace veldan::eval

#endif
