#include "photo_run.hpp"

#include "printable.hpp"

#include <CLI/CLI.hpp>

#include <exception>
#include <iomanip>
#include <iostream>
#include <sstream>

namespace veldan::cli {

void addPhotoOptions(CLI::App& command, PhotoOptions& options, const std::string& drawHelp) {
    command.add_option("PHOTO", options.photos, "Photos: jpg, png, webp, bmp, tiff and what else OpenCV reads")
        ->required()
        ->type_name("");
    command.add_flag("--json", options.json, "Print one JSON document instead of text");
    command.add_option("--draw", options.draw, drawHelp + ": a file for one photo, a folder for several")
        ->type_name("OUT");
}

PhotoRun::PhotoRun(const PhotoOptions& options)
    : options_(options), photoFiles_(options.photos), drawTarget_(options.draw, options.photos.size()),
      progress_(options.photos.size()) {}

ExitCode PhotoRun::forEach(const std::function<void(const std::string& path)>& process,
                           const std::function<void(Json& document)>& conclude,
                           const std::function<void(Json& document)>& summarise) {
    for (const std::string& path : options_.photos) {
        if (stopped_)
            break;
        progress_.next(path);
        path_ = path;
        entry_ = Json::object({{"photo", path}});
        attempt(path, entry_, [&] { process(path); });
        entries_.push_back(std::move(entry_));
    }
    progress_.clear();
    Json document = {{"version", VELDAN_VERSION}, {"photos", entries_}};
    if (stopped_)
        document["error"] = entries_.back()["error"];
    if (conclude && code_ == ExitCode::Success)
        attempt("", document, [&] { conclude(document); });
    if (summarise)
        attempt("", document, [&] { summarise(document); });
    if (options_.json) {
        // File names need not be UTF-8; what is not is replaced rather than losing the whole document.
        std::cout << document.dump(2, ' ', false, Json::error_handler_t::replace) << '\n';
    }
    return code_;
}

Photo PhotoRun::decode(const std::string& path, const std::vector<unsigned char>& bytes) {
    Photo photo = decodePhoto(path, bytes);
    entry_["width"] = photo.width;
    entry_["height"] = photo.height;
    return photo;
}

void PhotoRun::addFaceCount(const Photo& photo, std::size_t count, double milliseconds) {
    entry_["milliseconds"] = milliseconds;
    entry_["faces"] = Json::array();
    if (options_.json)
        return;
    progress_.clear();
    std::ostringstream time;
    time << std::fixed << std::setprecision(1) << milliseconds;
    std::cout << printable(path_) << ": " << faceCount(count) << "  (" << photo.width << " x " << photo.height << ", "
              << time.str() << " ms)\n";
}

void PhotoRun::addFace(Json face, const std::string& text) {
    entry_["faces"].push_back(std::move(face));
    if (!options_.json)
        std::cout << std::setw(4) << entry_["faces"].size() << "  " << text << '\n';
}

void PhotoRun::saveCrop(std::size_t face, const char* kind, Photo crop, const std::filesystem::path& path) {
    photoFiles_.save(crop, path);
    entry_["faces"][face]["aligned"][kind] = path.string();
}

void PhotoRun::draw(const std::function<Photo()>& annotated) {
    if (!drawTarget_.wanted())
        return;
    const std::filesystem::path path = drawTarget_.pathFor(path_);
    Photo picture = annotated();
    photoFiles_.save(picture, path);
    entry_["drawn"] = path.string();
    if (!options_.json)
        std::cout << "      drawn in " << printable(path.string()) << '\n';
}

void PhotoRun::tell(const std::string& line) {
    if (options_.json)
        return;
    progress_.clear();
    std::cout << printable(line) << '\n' << std::flush;
}

void PhotoRun::refuseCrowd(std::size_t count) {
    if (count > VELDAN_MAX_FACES)
        throw CommandError(ExitCode::TooManyFaces, faceCount(count) + ", more than the " +
                                                       std::to_string(VELDAN_MAX_FACES) + " that the library follows");
}

void PhotoRun::note(const std::string& message) {
    say(path_, message);
}

void PhotoRun::say(const std::string& subject, const std::string& message) {
    progress_.clear();
    std::cout.flush(); // keeps the message behind the lines of the photos before it
    std::cerr << "veldan: " << printable(subject) << (subject.empty() ? "" : ": ") << printable(message) << '\n';
}

Json PhotoRun::failure(ExitCode code, const std::string& subject, const std::string& message) {
    say(subject, message);
    if (code_ == ExitCode::Success)
        code_ = code;
    return {{"name", exitCodeName(code)}, {"code", static_cast<int>(code)}, {"message", message}};
}

void PhotoRun::attempt(const std::string& subject, Json& result, const std::function<void()>& action) {
    try {
        action();
    } catch (const FatalError& error) {
        result["error"] = failure(error.code(), subject, error.what());
        code_ = error.code();
        stopped_ = true;
    } catch (const CommandError& error) {
        result["error"] = failure(error.code(), subject, error.what());
    } catch (const std::exception& error) {
        // Such as OpenCV running out of memory in a huge photo: no reason to lose the others.
        result["error"] = failure(ExitCode::Internal, subject, std::string("unexpected failure: ") + error.what());
    }
}

} // namespace veldan::cli
