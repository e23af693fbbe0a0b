#include "running_command.hpp"

#include "run_command.hpp"

#include <array>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

RunningCommand::RunningCommand(const std::string& program, const std::vector<std::string>& arguments) {
    std::array<int, 2> pipe{};
    if (::pipe2(pipe.data(), O_CLOEXEC) != 0)
        throw std::runtime_error("cannot create a pipe");
    output_ = pipe[0];

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, pipe[1], STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    const std::optional<pid_t> process = spawnProgram(program, arguments, actions);
    ::close(pipe[1]);
    if (!process) {
        ::close(output_);
        throw std::runtime_error("cannot start " + program);
    }
    process_ = *process;
}

RunningCommand::~RunningCommand() {
    kill();
    wait();
    ::close(output_);
}

std::optional<std::string> RunningCommand::readLine() {
    for (;;) {
        if (const std::size_t end = unread_.find('\n'); end != std::string::npos) {
            std::string line = unread_.substr(0, end);
            unread_.erase(0, end + 1);
            return line;
        }
        std::array<char, 4096> part{};
        const ssize_t length = ::read(output_, part.data(), part.size());
        if (length <= 0)
            return std::nullopt;
        unread_.append(part.data(), static_cast<std::size_t>(length));
    }
}

bool RunningCommand::ended() {
    int status = 0;
    if (!status_ && ::waitpid(process_, &status, WNOHANG) == process_)
        status_ = status;
    return status_.has_value();
}

void RunningCommand::kill() {
    if (!ended())
        ::kill(process_, SIGKILL);
}

int RunningCommand::wait() {
    int status = 0;
    if (!status_ && ::waitpid(process_, &status, 0) == process_)
        status_ = status;
    return status_ && WIFEXITED(*status_) ? WEXITSTATUS(*status_) : -1;
}
