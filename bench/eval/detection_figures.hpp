#ifndef VELDAN_EVAL_DETECTION_FIGURES_HPP
#define VELDAN_EVAL_DETECTION_FIGURES_HPP

#include "geometry.hpp"
#include "labels.hpp"

#include <nlohmann/json_fwd.hpp>

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
 * Compares the faces found in a photo with its labels; both in the same pixels, pictureWidth x pictureHeight being the
 * picture in which the faces were looked for.
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

/** Sums over photos; figures are computed from sums, so that packs can be added up. */
class DetectionFigures {
public:
    /** Adds one photo. The labels are in the same pixels as the found faces. */
    void add(const std::vector<FoundFace>& found, const LabelledPhoto& labels, double pictureWidth,
             double pictureHeight, const DetectionRules& rules, double milliseconds);
    /** Counts a photo that the library refused; its faces have been added as not found. */
    void addRefused() { ++refused_; }
    void add(const DetectionFigures& other);

    std::size_t photos() const { return photos_; }
    std::size_t faces() const { return faces_; }
    std::size_t facesFound() const { return facesFound_; }
    /** Share of the faces that were found; 1 when there are none. */
    double recall() const;
    std::size_t falsePositives() const { return falsePositives_; }
    double falsePositivesPerPhoto() const;
    /** False positives smaller than the smallest face that counts. */
    std::size_t smallFalsePositives() const { return smallFalsePositives_; }
    std::size_t ignored() const { return ignored_; }
    /** Photos without any label, and the false positives on them. */
    std::size_t emptyPhotos() const { return emptyPhotos_; }
    std::size_t emptyFalsePositives() const { return emptyFalsePositives_; }
    std::size_t refused() const { return refused_; }

    std::size_t pointFaces() const { return pointErrors_.size() + pointFacesMissed_; }
    std::size_t pointFacesMissed() const { return pointFacesMissed_; }
    /** Faces whose points contradict the other labels; they are not judged and in none of the other counts. */
    std::size_t pointFacesContradicted() const { return pointFacesContradicted_; }
    /** The mean error with those faces in it, whose points are wrong: how much leaving them out matters. */
    double pointErrorMeanOfAll() const;
    /** Mean and median error of the points, as a share of the eye distance; 0 when no face was matched. */
    double pointErrorMean() const;
    double pointErrorMedian() const;
    std::array<double, 5> pointErrorOfEach() const;

    double millisecondsMean() const;
    double millisecondsMedian() const;

    /** Boxes set by people, of the least size and more: how many there are of each class, and how many were found. */
    struct Count {
        std::size_t boxes = 0;
        std::size_t found = 0;
    };
    const std::map<std::string, Count>& personBoxes() const { return personBoxes_; }
    /** Those of the faces that are turned far to the side (isProfile). */
    const Count& profiles() const { return profiles_; }

    nlohmann::ordered_json toJson() const;

private:
    std::size_t photos_ = 0;
    std::size_t faces_ = 0;
    std::size_t facesFound_ = 0;
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
    std::map<std::string, Count> personBoxes_;
    Count profiles_;
};

/**
 * The labels in the pixels of a picture that is sx times as wide and sy times as high. Points that people set name a
 * pixel, so it is the middle of the pixel that is scaled; boxes are measured from pixel edges.
 */
LabelledPhoto scaled(const LabelledPhoto& labels, double sx, double sy);

} // namespace veldan::eval

#endif
