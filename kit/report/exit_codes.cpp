#include "report/exit_codes.hpp"

#include <algorithm>
#include <fmt/format.h>

namespace veldan::kit {

const char* exitCodeName(ExitCode code) {
    const auto* row = std::find_if(exitCodes.begin(), exitCodes.end(),
                                   [code](const ExitCodeRow& candidate) { return candidate.code == code; });
    return row == exitCodes.end() ? "internal" : row->name;
}

std::string exitCodeHelp() {
    std::string help = "Exit codes:\n";
    for (const ExitCodeRow& row : exitCodes)
        if (row.ofPhotos)
            help += fmt::format("{:>3}  {}\n", static_cast<int>(row.code), row.meaning);
    return help + "The first problem decides; the other photos are processed all the same.\n";
}

} // namespace veldan::kit
