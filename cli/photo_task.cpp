#include "photo_task.hpp"

#include "photo/photo_entry.hpp"
#include "report/printable.hpp"
#include "report/text.hpp"
#include "system/file_bytes.hpp"

#include <exception>
#include <fmt/format.h>
#include <system_error>

namespace veldan::cli {

FaceApi& PhotoWorker::api() {
    if (api_ == nullptr) {
        try {
            api_ = std::make_unique<FaceApi>(0);
        } catch (const CommandError& error) {
            throw NoLibrary{error};
        }
    }
    return *api_;
}

PhotoTask::PhotoTask(std::size_t index, std::string path, std::filesystem::path drawing, const PhotoOutputs& outputs,
                     PhotoWorker& worker)
    : index_(index), path_(std::move(path)), drawing_(std::move(drawing)), outputs_(outputs), worker_(worker),
      entry_(Json::object({{"photo", path_}})) {}

std::vector<unsigned char> PhotoTask::read() const {
    std::error_code error;
    if (std::filesystem::is_directory(path_, error))
        throw CommandError(ExitCode::Unreadable, "a folder; -r reads the photos in it");
    return readFile(path_);
}

Photo PhotoTask::decode(const std::vector<unsigned char>& bytes) {
    Photo photo = decodePhoto(bytes);
    putPicture(entry_, photo);
    if (photo.flaw != PhotoFlaw::None)
        note(std::string(photo.flaw == PhotoFlaw::Truncated ? "truncated" : "damaged") +
             "; what could be decoded of it is used");
    return photo;
}

void PhotoTask::addFaceCount(const Photo& photo, std::size_t count, double milliseconds) {
    putFaces(entry_, milliseconds);
    addText(fmt::format("{}: {}  ({} x {}, {:.1f} ms)", printable(path_), faceCount(count), photo.width, photo.height,
                        milliseconds));
}

void PhotoTask::addFace(Json face, const std::string& text) {
    entry_["faces"].push_back(std::move(face));
    addText(fmt::format("{:>4}  {}", entry_["faces"].size(), text));
}

void PhotoTask::saveCrop(std::size_t face, const char* kind, Photo crop, const std::filesystem::path& path) {
    outputs_.files.save(crop, path);
    entry_["faces"][face]["aligned"][kind] = path.string();
}

void PhotoTask::draw(const std::function<Photo()>& annotated) {
    if (drawing_.empty())
        return;
    Photo picture = annotated();
    outputs_.files.save(picture, drawing_);
    entry_["drawn"] = drawing_.string();
    if (drawing_ != standardStream)
        tell("      drawn in " + drawing_.string());
}

void PhotoTask::tell(const std::string& line) {
    addText(printable(line));
}

void PhotoTask::addText(const std::string& text) {
    if (!outputs_.json)
        lines_.push_back({false, text});
}

void PhotoTask::attempt(const std::function<void()>& action) {
    try {
        action();
    } catch (const FatalError& error) {
        fail(error.code(), error.what());
        fatal_ = true;
    } catch (const CommandError& error) {
        fail(error.code(), error.what());
    } catch (const std::exception& error) {
        // Such as OpenCV running out of memory in a huge photo: no reason to lose the others.
        fail(ExitCode::Internal, std::string("unexpected failure: ") + error.what());
    }
}

void PhotoTask::fail(ExitCode code, const std::string& message) {
    note(message);
    code_ = code;
    entry_["error"] = failureJson(code, message);
}

} // namespace veldan::cli
