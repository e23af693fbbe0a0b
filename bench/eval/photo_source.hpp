#ifndef VELDAN_EVAL_PHOTO_SOURCE_HPP
#define VELDAN_EVAL_PHOTO_SOURCE_HPP

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace veldan::eval {

/** Where the files of a pack come from. */
class PhotoSource {
public:
    virtual ~PhotoSource() = default;

    /** The bytes of one file. Throws std::runtime_error when there is none of that name. */
    virtual std::vector<unsigned char> read(const std::string& file) = 0;
};

/** Opens the archive photos.zip of a folder, or else the folder itself. */
std::unique_ptr<PhotoSource> openListedPhotos(const std::filesystem::path& folder);

/** Opens the folder NAME, or else the archive NAME.zip; throws std::runtime_error when there is neither. */
std::unique_ptr<PhotoSource> openPhotos(const std::filesystem::path& folder, const std::string& name);

} // namespace veldan::eval

#endif
