#include "photo/inputs.hpp"

#include "system/file_bytes.hpp"

#include <algorithm>
#include <array>
#include <cstring>
#include <filesystem>
#include <system_error>

namespace veldan::kit {

namespace {

namespace fs = std::filesystem;

// Also those that are read where libheif is there only, or never: a picture that is left out is to be known.
constexpr std::array<const char*, 19> pictureExtensions = {".jpg", ".jpeg", ".jpe",  ".png",  ".webp", ".bmp", ".dib",
                                                           ".tif", ".tiff", ".heic", ".heif", ".avif", ".gif", ".jp2",
                                                           ".pbm", ".pgm",  ".ppm",  ".pnm",  ".jfif"};

bool isPicture(const fs::path& path) {
    std::string extension = path.extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return std::find(pictureExtensions.begin(), pictureExtensions.end(), extension) != pictureExtensions.end();
}

class Collector {
public:
    explicit Collector(bool recursive) : recursive_(recursive) {}

    void add(const std::string& path) {
        std::error_code error;
        if (recursive_ && fs::is_directory(path, error))
            addFolder(path);
        else
            inputs_.push_back({path, std::nullopt});
    }

    std::vector<PhotoInput> take() { return std::move(inputs_); }

private:
    void addFolder(const fs::path& path) {
        std::vector<fs::path> files;
        std::vector<fs::path> folders;
        std::error_code error;
        for (fs::directory_iterator entry(path, error); !error && entry != fs::directory_iterator();
             entry.increment(error)) {
            const fs::path& inner = entry->path();
            std::error_code ignored;
            if (inner.filename().string().front() == '.')
                continue;
            // A link to a folder may lead in a circle, so it is not followed.
            if (entry->is_directory(ignored)) {
                if (!entry->is_symlink(ignored))
                    folders.push_back(inner);
            } else if (isPicture(inner)) {
                files.push_back(inner);
            }
        }
        std::sort(files.begin(), files.end());
        std::sort(folders.begin(), folders.end());
        for (const fs::path& file : files)
            inputs_.push_back({file.string(), std::nullopt});
        if (error)
            inputs_.push_back({path.string(), CommandError(ExitCode::Unreadable,
                                                           "the folder cannot be read: " + reasonOf(error.value()))});
        for (const fs::path& folder : folders)
            addFolder(folder);
    }

    bool recursive_;
    std::vector<PhotoInput> inputs_;
};

std::vector<std::string> namesIn(const PhotoSources& sources) {
    std::vector<unsigned char> bytes;
    try {
        bytes = readFile(sources.list);
    } catch (const CommandError& error) {
        throw CommandError(error.code(), "--files-from: " + sources.list + ": " + error.what());
    }
    const unsigned char separator = sources.nullSeparated ? '\0' : '\n';
    std::vector<std::string> names;
    for (auto begin = bytes.begin(); begin != bytes.end();) {
        const auto end = std::find(begin, bytes.end(), separator);
        std::string name(begin, end);
        if (!sources.nullSeparated && !name.empty() && name.back() == '\r')
            name.pop_back();
        if (!name.empty())
            names.push_back(std::move(name));
        begin = end == bytes.end() ? end : end + 1;
    }
    return names;
}

} // namespace

std::vector<PhotoInput> photoInputs(const PhotoSources& sources) {
    std::vector<std::string> names = sources.named;
    const auto standardInputs = std::count(names.begin(), names.end(), "-") + (sources.list == "-" ? 1 : 0);
    if (!sources.list.empty()) {
        const std::vector<std::string> listed = namesIn(sources);
        names.insert(names.end(), listed.begin(), listed.end());
    }
    if (standardInputs > 1)
        throw CommandError(ExitCode::Usage, "standard input (-) can be read once only");
    Collector collector(sources.recursive);
    for (const std::string& name : names)
        collector.add(name);
    return collector.take();
}

} // namespace veldan::kit
