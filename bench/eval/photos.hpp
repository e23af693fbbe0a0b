#ifndef VELDAN_EVAL_PHOTOS_HPP
#define VELDAN_EVAL_PHOTOS_HPP

#include "labels.hpp"
#include "tables.hpp"

#include <veldan/veldan.hpp>

#include <opencv2/core.hpp>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace veldan::eval {

/** Where the files of a pack come from. */
class PhotoSource {
public:
    virtual ~PhotoSource() = default;

    /** The bytes of one file. Throws std::runtime_error when there is none of that name. */
    virtual std::vector<unsigned char> read(const std::string& file) = 0;
    /** The picture in one file; throws std::runtime_error when there is none. */
    cv::Mat picture(const std::string& file);
};

/** Opens the archive photos.zip of a folder, or else the folder itself. */
std::unique_ptr<PhotoSource> openListedPhotos(const std::filesystem::path& folder);

/** Opens the folder NAME, or else the archive NAME.zip; throws std::runtime_error when there is neither. */
std::unique_ptr<PhotoSource> openPhotos(const std::filesystem::path& folder, const std::string& name);

/** The options that all measurements share. */
struct CommonOptions {
    int threads = 1;
    std::string dumpFalse;
    bool json = false;

    /** Sets OpenCV's threads and makes the folder for pictures, when one is wanted. */
    void prepare() const;
};
/** dumpHelp: null when nothing is dumped. */
void addCommonOptions(CLI::App& command, CommonOptions& options, const char* dumpHelp);

/** Which photos of a labelled folder are measured, and how. */
struct PackOptions : CommonOptions {
    std::string folder;
    std::vector<std::string> packs;
    std::string split = "val";
    int fit = 640;
    double minFace = 45;
    double leastOverlap = 0.5;

    /** The packs asked for. */
    std::vector<std::string> names() const { return packs.empty() ? packNames(folder) : packs; }
    /** In words, for the heading of a table. */
    std::string description() const;
    /** As the "settings" of a JSON document. */
    Json settings() const;
    FaceRules rules() const;
};
void addPackOptions(CLI::App& command, PackOptions& options, const char* dumpHelp);

/**
 * Reads the photos of the split for which wanted() holds, fitted to the size asked for; labels are those of the fitted
 * picture. A photo that is none, or not of the size in the list, throws std::runtime_error.
 */
using UseOfPhoto = std::function<void(const LabelledPhoto& labels, const cv::Mat& picture)>;
void readPhotos(const PackOptions& options, const Pack& pack, const std::function<bool(const LabelledPhoto&)>& wanted,
                const UseOfPhoto& use);

/** Progress on standard error, when that is a terminal. */
void showProgress(const std::string& what, std::size_t seen, std::size_t all);

/** @name The library's answers */
///@{
inline ImageView viewOf(const cv::Mat& picture) {
    return {picture.data, picture.cols, picture.rows};
}
/** Faces, largest first; none in a picture that is smaller than the library takes. */
std::vector<VDFACEINFOEX> detect(Instance& library, const cv::Mat& picture);
bool isTooSmall(const cv::Mat& picture);
Box boxOf(const VDFACEINFOEX& face);
/** Key points 0 to 4. */
FivePoints pointsOf(const VDFACEINFOEX& face);
/** For each wanted box the found face that assignBoxes() gives it, or null; the pointers are into found. */
std::vector<VDFACEINFOEX*> matchFaces(std::vector<VDFACEINFOEX>& found, std::vector<Box> wanted, const cv::Mat& picture,
                                      double leastOverlap);
///@}

/** @name Pictures of what went wrong */
///@{
inline const cv::Scalar red(0, 0, 255);
inline const cv::Scalar green(0, 255, 0);
inline const cv::Scalar blue(255, 0, 0);
inline const cv::Scalar grey(160, 160, 160);

void drawBox(cv::Mat& picture, const Box& box, const cv::Scalar& colour);
/** Draws the square with these opposite corners, as two-point alignment cuts it out. */
void drawSquare(cv::Mat& picture, Point first, Point second, const cv::Scalar& colour);
/** Throws std::runtime_error when it cannot be written. */
void writePicture(const std::filesystem::path& path, const cv::Mat& picture);
/** Writes the picture with a box in it and a line about the face. */
void writeJudged(const std::filesystem::path& path, const cv::Mat& picture, const std::optional<Box>& box,
                 const std::string& line);
///@}

} // namespace veldan::eval

#endif
