#include "progress.hpp"

#include "printable.hpp"

#include <iostream>
#include <unistd.h>

namespace veldan::cli {

Progress::Progress(std::size_t total) : total_(total), visible_(total > 1 && ::isatty(STDERR_FILENO) == 1) {}

Progress::~Progress() {
    clear();
}

void Progress::next(const std::string& name) {
    ++begun_;
    if (visible_)
        std::cerr << "\r\033[K[" << begun_ << '/' << total_ << "] " << printable(name) << std::flush;
}

void Progress::clear() {
    if (visible_ && begun_ > 0)
        std::cerr << "\r\033[K" << std::flush;
}

} // namespace veldan::cli
