#include "report/progress.hpp"

#include "report/printable.hpp"

#include <iomanip>
#include <iostream>
#include <sstream>
#include <unistd.h>

namespace veldan::kit {

namespace {

constexpr std::size_t barWidth = 24;
constexpr std::size_t lineWidth = 79;
constexpr std::chrono::milliseconds pause(100); // more often nobody reads it

} // namespace

Progress::Progress(std::size_t total, std::optional<bool> wanted)
    : total_(total), visible_(wanted.value_or(total > 1 && ::isatty(STDERR_FILENO) == 1)) {}

void Progress::done(const std::string& name) {
    ++done_;
    const Clock::time_point now = Clock::now();
    if (!visible_ || (done_ < total_ && shown_ && now - drawn_ < pause))
        return;
    const std::size_t full = total_ > 0 ? barWidth * done_ / total_ : barWidth;
    const std::chrono::duration<double> elapsed = now - start_;
    std::ostringstream line;
    line << '[' << std::string(full, '#') << std::string(barWidth - full, '.') << "] " << done_ << '/' << total_ << "  "
         << std::fixed << std::setprecision(1) << static_cast<double>(done_) / elapsed.count() << "/s  "
         << printable(name);
    std::cerr << "\r\033[K" << line.str().substr(0, lineWidth) << std::flush;
    shown_ = true;
    drawn_ = now;
}

void Progress::clear() {
    if (shown_)
        std::cerr << "\r\033[K" << std::flush;
    shown_ = false;
}

void Progress::end() {
    clear();
    visible_ = false;
}

} // namespace veldan::kit
