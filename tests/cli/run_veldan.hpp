#ifndef VELDAN_TESTS_CLI_RUN_VELDAN_HPP
#define VELDAN_TESTS_CLI_RUN_VELDAN_HPP

#include "run_command.hpp"

inline CommandResult runVeldan(const std::vector<std::string>& arguments,
                               const std::string& standardInput = "/dev/null", const std::string& standardOutput = "") {
    return runProgram(VELDAN_COMMAND, arguments, standardInput, standardOutput);
}

#endif
