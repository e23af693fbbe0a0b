#ifndef VELDAN_TESTS_CLI_RUNNING_COMMAND_HPP
#define VELDAN_TESTS_CLI_RUNNING_COMMAND_HPP

#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

/** A program that runs while the test reads what it prints; its errors go nowhere. Killed at the latest at the end. */
class RunningCommand {
public:
    RunningCommand(const std::string& program, const std::vector<std::string>& arguments);
    ~RunningCommand();
    RunningCommand(const RunningCommand&) = delete;
    RunningCommand& operator=(const RunningCommand&) = delete;

    /** The next whole line of its output; nothing after the last one. */
    std::optional<std::string> readLine();

    /** Whether it has ended by itself. */
    bool ended();

    void kill();

    /** Waits until it ends. @return its exit code; -1 when it was killed */
    int wait();

private:
    pid_t process_ = -1;
    int output_ = -1;
    std::string unread_;
    std::optional<int> status_;
};

#endif
