#include "annotate.hpp"
#include "commands.hpp"
#include "face_api.hpp"
#include "photo.hpp"
#include "progress.hpp"

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace veldan::cli {

namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

struct DetectOptions {
    std::vector<std::string> photos;
    std::string draw;
    bool json = false;
};

/** Decides which file each drawn picture goes to. */
class DrawTarget {
public:
    /** Throws CommandError when OUT cannot serve. */
    explicit DrawTarget(const DetectOptions& options) : out_(options.draw) {
        if (out_.empty())
            return;
        std::error_code error;
        folder_ = options.photos.size() > 1 || !out_.has_filename() || fs::is_directory(out_, error);
        if (folder_) {
            fs::create_directories(out_, error);
            if (!fs::is_directory(out_, error))
                throw CommandError(ExitCode::NotWritten,
                                   "--draw: " + out_.string() + " is not a folder and cannot be made one");
        } else if (!canSave(out_)) {
            throw CommandError(ExitCode::Usage, "--draw: " + out_.string() +
                                                    " does not end in a known extension: " + saveableExtensions());
        }
    }

    bool wanted() const { return !out_.empty(); }

    /** Throws CommandError when drawing would overwrite the photo itself. */
    fs::path pathFor(const fs::path& photo) {
        fs::path path = folder_ ? freshName(photo) : out_;
        std::error_code error;
        if (fs::equivalent(path, photo, error))
            throw CommandError(ExitCode::NotWritten, "drawing into " + path.string() + " would overwrite the photo");
        return path;
    }

private:
    fs::path freshName(const fs::path& photo) {
        const std::string stem = photo.has_stem() ? photo.stem().string() : "photo";
        const std::string extension = canSave(photo) ? photo.extension().string() : ".jpg";
        std::string name = stem + extension;
        // Photos of the same name from different folders must not replace one another.
        for (int number = 2; !used_.insert(name).second; ++number) {
            name = stem;
            name += "-" + std::to_string(number) + extension;
        }
        return out_ / name;
    }

    fs::path out_;
    bool folder_ = false;
    std::set<std::string> used_;
};

Json toJson(const VDFACEINFOEX& face) {
    Json points = Json::array();
    for (int k = 0; k < face.keyPointNum; ++k)
        points.push_back({face.keyPointX[k], face.keyPointY[k]});
    return {{"box", {{"x", face.x}, {"y", face.y}, {"width", face.width}, {"height", face.height}}},
            {"points", points},
            {"eyeDistance", face.eyeDistance}};
}

void printFace(std::ostream& out, std::size_t number, const VDFACEINFOEX& face) {
    const auto point = [&face](int k) {
        return " (" + std::to_string(face.keyPointX[k]) + ", " + std::to_string(face.keyPointY[k]) + ")";
    };
    out << std::setw(4) << number << "  box (" << face.x << ", " << face.y << ") " << face.width << " x " << face.height
        << "  eye distance " << face.eyeDistance << "  eyes" << point(0) << point(1) << "  nose" << point(2)
        << "  mouth" << point(3) << point(4) << '\n';
}

std::string faceCount(std::size_t count) {
    if (count == 0)
        return "no face";
    return std::to_string(count) + (count == 1 ? " face" : " faces");
}

class Detection {
public:
    explicit Detection(const DetectOptions& options)
        : options_(options), target_(options), progress_(options.photos.size()) {}

    ExitCode run() {
        for (const std::string& path : options_.photos) {
            progress_.next(path);
            Json entry = {{"photo", path}};
            try {
                process(path, entry);
            } catch (const CommandError& error) {
                report(error, path, entry);
            }
            entries_.push_back(std::move(entry));
        }
        progress_.clear();
        if (options_.json) {
            // File names need not be UTF-8; what is not is replaced rather than losing the whole document.
            std::cout << Json{{"version", VELDAN_VERSION}, {"photos", entries_}}.dump(2, ' ', false,
                                                                                      Json::error_handler_t::replace)
                      << '\n';
        }
        return code_;
    }

private:
    void process(const std::string& path, Json& entry) {
        Photo photo = loadPhoto(path);
        entry["width"] = photo.width;
        entry["height"] = photo.height;
        const FaceApi::Detection detection = api_.detect(photo);
        entry["milliseconds"] = detection.milliseconds;
        entry["faces"] = Json::array();
        for (const VDFACEINFOEX& face : detection.faces)
            entry["faces"].push_back(toJson(face));
        if (!options_.json)
            print(path, photo, detection);

        if (target_.wanted()) {
            const fs::path drawn = target_.pathFor(path);
            annotate(photo, detection.faces);
            try {
                savePhoto(photo, drawn);
            } catch (const CommandError& error) {
                throw CommandError(error.code(), drawn.string() + " " + error.what());
            }
            entry["drawn"] = drawn.string();
            if (!options_.json)
                std::cout << "      drawn in " << drawn.string() << '\n';
        }
        if (detection.faces.size() > VELDAN_MAX_FACES) {
            throw CommandError(ExitCode::TooManyFaces, faceCount(detection.faces.size()) + ", more than the " +
                                                           std::to_string(VELDAN_MAX_FACES) +
                                                           " that the library follows");
        }
    }

    void print(const std::string& path, const Photo& photo, const FaceApi::Detection& detection) {
        progress_.clear();
        std::ostringstream milliseconds;
        milliseconds << std::fixed << std::setprecision(1) << detection.milliseconds;
        std::cout << path << ": " << faceCount(detection.faces.size()) << "  (" << photo.width << " x " << photo.height
                  << ", " << milliseconds.str() << " ms)\n";
        for (std::size_t i = 0; i < detection.faces.size(); ++i)
            printFace(std::cout, i + 1, detection.faces[i]);
    }

    void report(const CommandError& error, const std::string& path, Json& entry) {
        progress_.clear();
        std::cout.flush(); // keeps the message behind the lines of the photos before it
        std::cerr << "veldan: " << path << ": " << error.what() << '\n';
        entry["error"] = {
            {"name", exitCodeName(error.code())}, {"code", static_cast<int>(error.code())}, {"message", error.what()}};
        if (code_ == ExitCode::Success)
            code_ = error.code();
    }

    const DetectOptions& options_;
    DrawTarget target_;
    FaceApi api_;
    Progress progress_;
    Json entries_ = Json::array();
    ExitCode code_ = ExitCode::Success;
};

} // namespace

void addDetectCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("detect", "Find faces: box, five points, eye distance");
    const auto options = std::make_shared<DetectOptions>();
    command->add_option("PHOTO", options->photos, "Photos: jpg, png, webp, bmp, tiff and what else OpenCV reads")
        ->required()
        ->type_name("");
    command->add_flag("--json", options->json, "Print one JSON document instead of text");
    command->add_option("--draw", options->draw, "Draw boxes and points: a file for one photo, a folder for several")
        ->type_name("OUT");
    command->footer(
        std::string("Coordinates are pixels of the upright photo (EXIF orientation applied). Points: the eye "
                    "on the image's\nleft, the eye on its right, nose, the mouth corner on its left, the one "
                    "on its right. Faces: largest first.\n"
                    "\n") +
        exitCodeHelp +
        "\n"
        "Examples:\n"
        "  veldan detect photo.jpg\n"
        "  veldan detect photo.jpg --draw faces.jpg\n"
        "  veldan detect --draw drawn/ *.jpg\n"
        "  veldan detect *.jpg --json | jq '.photos[] | {photo, faces: (.faces | length)}'\n");
    command->callback([options, &action] { action = [options] { return Detection(*options).run(); }; });
}

} // namespace veldan::cli
