#include "photo_source.hpp"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <zip.h>

namespace veldan::eval {

namespace {

namespace fs = std::filesystem;

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
    explicit ArchiveSource(const fs::path& path) : path_(path), archive_(zip_open(path.c_str(), ZIP_RDONLY, nullptr)) {
        if (!archive_)
            throw std::runtime_error(path.string() + ": not a zip archive that can be read");
    }

    std::vector<unsigned char> read(const std::string& file) override {
        zip_stat_t status;
        zip_stat_init(&status);
        const std::unique_ptr<zip_file_t, FileClose> entry(zip_fopen(archive_.get(), file.c_str(), 0));
        if (!entry || zip_stat(archive_.get(), file.c_str(), 0, &status) != 0)
            throw std::runtime_error(path_.string() + ": no " + file + " in it");
        std::vector<unsigned char> bytes(status.size);
        if (zip_fread(entry.get(), bytes.data(), bytes.size()) != static_cast<zip_int64_t>(bytes.size()))
            throw std::runtime_error(path_.string() + ": " + file + " cannot be read");
        return bytes;
    }

private:
    struct FileClose {
        void operator()(zip_file_t* file) const { zip_fclose(file); }
    };
    struct ArchiveClose {
        void operator()(zip_t* archive) const { zip_discard(archive); }
    };

    fs::path path_;
    std::unique_ptr<zip_t, ArchiveClose> archive_;
};

} // namespace

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

} // namespace veldan::eval
