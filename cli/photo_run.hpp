#ifndef VELDAN_CLI_PHOTO_RUN_HPP
#define VELDAN_CLI_PHOTO_RUN_HPP

#include "options.hpp"
#include "photo/output_files.hpp"
#include "photo_task.hpp"
#include "report/exit_codes.hpp"
#include "report/json.hpp"
#include "report/progress.hpp"

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veldan::cli {

/**
 * Goes through the photos of a command line and reports on each: text as it comes, or one JSON document at the end. A
 * photo that fails is reported as such, and the ones after it follow all the same. Photos may be worked on side by
 * side; what is printed is the same, in the order of the photos.
 */
class PhotoRun {
public:
    /** @param options  must outlive the object. Throws CommandError when they ask for what cannot be done. */
    explicit PhotoRun(const PhotoOptions& options);

    const std::vector<PhotoInput>& photos() const { return inputs_; }

    /** Photos that were gone through, whatever came of them; not one that a FatalError ended the run at. */
    std::size_t done() const { return entries_.size() - (stopped_ ? 1 : 0); }
    /** Whether a FatalError ended the run. */
    bool stopped() const { return stopped_; }

    /** What is done with a photo. */
    struct Steps {
        /** Called on any thread, with an instance of that thread in the task. */
        std::function<void(PhotoTask& task)> work;
        /** Called on the calling thread, in the order of the photos, for those where work did not fail. */
        std::function<void(PhotoTask& task)> finish;
    };

    /**
     * Takes these steps for each photo, then, when none failed, conclude, and then summarise in any case; the latter
     * two may add to the JSON document. The first failure decides the exit code; a FatalError ends it at once and
     * decides instead.
     */
    ExitCode forEach(const Steps& steps, const std::function<void(Json& document)>& conclude = {},
                     const std::function<void(Json& document)>& summarise = {});

    /** For conclude and summarise: prints a line of text, not in JSON. */
    void tell(const std::string& line);

private:
    void report(PhotoTask& task);
    void say(const PhotoTask::Line& line);
    void attempt(Json& document, const std::function<void(Json& document)>& action);

    const PhotoOptions& options_;
    std::vector<PhotoInput> inputs_;
    PhotoFiles photoFiles_;
    DrawTarget drawTarget_;
    Progress progress_;
    Json entries_ = Json::array();
    ExitCode code_ = ExitCode::Success;
    bool stopped_ = false;
};

} // namespace veldan::cli

#endif
