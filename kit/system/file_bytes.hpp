#ifndef VELDAN_KIT_SYSTEM_FILE_BYTES_HPP
#define VELDAN_KIT_SYSTEM_FILE_BYTES_HPP

#include <cstddef>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <unistd.h>
#include <vector>

namespace veldan::kit {

/** The path that stands for standard input or standard output. */
inline constexpr const char* standardStream = "-";

/** Closes the file that it owns. A negative descriptor is none. */
class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() {
        if (fd_ >= 0)
            ::close(fd_);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;

    int get() const { return fd_; }

private:
    int fd_;
};

/**
 * All bytes of a file or pipe, or of standard input. Throws CommandError: Missing when there is no such file,
 * Unreadable when it cannot be read or is larger than 1 GiB. The messages do not name the file; the caller knows it.
 */
std::vector<unsigned char> readFile(const std::string& path);

/** What an error number of the system means, as a message for the user. */
std::string reasonOf(int error);

/** Where a file of that name lies, or would lie: symbolic links are followed, also those that lead nowhere yet. */
std::filesystem::path withLinksFollowed(std::filesystem::path path);

/** Writes all bytes. @return false when that failed; errno tells why */
bool writeAll(int fd, const unsigned char* bytes, std::size_t size);

/** @name Permissions of new files */
///@{
inline constexpr mode_t forEverybody = 0666; ///< as the user's umask leaves them
inline constexpr mode_t forOwner = 0600;     ///< what tells about people's faces
///@}

/**
 * Writes a file, which appears under its name only once it is complete; a pipe or device, and standard output, is
 * written to as it is. An
 * existing file keeps its permissions, and links to it stay links. Throws CommandError (NotWritten), whose message does
 * not name the file.
 * @param mode  permissions of a new file
 */
void writeFile(const std::filesystem::path& path, const unsigned char* bytes, std::size_t size,
               mode_t mode = forEverybody);

} // namespace veldan::kit

#endif
