#ifndef VELDAN_EVAL_PACK_PHOTOS_HPP
#define VELDAN_EVAL_PACK_PHOTOS_HPP

#include "labels.hpp"

#include <nlohmann/json_fwd.hpp>
#include <opencv2/core.hpp>

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace veldan::eval {

/** Which photos of a labelled folder are measured, and how; the options that all measurements of packs share. */
struct PackOptions {
    std::string folder;
    std::vector<std::string> packs;
    std::string split = "val";
    int fit = 640;
    double minFace = 45;
    double leastOverlap = 0.5;
    int threads = 1;
    std::string dumpFalse;
    bool json = false;

    /** The packs asked for. */
    std::vector<std::string> names() const;
    /** In words, for the heading of a table. */
    std::string description() const;
    /** As the "settings" of a JSON document. */
    nlohmann::ordered_json settings() const;
    /** Sets OpenCV's threads and makes the folder for pictures, when one is wanted. */
    void prepare() const;
};

void addPackOptions(CLI::App& command, PackOptions& options, const std::string& dumpHelp);

/** For the options that measurements of other folders share. */
void addThreads(CLI::App& command, int& threads);

/**
 * Reads the photos of the split for which wanted() holds, fitted to the size asked for; labels are those of the fitted
 * picture. A photo that is none, or not of the size in the list, throws std::runtime_error.
 */
using UseOfPhoto = std::function<void(const LabelledPhoto& labels, cv::Mat& picture)>;
void readPhotos(const PackOptions& options, const Pack& pack, const std::function<bool(const LabelledPhoto&)>& wanted,
                const UseOfPhoto& use);

/** The picture in these bytes; throws std::runtime_error with the name when there is none. */
cv::Mat decodePicture(const std::vector<unsigned char>& bytes, const std::string& name);

/** Progress on standard error, when that is a terminal. */
void showProgress(const std::string& what, std::size_t seen, std::size_t all);

} // namespace veldan::eval

#endif
