#ifndef VELDAN_EVAL_LABELS_HPP
#define VELDAN_EVAL_LABELS_HPP

#include "geometry.hpp"

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

} // namespace veldan::eval

#endif
