#include "run_command.hpp"

#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

std::string readText(const std::filesystem::path& path) {
    const std::vector<unsigned char> bytes = readBytes(path);
    return {bytes.begin(), bytes.end()};
}

} // namespace

std::optional<pid_t> spawnProgram(const std::string& program, const std::vector<std::string>& arguments,
                                  posix_spawn_file_actions_t& actions) {
    std::vector<std::string> words = {program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    pid_t process = 0;
    const int failure = posix_spawn(&process, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    return failure == 0 ? std::optional(process) : std::nullopt;
}

CommandResult runProgram(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& standardInput, const std::string& standardOutput) {
    const ScratchFolder folder;
    const std::string output = standardOutput.empty() ? (folder / "output").string() : standardOutput;
    const std::string errors = (folder / "errors").string();

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, standardInput.c_str(), O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, output.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errors.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    const std::optional<pid_t> process = spawnProgram(program, arguments, actions);
    if (!process)
        throw std::runtime_error("cannot start " + program);

    int status = 0;
    waitpid(*process, &status, 0);
    CommandResult result;
    if (WIFEXITED(status))
        result.exitCode = WEXITSTATUS(status);
    if (standardOutput.empty())
        result.output = readText(output);
    result.errors = readText(errors);
    return result;
}

ScratchFolder::ScratchFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "veldan-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("cannot create " + name);
    path_ = name;
}

ScratchFolder::~ScratchFolder() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
}

std::vector<unsigned char> readBytes(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot open " + path.string());
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void writeBytes(const std::filesystem::path& path, const std::vector<unsigned char>& bytes) {
    std::ofstream file(path, std::ios::binary);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}
