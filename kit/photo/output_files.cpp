#include "photo/output_files.hpp"

#include "report/exit_codes.hpp"
#include "system/file_bytes.hpp"

#include <sys/stat.h>
#include <system_error>

namespace veldan::kit {

namespace {

namespace fs = std::filesystem;

void makeFolder(const fs::path& folder, const std::string& option) {
    std::error_code error;
    fs::create_directories(folder, error);
    if (!fs::is_directory(folder, error))
        throw CommandError(ExitCode::NotWritten,
                           option + ": " + folder.string() + " is not a folder and cannot be made one");
}

std::string stemOf(const fs::path& photo) {
    if (photo == standardStream)
        return "stdin";
    return photo.has_stem() ? photo.stem().string() : "photo";
}

/** Photos of the same name from different folders must not replace one another. */
std::string freshStem(const std::string& stem, const std::string& extension, UsedNames& used) {
    int& number = used.try_emplace(stem + extension, 0).first->second;
    std::string fresh = stem;
    while (++number > 1) {
        fresh = stem;
        fresh.append("-").append(std::to_string(number));
        if (used.try_emplace(fresh + extension, 1).second)
            break;
    }
    return fresh;
}

} // namespace

PhotoFiles::PhotoFiles(const std::vector<std::string>& photos) {
    struct stat status {};
    for (const std::string& photo : photos) {
        if (::stat(photo.c_str(), &status) == 0)
            files_.emplace(status.st_dev, status.st_ino);
    }
}

void PhotoFiles::save(Photo& picture, const fs::path& path) const {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0 && files_.count({status.st_dev, status.st_ino}) > 0)
        throw CommandError(ExitCode::NotWritten, "writing " + path.string() + " would overwrite a photo");
    try {
        savePhoto(picture, path);
    } catch (const CommandError& error) {
        throw CommandError(error.code(), path.string() + " " + error.what());
    }
}

DrawTarget::DrawTarget(const std::string& out, bool several) : out_(out) {
    if (out_.empty())
        return;
    if (out_ == standardStream) {
        if (several)
            throw CommandError(ExitCode::Usage, "--draw - takes the picture of one photo only");
        return;
    }
    std::error_code error;
    folder_ = several || !out_.has_filename() || fs::is_directory(out_, error);
    if (folder_) {
        makeFolder(out_, "--draw");
    } else if (!canSave(out_)) {
        throw CommandError(ExitCode::Usage,
                           "--draw: " + out_.string() + " does not end in a known extension: " + saveableExtensions());
    }
}

fs::path DrawTarget::pathFor(const fs::path& photo) {
    if (!folder_)
        return out_;
    const std::string extension = canSave(photo) ? photo.extension().string() : ".jpg";
    return out_ / (freshStem(stemOf(photo), extension, used_) + extension);
}

CropTarget::CropTarget(const std::string& folder) : folder_(folder) {
    if (!folder_.empty())
        makeFolder(folder_, "--aligned");
}

std::string CropTarget::nextStem(const fs::path& photo) {
    return freshStem(stemOf(photo), "", used_);
}

fs::path CropTarget::pathFor(const std::string& stem, std::size_t number, const std::string& kind) const {
    return folder_ / (stem + "-face" + std::to_string(number) + kind + ".png");
}

} // namespace veldan::kit
