#ifndef VELDAN_EVAL_LIBRARY_HPP
#define VELDAN_EVAL_LIBRARY_HPP

#include "geometry.hpp"

#include <veldan/face_record.h>

#include <opencv2/core.hpp>

#include <filesystem>
#include <vector>

namespace veldan::eval {

/** The library as an application sees it. Whatever fails throws std::runtime_error. */
class Library {
public:
    Library();
    ~Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    /** What was found in a picture, the largest face first. */
    struct Answer {
        std::vector<VDFACEINFOEX> faces;
        /** The picture is smaller than the library takes. */
        bool refused = false;
        double milliseconds = 0;
    };
    Answer detect(cv::Mat& picture);

    /** Engines, each on one face; they write their word of the record. */
    void scoreMask(cv::Mat& picture, VDFACEINFOEX& face);
    void scoreQuality(cv::Mat& picture, VDFACEINFOEX& face);
    void scoreLiveness(cv::Mat& picture, VDFACEINFOEX& face);
    void scoreInfraredLiveness(cv::Mat& picture, VDFACEINFOEX& face);

    /** From now on scoreLiveness() judges by the network in this file instead of the library's own. */
    void useLivenessNetwork(const std::filesystem::path& file);

    /** Which template, and which points align the face. */
    enum class Extraction { Bare, Masked, MaskedEnrolment };
    using Template = std::vector<unsigned char>;
    Template extract(cv::Mat& picture, VDFACEINFOEX& face, Extraction how);
    /** Similarity of two templates of one kind. */
    float match(const Template& a, const Template& b, bool bare);

private:
    void* handle_ = nullptr;
    std::vector<VDFACEINFOEX> records_;
};

Box boxOf(const VDFACEINFOEX& face);
/** For each wanted box the found face that assignBoxes() gives it, or null; the pointers are into found. */
std::vector<VDFACEINFOEX*> matchFaces(std::vector<VDFACEINFOEX>& found, const std::vector<Box>& wanted,
                                      double leastOverlap);
/** Key points 0 to 4. */
FivePoints pointsOf(const VDFACEINFOEX& face);

} // namespace veldan::eval

#endif
