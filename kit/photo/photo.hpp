#ifndef VELDAN_KIT_PHOTO_PHOTO_HPP
#define VELDAN_KIT_PHOTO_PHOTO_HPP

#include <filesystem>
#include <string>
#include <vector>

namespace veldan::kit {

/** What is wrong with a photo that could be decoded all the same, as far as it goes. */
enum class PhotoFlaw { None, Truncated, Damaged };

/** A colour picture: blue, green, red, rows from top to bottom without padding. */
struct Photo {
    int width = 0;
    int height = 0;
    std::vector<unsigned char> pixels;
    PhotoFlaw flaw = PhotoFlaw::None;
};

/**
 * Reads a picture and turns it upright as its EXIF data tell.
 * Throws CommandError: Missing when there is no such file, Unreadable when it cannot be read or is not a picture.
 * The messages do not name the file; the caller knows it.
 */
Photo loadPhoto(const std::string& path);

/** loadPhoto() for the bytes of a file that is read already. */
Photo decodePhoto(const std::vector<unsigned char>& bytes);

/** Throws CommandError (Unreadable) for a picture larger than the library can work on. */
void requireSize(int width, int height);

/** True when savePhoto knows how to write files with this path's extension. */
bool canSave(const std::filesystem::path& path);

/** The extensions that canSave accepts, for messages. */
std::string saveableExtensions();

/**
 * Writes the picture; the extension chooses the format, PNG for standard output. The file appears under its name only
 * once it is complete. Throws CommandError (NotWritten).
 */
void savePhoto(Photo& photo, const std::filesystem::path& path);

} // namespace veldan::kit

#endif
