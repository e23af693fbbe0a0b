#include "gallery/new_file.hpp"

#include "report/exit_codes.hpp"
#include "system/file_bytes.hpp"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace veldan::kit {

NewFile::NewFile(const std::string& path) : target_(withLinksFollowed(path)) {
    static std::atomic<unsigned int> count{0}; // a process may open a new gallery more than once
    file_ = target_.parent_path() / ("." + target_.filename().string() + "-" + std::to_string(::getpid()) + "-" +
                                     std::to_string(count++) + "-partial");
    remove(); // left behind by a process that was killed
    const FileDescriptor created(::open(file_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, forOwner));
    if (created.get() < 0)
        throw CommandError(ExitCode::NotWritten, path + ": cannot be created: " + reasonOf(errno));
}

NewFile::~NewFile() {
    if (!moved_)
        remove();
}

bool NewFile::moveToTarget() {
    int failed = ::renameat2(AT_FDCWD, file_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
    // Some file systems know links but not this kind of renaming.
    if (failed != 0 && errno == EINVAL && (failed = ::link(file_.c_str(), target_.c_str())) == 0)
        ::unlink(file_.c_str());
    if (failed != 0 && errno == EEXIST)
        return false;
    if (failed != 0)
        throw FatalError(ExitCode::NotWritten, target_.string() + ": cannot be created: " + reasonOf(errno));
    moved_ = true;
    // The name has to survive a power failure as well.
    const std::filesystem::path folder = target_.has_parent_path() ? target_.parent_path() : ".";
    const FileDescriptor parent(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.get() >= 0)
        ::fsync(parent.get());
    return true;
}

void NewFile::remove() {
    ::unlink(file_.c_str());
    ::unlink((file_.string() + "-journal").c_str());
}

} // namespace veldan::kit
