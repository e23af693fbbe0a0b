#ifndef VELDAN_EVAL_KNOWN_FACES_HPP
#define VELDAN_EVAL_KNOWN_FACES_HPP

#include "labels.hpp"

#include <optional>
#include <string>
#include <vector>

namespace veldan::eval {

/** Classes of masks, as people named them in the labels. */
inline const std::string withMask = "with_mask";
inline const std::string withoutMask = "without_mask";
inline const std::string maskWornWrong = "mask_weared_incorrect"; // spelt as in the labels

struct FaceRules {
    /** From this score on a label of the teacher is a face. */
    double faceScore = 0.6;
    /** Faces with a smaller geometric side are left out. */
    double leastSize = 40;
    /** Least overlap of two boxes that are one face. */
    double leastOverlap = 0.5;
};

/** A face whose five points are known. */
struct PointedFace {
    Box box;
    FivePoints points;
    /** The teacher's, where points are those of people. */
    std::optional<FivePoints> replacedPoints;
    /** Class of mask, empty when nobody gave one. */
    std::string category;
};

/**
 * The teacher's faces. Points that people set replace those of the face whose centroid is nearest, unless it lies
 * further than a fifth of the face's height away: then one of the two is wrong, and people's are known to be at times.
 * The class is that of the box that people set on the face; or the one that the file's name begins with, which belongs
 * to the largest face of the photo only.
 */
std::vector<PointedFace> facesWithPoints(const LabelledPhoto& labels, const FaceRules& rules);

/** A face whose class is known. */
struct ClassedFace {
    /** Nothing: the photo shows such a face, but the teacher did not see where. */
    std::optional<Box> box;
    std::string category;
};

/** The faces that people boxed; without any, the largest face of a photo whose name begins with a class. */
std::vector<ClassedFace> facesWithClass(const LabelledPhoto& labels, const FaceRules& rules);

} // namespace veldan::eval

#endif
