#include "pack_photos.hpp"

#include "detection_figures.hpp"
#include "photo_source.hpp"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <unistd.h>

namespace veldan::eval {

namespace {

cv::Mat fitted(const cv::Mat& picture, int fit) {
    const int longer = std::max(picture.cols, picture.rows);
    if (fit == 0 || longer == fit)
        return picture;
    const double factor = static_cast<double>(fit) / longer;
    const cv::Size size(std::max(1, static_cast<int>(std::lround(picture.cols * factor))),
                        std::max(1, static_cast<int>(std::lround(picture.rows * factor))));
    cv::Mat result;
    cv::resize(picture, result, size, 0, 0, factor < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    return result;
}

} // namespace

std::vector<std::string> PackOptions::names() const {
    return packs.empty() ? packNames(folder) : packs;
}

std::string PackOptions::description() const {
    std::ostringstream text;
    text << "Split " << split << ", photos "
         << (fit > 0 ? "fitted to " + std::to_string(fit) + " pixels" : std::string("as they are")) << ", faces of "
         << minFace << " pixels and more";
    return text.str();
}

nlohmann::ordered_json PackOptions::settings() const {
    return {{"folder", folder}, {"split", split}, {"fit", fit}, {"minFace", minFace}, {"iou", leastOverlap}};
}

void PackOptions::prepare() const {
    cv::setNumThreads(threads);
    if (!dumpFalse.empty())
        std::filesystem::create_directories(dumpFalse);
}

void addThreads(CLI::App& command, int& threads) {
    command.add_option("--threads", threads, "Threads of OpenCV")->check(CLI::Range(1, 256))->capture_default_str();
}

void addPackOptions(CLI::App& command, PackOptions& options, const std::string& dumpHelp) {
    command
        .add_option("folder", options.folder,
                    "Folder with NAME.images.csv (or NAME.csv), NAME.labels.csv and NAME/ or NAME.zip")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("DATA");
    command.add_option("--pack", options.packs, "Names of packs; all of the folder when left out");
    command.add_option("--split", options.split, "val, train or all")
        ->check(CLI::IsMember({"val", "train", "all"}))
        ->capture_default_str();
    command.add_option("--fit", options.fit, "Scale each photo, up or down, to this longer side; 0: as it is")
        ->check(CLI::Range(0, 10000))
        ->capture_default_str();
    command.add_option("--min-face", options.minFace, "Smallest face that counts, in pixels of the fitted photo")
        ->check(CLI::NonNegativeNumber)
        ->capture_default_str();
    command.add_option("--iou", options.leastOverlap, "Least intersection over union of a found face and its label")
        ->check(CLI::Range(0.01, 1.0))
        ->capture_default_str();
    addThreads(command, options.threads);
    command.add_option("--dump-false", options.dumpFalse, dumpHelp)->type_name("DIR");
    command.add_flag("--json", options.json, "Print JSON");
}

void readPhotos(const PackOptions& options, const Pack& pack, const std::function<bool(const LabelledPhoto&)>& wanted,
                const UseOfPhoto& use) {
    const std::unique_ptr<PhotoSource> source = openPhotos(options.folder, pack.name);
    std::size_t seen = 0;
    for (const LabelledPhoto& labels : pack.photos) {
        showProgress(pack.name, ++seen, pack.photos.size());
        if ((options.split != "all" && labels.split != options.split) || !wanted(labels))
            continue;
        const std::string name = pack.name + "/" + labels.file;
        cv::Mat picture = decodePicture(source->read(labels.file), name);
        const cv::Size size = labels.width > 0 ? cv::Size(labels.width, labels.height) : picture.size();
        if (picture.size() != size) {
            throw std::runtime_error(name + ": not a picture of " + std::to_string(labels.width) + " x " +
                                     std::to_string(labels.height) + " pixels");
        }
        picture = fitted(picture, options.fit);
        use(scaled(labels, static_cast<double>(picture.cols) / size.width,
                   static_cast<double>(picture.rows) / size.height),
            picture);
    }
}

cv::Mat decodePicture(const std::vector<unsigned char>& bytes, const std::string& name) {
    cv::Mat picture;
    if (!bytes.empty())
        picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
    if (picture.empty())
        throw std::runtime_error(name + ": not a picture");
    return picture;
}

void showProgress(const std::string& what, std::size_t seen, std::size_t all) {
    if (::isatty(STDERR_FILENO) != 1)
        return;
    std::cerr << "\r\033[K";
    if (seen < all)
        std::cerr << what << ' ' << seen << '/' << all;
    std::cerr << std::flush;
}

} // namespace veldan::eval
