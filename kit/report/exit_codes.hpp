#ifndef VELDAN_KIT_REPORT_EXIT_CODES_HPP
#define VELDAN_KIT_REPORT_EXIT_CODES_HPP

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

/** The name of a code in machine-readable output. */
inline const char* exitCodeName(ExitCode code) {
    switch (code) {
    case ExitCode::Success:
        return "success";
    case ExitCode::Different:
        return "different";
    case ExitCode::Usage:
        return "usage";
    case ExitCode::Missing:
        return "missing";
    case ExitCode::Unreadable:
        return "unreadable";
    case ExitCode::TooSmall:
        return "too_small";
    case ExitCode::TooManyFaces:
        return "too_many_faces";
    case ExitCode::NotWritten:
        return "not_written";
    case ExitCode::Library:
        return "library";
    case ExitCode::Unsuitable:
        return "unsuitable";
    case ExitCode::Gallery:
        return "gallery";
    case ExitCode::Internal:
        break;
    }
    return "internal";
}

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

/** The exit codes for the help of every command that reads photos. */
inline constexpr const char* exitCodeHelp = "Exit codes:\n"
                                            "  0  done; a photo without a face is a result, not an error\n"
                                            "  2  wrong usage\n"
                                            "  3  a photo does not exist\n"
                                            "  4  a photo cannot be read, or is not a picture\n"
                                            "  5  a photo is too small (less than 100 pixels on a side)\n"
                                            "  6  a photo holds more than 100 faces\n"
                                            "  7  a picture could not be written\n"
                                            "  8  the library did not start\n"
                                            " 11  unexpected failure\n"
                                            "The first problem decides; the other photos are processed all the same.\n";

} // namespace veldan::kit

#endif
