#ifndef VELDAN_CLI_PHOTO_RUN_HPP
#define VELDAN_CLI_PHOTO_RUN_HPP

#include "exit_codes.hpp"
#include "face_text.hpp"
#include "file_bytes.hpp"
#include "output_files.hpp"
#include "photo.hpp"
#include "progress.hpp"

#include <functional>
#include <string>
#include <vector>

namespace CLI {
class App;
}

namespace veldan::cli {

/** The options of every command that looks for faces in photos. */
struct PhotoOptions {
    std::vector<std::string> photos;
    std::string draw;
    bool json = false;
};

/** Adds the options to a command. @param drawHelp  what --draw draws */
void addPhotoOptions(CLI::App& command, PhotoOptions& options, const std::string& drawHelp);

/**
 * Goes through the photos of a command line and reports on each: text as it comes, or one JSON document at the end.
 * A photo that fails is reported as such, and the ones after it follow all the same.
 */
class PhotoRun {
public:
    /** @param options  must outlive the object. Throws CommandError when they ask for what cannot be written. */
    explicit PhotoRun(const PhotoOptions& options);

    /**
     * Calls process for each photo, then, when none failed, conclude, and then summarise in any case; the latter two
     * may add to the JSON document. The first failure decides the exit code; a FatalError ends it at once and
     * decides instead.
     */
    ExitCode forEach(const std::function<void(const std::string& path)>& process,
                     const std::function<void(Json& document)>& conclude = {},
                     const std::function<void(Json& document)>& summarise = {});

    /** @name For process, in this order */
    ///@{
    Photo load(const std::string& path) { return decode(path, readFile(path)); }
    /** load() for a file that is read already. */
    Photo decode(const std::string& path, const std::vector<unsigned char>& bytes);
    void addFaceCount(const Photo& photo, std::size_t count, double milliseconds);
    /** @param text  one line or several */
    void addFace(Json face, const std::string& text);
    /** Saves a crop of a face added before and names its file there. @param kind  its key under "aligned" */
    void saveCrop(std::size_t face, const char* kind, Photo crop, const std::filesystem::path& path);
    /** Saves the picture that annotated returns, if the user wants one. */
    void draw(const std::function<Photo()>& annotated);
    /** Sets a field of the photo's entry. */
    void set(const char* key, Json value) { entry_[key] = std::move(value); }
    /** Prints a line at once: what it tells has happened, whatever comes next. */
    void tell(const std::string& line);
    /** Says something about the photo that is no failure, on standard error. */
    void note(const std::string& message);
    /** Throws CommandError when there are more faces than the library follows. */
    static void refuseCrowd(std::size_t count);
    ///@}

private:
    void say(const std::string& subject, const std::string& message);
    Json failure(ExitCode code, const std::string& subject, const std::string& message);
    void attempt(const std::string& subject, Json& result, const std::function<void()>& action);

    const PhotoOptions& options_;
    PhotoFiles photoFiles_;
    DrawTarget drawTarget_;
    Progress progress_;
    std::string path_;
    Json entry_;
    Json entries_ = Json::array();
    ExitCode code_ = ExitCode::Success;
    bool stopped_ = false;
};

} // namespace veldan::cli

#endif
