#ifndef VELDAN_KIT_GALLERY_NEW_FILE_HPP
#define VELDAN_KIT_GALLERY_NEW_FILE_HPP

#include <filesystem>
#include <string>

namespace veldan::kit {

/** A file beside the place of a new gallery, under a name that nobody looks for; removed unless it is moved there. */
class NewFile {
public:
    /** Throws CommandError (NotWritten). */
    explicit NewFile(const std::string& path);
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    const std::filesystem::path& path() const { return file_; }

    /** @return false when there is such a file by now. Throws FatalError (NotWritten). */
    bool moveToTarget();

private:
    void remove();

    std::filesystem::path target_;
    std::filesystem::path file_;
    bool moved_ = false;
};

} // namespace veldan::kit

#endif
