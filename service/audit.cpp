#include "audit.hpp"

#include "gallery/records.hpp"
#include "report/messages.hpp"
#include "system/file_bytes.hpp"

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>
#include <utility>

namespace veldan::service {

Audit::Audit(std::string file) : file_(std::move(file)) {
    if (!file_.empty())
        fd_ = open();
}

Audit::~Audit() {
    if (fd_ >= 0)
        ::close(fd_);
}

int Audit::open() const {
    const int fd = ::open(file_.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, kit::forOwner);
    if (fd < 0)
        throw kit::CommandError(kit::ExitCode::NotWritten, file_ + ": cannot be written: " + kit::reasonOf(errno));
    return fd;
}

void Audit::reopen() {
    if (file_.empty())
        return;
    const int fd = open();
    const std::lock_guard<std::mutex> lock(mutex_);
    ::close(std::exchange(fd_, fd));
    failed_ = false;
}

void Audit::require() const {
    if (failed_)
        throw Problem(503, "changes cannot be recorded in the audit file, so none are made");
}

void Audit::write(const Call& call, const std::string& event, const std::string& person, const std::string& object) {
    if (file_.empty())
        return;
    const Json entry = {{"time", kit::dateNow()}, {"event", event},   {"caller", call.caller},
                        {"remote", call.remote},  {"person", person}, {"object", object}};
    const std::string line = kit::written(entry, -1) + "\n";
    const std::lock_guard<std::mutex> lock(mutex_);
    if (kit::writeAll(fd_, reinterpret_cast<const unsigned char*>(line.data()), line.size()) && ::fdatasync(fd_) == 0)
        return;
    failed_ = errno != EINVAL; // what cannot be synchronised, as a pipe, is written all the same
    if (failed_)
        kit::tellUser(file_ + ": cannot be written: " + kit::reasonOf(errno));
}

} // namespace veldan::service
