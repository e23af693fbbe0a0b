#include "system/file_bytes.hpp"

#include "report/exit_codes.hpp"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <system_error>

namespace veldan::kit {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t maxFileSize = std::size_t{1} << 30;

constexpr mode_t permissions = 07777;
constexpr int mostLinks = 40;

void writeTo(const fs::path& path, int flags, mode_t mode, const unsigned char* bytes, std::size_t size) {
    const FileDescriptor file(path == standardStream ? ::fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0)
                                                     : ::open(path.c_str(), O_WRONLY | O_CLOEXEC | flags, mode));
    if (file.get() < 0 || !writeAll(file.get(), bytes, size))
        throw CommandError(ExitCode::NotWritten, "cannot be written: " + reasonOf(errno));
}

} // namespace

std::vector<unsigned char> readFile(const std::string& path) {
    const FileDescriptor file(path == standardStream ? ::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                                     : ::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0) {
        if (errno == ENOENT || errno == ENOTDIR)
            throw CommandError(ExitCode::Missing, "no such file");
        throw CommandError(ExitCode::Unreadable, "cannot be opened: " + reasonOf(errno));
    }
    std::vector<unsigned char> bytes;
    std::array<unsigned char, 1 << 16> part{};
    for (;;) {
        const ssize_t length = ::read(file.get(), part.data(), part.size());
        if (length == 0)
            return bytes;
        if (length < 0) {
            if (errno == EINTR)
                continue;
            throw CommandError(ExitCode::Unreadable, "cannot be read: " + reasonOf(errno));
        }
        bytes.insert(bytes.end(), part.data(), part.data() + length);
        if (bytes.size() > maxFileSize)
            throw CommandError(ExitCode::Unreadable, "larger than 1 GiB");
    }
}

std::string reasonOf(int error) {
    switch (error) {
    case ENOSPC:
        return "no space left on the device";
    case EDQUOT:
        return "the quota of the disk is used up";
    case EFBIG:
        return "the file would become larger than the system allows";
    default:
        return std::strerror(error);
    }
}

fs::path withLinksFollowed(fs::path path) {
    std::error_code error;
    for (int links = 0; links < mostLinks && fs::is_symlink(path, error); ++links)
        path = path.parent_path() / fs::read_symlink(path, error);
    return path;
}

bool writeAll(int fd, const unsigned char* bytes, std::size_t size) {
    std::size_t done = 0;
    while (done < size) {
        const ssize_t length = ::write(fd, bytes + done, size - done);
        if (length < 0 && errno != EINTR)
            return false;
        if (length > 0)
            done += static_cast<std::size_t>(length);
    }
    return true;
}

void writeFile(const fs::path& path, const unsigned char* bytes, std::size_t size, mode_t mode) {
    if (path == standardStream) {
        writeTo(path, 0, 0, bytes, size);
        return;
    }
    const fs::path target = withLinksFollowed(path);
    struct stat status {};
    const bool exists = ::stat(target.c_str(), &status) == 0;
    if (exists && !S_ISREG(status.st_mode)) {
        writeTo(target, 0, 0, bytes, size);
        return;
    }
    static std::atomic<unsigned int> count{0}; // several threads write into the same folder
    const fs::path partial =
        target.parent_path() / (".veldan-" + std::to_string(::getpid()) + "-" + std::to_string(count++) + "-partial");
    std::error_code error;
    fs::remove(partial, error); // left behind by a process that was killed
    try {
        writeTo(partial, O_CREAT | O_EXCL, exists ? S_IRUSR | S_IWUSR : mode, bytes, size);
        if (exists && ::chmod(partial.c_str(), status.st_mode & permissions) != 0)
            throw CommandError(ExitCode::NotWritten, "cannot be written: " + reasonOf(errno));
    } catch (const CommandError&) {
        fs::remove(partial, error);
        throw;
    }
    fs::rename(partial, target, error);
    if (error) {
        const std::string reason = error.message();
        fs::remove(partial, error);
        throw CommandError(ExitCode::NotWritten, "cannot be written: " + reason);
    }
}

} // namespace veldan::kit
