#ifndef VELDAN_EVAL_LABEL_REVIEW_HPP
#define VELDAN_EVAL_LABEL_REVIEW_HPP

#include "labels.hpp"

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace veldan::eval {

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

} // namespace veldan::eval

#endif
