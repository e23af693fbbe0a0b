#ifndef VELDAN_KIT_REPORT_PROGRESS_HPP
#define VELDAN_KIT_REPORT_PROGRESS_HPP

#include <chrono>
#include <cstddef>
#include <optional>
#include <string>

namespace veldan::kit {

/**
 * A line on standard error that says how far long work has come, and how fast. Unless it is asked for, there is none
 * when standard error is not a terminal and when there is one thing to do only.
 */
class Progress {
public:
    Progress(std::size_t total, std::optional<bool> wanted);
    ~Progress() { clear(); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /** A piece of work is done, and what it had to tell is printed. */
    void done(const std::string& name);

    /** Takes the line away, so that other text can be printed; done() brings it back. */
    void clear();

    /** The work is over: the line is taken away for good. */
    void end();

private:
    using Clock = std::chrono::steady_clock;

    std::size_t total_;
    bool visible_;
    std::size_t done_ = 0;
    bool shown_ = false;
    Clock::time_point start_ = Clock::now();
    Clock::time_point drawn_;
};

} // namespace veldan::kit

#endif
