#ifndef VELDAN_CLI_PROGRESS_HPP
#define VELDAN_CLI_PROGRESS_HPP

#include <cstddef>
#include <string>

namespace veldan::cli {

/**
 * A line on standard error that says how far long work has come. Silent when standard error is not a terminal and when
 * there is one thing to do only.
 */
class Progress {
public:
    explicit Progress(std::size_t total);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    /** Shows that the next piece of work has begun. */
    void next(const std::string& name);

    /** Takes the line away, so that other text can be printed; next() brings it back. */
    void clear();

private:
    std::size_t total_;
    std::size_t begun_ = 0;
    bool visible_;
};

} // namespace veldan::cli

#endif
