#ifndef VELDAN_EVAL_LABELS_HPP
#define VELDAN_EVAL_LABELS_HPP

#include "geometry.hpp"

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace veldan::eval {

/** A face that a teacher network found. */
struct TeacherFace {
    Box box;
    FivePoints points;
    double score = 0;
};

/** A face that a person boxed, with the class given to it. */
struct PersonBox {
    Box box;
    std::string category;
};

struct LabelledPhoto {
    std::string file;
    /** In pixels; 0 where the pack does not say. */
    int width = 0;
    int height = 0;
    std::string split;
    std::vector<TeacherFace> faces;
    std::vector<PersonBox> personBoxes;
    std::optional<FivePoints> personPoints;
};

/** The labels of one pack of photos, in the order of its list of images. */
struct Pack {
    std::string name;
    std::vector<LabelledPhoto> photos;
};

/** The packs of a folder: every NAME with NAME.images.csv, or with NAME.csv and NAME.labels.csv; in alphabetical order.
 */
std::vector<std::string> packNames(const std::filesystem::path& folder);

/**
 * Reads NAME.images.csv (file,width,height,split), NAME.labels.csv (file,x,y,w,h,lx0,ly0,...,lx4,ly4,score), and, where
 * they exist, NAME.landmarks.csv (file,lx0,...,ly4) and NAME.masks.csv (file,x,y,w,h,class). A first line that begins
 * with "file," is a heading. Throws std::runtime_error, with file and line, for anything that does not fit.
 */
Pack readPack(const std::filesystem::path& folder, const std::string& name);

/**
 * Whether the nose lies beyond the eyes, along the line through them: a head turned by about 60 degrees to the side and
 * more.
 */
bool isProfile(const FivePoints& points);

/**
 * The labels in the pixels of a picture that is sx times as wide and sy times as high. Points that people set name a
 * pixel, so it is the middle of the pixel that is scaled; boxes are measured from pixel edges.
 */
LabelledPhoto scaled(const LabelledPhoto& labels, double sx, double sy);

/**
 * The teacher's labels that people looked at and found at fault: a table file,pack,x,y,w,h,verdict, the box as it
 * stands in the pack's labels.
 *
 * Whoever judges labels must not know what the library found there, or the review says what it is wished to say:
 * training/label_sheets.py draws all labels, found and missed alike, for that.
 */
class LabelReview {
public:
    /** Nothing is at fault. */
    LabelReview() = default;

    /** Throws std::runtime_error, with file and line, for anything that does not fit; packs: those that there are. */
    LabelReview(const std::filesystem::path& path, const std::vector<std::string>& packs);

    /**
     * Verdict no_face: there is nobody; the label goes, and a face found there is false. Verdict part: the box is not
     * the face's extent; the label becomes an uncertain one, neither required nor held against the library. Throws
     * std::runtime_error, with file and line, when the pack has no such label.
     */
    void apply(Pack& pack);

    /** How many labels were changed so far. */
    std::size_t noFaces() const { return noFaces_; }
    std::size_t parts() const { return parts_; }

private:
    struct Fault {
        std::string place;
        std::string file;
        std::string pack;
        Box box;
        bool noFace;
    };
    std::vector<Fault> faults_;
    std::size_t noFaces_ = 0;
    std::size_t parts_ = 0;
};

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
