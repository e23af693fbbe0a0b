#include "photos.hpp"

#include <CLI/CLI.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <unistd.h>
#include <zip.h>

namespace veldan::eval {

namespace fs = std::filesystem;

namespace {

class FolderSource : public PhotoSource {
public:
    explicit FolderSource(fs::path folder) : folder_(std::move(folder)) {}

    std::vector<unsigned char> read(const std::string& file) override {
        std::ifstream stream(folder_ / file, std::ios::binary);
        if (!stream)
            throw std::runtime_error((folder_ / file).string() + ": cannot be opened");
        return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
    }

private:
    fs::path folder_;
};

class ArchiveSource : public PhotoSource {
public:
    explicit ArchiveSource(const fs::path& path)
        : path_(path), archive_(zip_open(path.c_str(), ZIP_RDONLY, nullptr), zip_discard) {
        if (!archive_)
            throw std::runtime_error(path.string() + ": not a zip archive that can be read");
    }

    std::vector<unsigned char> read(const std::string& file) override {
        zip_stat_t status;
        zip_stat_init(&status);
        const std::unique_ptr<zip_file_t, int (*)(zip_file_t*)> entry(zip_fopen(archive_.get(), file.c_str(), 0),
                                                                      zip_fclose);
        if (!entry || zip_stat(archive_.get(), file.c_str(), 0, &status) != 0)
            throw std::runtime_error(path_.string() + ": no " + file + " in it");
        std::vector<unsigned char> bytes(status.size);
        if (zip_fread(entry.get(), bytes.data(), bytes.size()) != static_cast<zip_int64_t>(bytes.size()))
            throw std::runtime_error(path_.string() + ": " + file + " cannot be read");
        return bytes;
    }

private:
    fs::path path_;
    std::unique_ptr<zip_t, void (*)(zip_t*)> archive_;
};

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

cv::Mat PhotoSource::picture(const std::string& file) {
    const std::vector<unsigned char> bytes = read(file);
    cv::Mat picture;
    if (!bytes.empty())
        picture = cv::imdecode(bytes, cv::IMREAD_COLOR);
    if (picture.empty())
        throw std::runtime_error(file + ": not a picture");
    return picture;
}

std::unique_ptr<PhotoSource> openListedPhotos(const fs::path& folder) {
    if (const fs::path archive = folder / "photos.zip"; fs::exists(archive))
        return std::make_unique<ArchiveSource>(archive);
    return std::make_unique<FolderSource>(folder);
}

std::unique_ptr<PhotoSource> openPhotos(const fs::path& folder, const std::string& name) {
    if (fs::is_directory(folder / name))
        return std::make_unique<FolderSource>(folder / name);
    const fs::path archive = folder / (name + ".zip");
    if (fs::exists(archive))
        return std::make_unique<ArchiveSource>(archive);
    throw std::runtime_error((folder / name).string() + ": neither a folder of that name nor " + name + ".zip");
}

void CommonOptions::prepare() const {
    cv::setNumThreads(threads);
    if (!dumpFalse.empty())
        fs::create_directories(dumpFalse);
}

void addCommonOptions(CLI::App& command, CommonOptions& options, const char* dumpHelp) {
    command.add_option("--threads", options.threads, "Threads of OpenCV")->check(CLI::Range(1, 256));
    if (dumpHelp != nullptr)
        command.add_option("--dump-false", options.dumpFalse, dumpHelp)->type_name("DIR");
    command.add_flag("--json", options.json, "Print JSON");
}

std::string PackOptions::description() const {
    std::ostringstream text;
    text << "Split " << split << ", photos "
         << (fit > 0 ? "fitted to " + std::to_string(fit) + " pixels" : std::string("as they are")) << ", faces of "
         << minFace << " pixels and more";
    return text.str();
}

Json PackOptions::settings() const {
    return {{"folder", folder}, {"split", split}, {"fit", fit}, {"minFace", minFace}, {"iou", leastOverlap}};
}

FaceRules PackOptions::rules() const {
    FaceRules rules;
    rules.leastSize = minFace;
    rules.leastOverlap = leastOverlap;
    return rules;
}

void addPackOptions(CLI::App& command, PackOptions& options, const char* dumpHelp) {
    command
        .add_option("folder", options.folder,
                    "Folder with NAME.images.csv (or NAME.csv), NAME.labels.csv and NAME/ or NAME.zip")
        ->required()
        ->check(CLI::ExistingDirectory)
        ->type_name("DATA");
    command.add_option("--pack", options.packs, "Names of packs; all of the folder when left out")->default_str("");
    command.add_option("--split", options.split, "val, train or all")->check(CLI::IsMember({"val", "train", "all"}));
    command.add_option("--fit", options.fit, "Scale each photo, up or down, to this longer side; 0: as it is")
        ->check(CLI::Range(0, 10000));
    command.add_option("--min-face", options.minFace, "Smallest face that counts, in pixels of the fitted photo")
        ->check(CLI::NonNegativeNumber);
    command.add_option("--iou", options.leastOverlap, "Least intersection over union of a found face and its label")
        ->check(CLI::Range(0.01, 1.0));
    addCommonOptions(command, options, dumpHelp);
}

void readPhotos(const PackOptions& options, const Pack& pack, const std::function<bool(const LabelledPhoto&)>& wanted,
                const UseOfPhoto& use) {
    const std::unique_ptr<PhotoSource> source = openPhotos(options.folder, pack.name);
    std::size_t seen = 0;
    for (const LabelledPhoto& labels : pack.photos) {
        showProgress(pack.name, ++seen, pack.photos.size());
        if ((options.split != "all" && labels.split != options.split) || !wanted(labels))
            continue;
        cv::Mat picture = source->picture(labels.file);
        const cv::Size size = labels.width > 0 ? cv::Size(labels.width, labels.height) : picture.size();
        if (picture.size() != size) {
            throw std::runtime_error(pack.name + "/" + labels.file + ": not a picture of " +
                                     std::to_string(labels.width) + " x " + std::to_string(labels.height) + " pixels");
        }
        picture = fitted(picture, options.fit);
        use(scaled(labels, static_cast<double>(picture.cols) / size.width,
                   static_cast<double>(picture.rows) / size.height),
            picture);
    }
}

void showProgress(const std::string& what, std::size_t seen, std::size_t all) {
    if (::isatty(STDERR_FILENO) != 1)
        return;
    std::cerr << "\r\033[K";
    if (seen < all)
        std::cerr << what << ' ' << seen << '/' << all;
    std::cerr << std::flush;
}

bool isTooSmall(const cv::Mat& picture) {
    return picture.cols < 100 || picture.rows < 100;
}

std::vector<VDFACEINFOEX> detect(Instance& library, const cv::Mat& picture) {
    return isTooSmall(picture) ? std::vector<VDFACEINFOEX>() : library.detect(viewOf(picture));
}

Box boxOf(const VDFACEINFOEX& face) {
    return {static_cast<double>(face.x), static_cast<double>(face.y), static_cast<double>(face.width),
            static_cast<double>(face.height)};
}

FivePoints pointsOf(const VDFACEINFOEX& face) {
    FivePoints points;
    for (std::size_t k = 0; k < points.size(); ++k)
        points[k] = {static_cast<double>(face.keyPointX[k]), static_cast<double>(face.keyPointY[k])};
    return points;
}

std::vector<VDFACEINFOEX*> matchFaces(std::vector<VDFACEINFOEX>& found, std::vector<Box> wanted, const cv::Mat& picture,
                                      double leastOverlap) {
    std::vector<Box> boxes;
    std::transform(found.begin(), found.end(), std::back_inserter(boxes), boxOf);
    for (Box& box : wanted)
        box = clipped(box, picture.cols, picture.rows);
    std::vector<VDFACEINFOEX*> match(wanted.size(), nullptr);
    const auto assignment = assignBoxes(boxes, wanted, leastOverlap);
    for (std::size_t i = 0; i < assignment.size(); ++i) {
        if (assignment[i])
            match[*assignment[i]] = &found[i];
    }
    return match;
}

void drawBox(cv::Mat& picture, const Box& box, const cv::Scalar& colour) {
    cv::rectangle(picture, cv::Rect2d(box.x, box.y, box.width, box.height), colour, 2);
}

void drawSquare(cv::Mat& picture, Point first, Point second, const cv::Scalar& colour) {
    const cv::Point2d middle((first.x + second.x) / 2, (first.y + second.y) / 2);
    const cv::Point2d half((second.x - first.x) / 2, (second.y - first.y) / 2);
    const cv::Point2d across(-half.y, half.x);
    const std::vector<cv::Point> corners = {middle - half, middle - across, middle + half, middle + across};
    cv::polylines(picture, corners, true, colour, 2, cv::LINE_AA);
}

void writePicture(const fs::path& path, const cv::Mat& picture) {
    if (!cv::imwrite(path.string(), picture))
        throw std::runtime_error(path.string() + ": cannot be written");
}

void writeJudged(const fs::path& path, const cv::Mat& picture, const std::optional<Box>& box, const std::string& line) {
    cv::Mat drawn = picture.clone();
    if (box)
        drawBox(drawn, *box, grey);
    for (const int width : {4, 1})
        cv::putText(drawn, line, {4, 18}, cv::FONT_HERSHEY_SIMPLEX, 0.55, cv::Scalar::all(width == 1 ? 255 : 0), width,
                    cv::LINE_AA);
    writePicture(path, drawn);
}

} // namespace veldan::eval
