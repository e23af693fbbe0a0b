#ifndef VELDAN_KIT_GALLERY_ENROLMENT_LIST_HPP
#define VELDAN_KIT_GALLERY_ENROLMENT_LIST_HPP

#include "report/exit_codes.hpp"

#include <string>
#include <vector>

namespace veldan::kit {

/** Which photos are to be enrolled as whom. */
struct EnrolmentList {
    struct Refusal {
        std::string path;
        std::string reason;
        ExitCode code = ExitCode::Unsuitable;
    };

    std::vector<std::string> photos;
    std::vector<std::string> persons; ///< the person of each photo
    /** Of each photo that is the template of a bare face: the one for a mask that goes with it; empty for others. */
    std::vector<std::string> maskTemplates;
    std::vector<Refusal> refused; ///< folders and files that belong to nobody
    std::string remark;           ///< a doubt about what was meant; empty: none
};

/**
 * @param name    a person; without photos the path of a folder. One of folders holds a folder for each person, any
 * other one is a person's. Files whose names begin with a dot are passed over.
 * @param photos  photos of that person, or folders of them
 * The template files of a person go together in pairs, the first of a bare face with the first for a mask and so on.
 * Throws CommandError (Usage).
 */
EnrolmentList enrolmentList(const std::string& name, const std::vector<std::string>& photos);

} // namespace veldan::kit

#endif
