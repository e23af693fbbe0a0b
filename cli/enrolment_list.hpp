#ifndef VELDAN_CLI_ENROLMENT_LIST_HPP
#define VELDAN_CLI_ENROLMENT_LIST_HPP

#include "exit_codes.hpp"

#include <string>
#include <vector>

namespace veldan::cli {

/** Which photos are to be enrolled as whom. */
struct EnrolmentList {
    struct Refusal {
        std::string path;
        std::string reason;
    };

    std::vector<std::string> photos;
    std::vector<std::string> persons; ///< the person of each photo
    std::vector<Refusal> refused;     ///< folders and files that belong to nobody
};

/**
 * @param name    a person; without photos the path of a folder. One of folders holds a folder for each person, any
 * other one is a person's. Files whose names begin with a dot are passed over.
 * @param photos  photos of that person, or folders of them
 * Throws CommandError (Usage, Unreadable).
 */
EnrolmentList enrolmentList(const std::string& name, const std::vector<std::string>& photos);

} // namespace veldan::cli

#endif
