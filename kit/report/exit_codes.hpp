#ifndef VELDAN_KIT_REPORT_EXIT_CODES_HPP
#define VELDAN_KIT_REPORT_EXIT_CODES_HPP

#include <array>
#include <stdexcept>
#include <string>

namespace veldan::kit {

/** Exit codes of the command. Scripts rely on them: a number is never given a second meaning. */
enum class ExitCode : int {
    Success = 0,
    Different = 1, ///< only where the answer itself is asked for, as by cmp
    Usage = 2,
    Missing = 3,
    Unreadable = 4,
    TooSmall = 5,
    TooManyFaces = 6,
    NotWritten = 7,
    Library = 8,
    Unsuitable = 9,
    Gallery = 10,
    Internal = 11,
};

/** What a code is called in machine-readable output, and what it means. */
struct ExitCodeRow {
    ExitCode code;
    const char* name;
    const char* meaning;
    bool ofPhotos; ///< whether every command that reads photos may end with it
};

/** All codes. The help of the commands and docs/command.md say what stands here. */
inline constexpr std::array<ExitCodeRow, 12> exitCodes = {{
    {ExitCode::Success, "success", "done; a photo without a face is a result, not an error", true},
    {ExitCode::Different, "different", "only `veldan match --threshold`: different people", false},
    {ExitCode::Usage, "usage", "wrong usage", true},
    {ExitCode::Missing, "missing", "a photo does not exist", true},
    {ExitCode::Unreadable, "unreadable", "a photo cannot be read, or is not a picture", true},
    {ExitCode::TooSmall, "too_small", "a photo is too small (less than 100 pixels on a side)", true},
    {ExitCode::TooManyFaces, "too_many_faces", "a photo holds more than 100 faces", true},
    {ExitCode::NotWritten, "not_written", "a picture could not be written", true},
    {ExitCode::Library, "library", "the library did not start", true},
    {ExitCode::Unsuitable, "unsuitable", "a photo does not serve: no face, several faces, or one of too little quality",
     false},
    {ExitCode::Gallery, "gallery", "a gallery cannot be used: damaged, made by other networks, or no gallery at all",
     false},
    {ExitCode::Internal, "internal", "unexpected failure", true},
}};

/** The name of a code in machine-readable output. */
const char* exitCodeName(ExitCode code);

/** The exit codes for the help of every command that reads photos. */
std::string exitCodeHelp();

/** A failure with the exit code that it leads to; the text is a complete message for the user. */
class CommandError : public std::runtime_error {
public:
    CommandError(ExitCode code, const std::string& message) : std::runtime_error(message), code_(code) {}

    ExitCode code() const { return code_; }

    /** Whether the JSON output tells about it already. */
    bool inOutput() const { return inOutput_; }
    CommandError& markInOutput() {
        inOutput_ = true;
        return *this;
    }

private:
    ExitCode code_;
    bool inOutput_ = false;
};

/** A failure that everything after it would meet as well: it ends the command at once. */
class FatalError : public CommandError {
public:
    using CommandError::CommandError;
};

} // namespace veldan::kit

#endif
