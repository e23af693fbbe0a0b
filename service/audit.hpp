#ifndef VELDAN_SERVICE_AUDIT_HPP
#define VELDAN_SERVICE_AUDIT_HPP

#include "routes.hpp"

#include <atomic>
#include <mutex>
#include <string>

namespace veldan::service {

/** The file that gets a line for every change of the gallery, and for nothing else. Lines are only added. */
class Audit {
public:
    /** @param file  empty: none. Throws CommandError (NotWritten). */
    explicit Audit(std::string file);
    ~Audit();
    Audit(const Audit&) = delete;
    Audit& operator=(const Audit&) = delete;

    /** Opens the file again, after it was moved away. Throws CommandError (NotWritten). */
    void reopen();

    /** Throws Problem (503) when lines cannot be written: then nothing may be changed. */
    void require() const;

    /** Writes that something was changed; the line is on the disk when the call returns. */
    void write(const Call& call, const std::string& event, const std::string& person, const std::string& object);

    bool works() const { return !failed_; }

private:
    int open() const;

    const std::string file_;
    std::mutex mutex_;
    int fd_ = -1;
    std::atomic<bool> failed_{false};
};

} // namespace veldan::service

#endif
