#ifndef VELDAN_TESTS_CLI_RUN_COMMAND_HPP
#define VELDAN_TESTS_CLI_RUN_COMMAND_HPP

#include <filesystem>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/types.h>
#include <vector>

struct CommandResult {
    int exitCode = -1; ///< -1 when the command did not end by itself
    std::string output;
    std::string errors;
};

/** Runs a program, without a shell in between. */
CommandResult runProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& standardInput = "/dev/null", const std::string& standardOutput = "");

/** Starts a program with the files that the actions open, and destroys the actions. @return nothing when it cannot
 * start */
std::optional<pid_t> spawnProgram(const std::string& program, const std::vector<std::string>& arguments,
                                  posix_spawn_file_actions_t& actions);

/** A folder of its own for one test, removed afterwards. */
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

private:
    std::filesystem::path path_;
};

std::vector<unsigned char> readBytes(const std::filesystem::path& path);
void writeBytes(const std::filesystem::path& path, const std::vector<unsigned char>& bytes);

#endif
