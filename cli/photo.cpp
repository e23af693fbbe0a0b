#include "photo.hpp"

#include "exit_codes.hpp"
#include "file_bytes.hpp"
#include "orientation.hpp"

#include <veldan/image_tool.h>

#include <algorithm>
#include <array>
#include <exception>
#include <sys/mman.h>
#include <system_error>
#include <unistd.h>

namespace veldan::cli {

namespace {

/**
 * A name under which the library can open bytes that nobody else can change. ImageLoad opens its file twice, once to
 * learn the size and once for the pixels, and trusts that the size is still the same; with a file that somebody
 * rewrites meanwhile, or with a pipe, it is not. Where the system offers no such name the path itself has to do.
 */
class FrozenFile {
public:
    FrozenFile(const std::string& path, const std::vector<unsigned char>& bytes)
        : file_(::memfd_create("photo", MFD_CLOEXEC)), name_("/proc/self/fd/" + std::to_string(file_.get())) {
        if (!writeAll(file_.get(), bytes.data(), bytes.size()) || ::access(name_.c_str(), R_OK) != 0)
            name_ = path;
    }

    const char* name() const { return name_.c_str(); }

private:
    FileDescriptor file_;
    std::string name_;
};

std::string lowerCaseExtension(const std::filesystem::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return extension;
}

constexpr std::array<const char*, 7> writableExtensions = {".jpg", ".jpeg", ".png", ".webp", ".bmp", ".tif", ".tiff"};

} // namespace

Photo loadPhoto(const std::string& path) {
    return decodePhoto(path, readFile(path));
}

Photo decodePhoto(const std::string& path, const std::vector<unsigned char>& bytes) {
    const FrozenFile file(path, bytes);
    Photo photo;
    try {
        if (ImageLoad(file.name(), 0, nullptr, &photo.width, &photo.height) != 1)
            throw CommandError(ExitCode::Unreadable, "not a picture in a known format");
        photo.pixels.resize(static_cast<std::size_t>(photo.width) * static_cast<std::size_t>(photo.height) * 3);
        ImageLoad(file.name(), 0, photo.pixels.data(), &photo.width, &photo.height);
    } catch (const CommandError&) {
        throw;
    } catch (const std::exception& error) {
        // OpenCV refuses pictures of absurd size by an exception, which the library passes on.
        throw CommandError(ExitCode::Unreadable, std::string("cannot be decoded: ") + error.what());
    }
    if (const int orientation = webpOrientation(bytes); orientation != 1)
        turnUpright(photo, orientation);
    return photo;
}

bool canSave(const std::filesystem::path& path) {
    const std::string extension = lowerCaseExtension(path);
    return std::find(writableExtensions.begin(), writableExtensions.end(), extension) != writableExtensions.end();
}

std::string saveableExtensions() {
    std::string text;
    for (const char* extension : writableExtensions)
        text += std::string(text.empty() ? "" : " ") + extension;
    return text;
}

void savePhoto(Photo& photo, const std::filesystem::path& path) {
    // ImageSave does not report whether it wrote anything. Under a name of its own the file's presence tells, and a
    // reader of the final name never meets half a picture.
    const std::filesystem::path partial =
        path.parent_path() / (".veldan-" + std::to_string(::getpid()) + "-partial" + path.extension().string());
    std::error_code error;
    std::filesystem::remove(partial, error);
    try {
        ImageSave(partial.c_str(), photo.pixels.data(), photo.width, photo.height, 3);
    } catch (const std::exception& failure) {
        std::filesystem::remove(partial, error);
        throw CommandError(ExitCode::NotWritten, std::string("cannot be written: ") + failure.what());
    }
    if (!std::filesystem::exists(partial, error)) {
        throw CommandError(ExitCode::NotWritten, "cannot be written: is the folder there, and may you write into it?");
    }
    std::filesystem::rename(partial, path, error);
    if (error) {
        const std::string reason = error.message();
        std::filesystem::remove(partial, error);
        throw CommandError(ExitCode::NotWritten, "cannot be written: " + reason);
    }
}

} // namespace veldan::cli
