#ifndef VELDAN_CLI_PHOTO_TASK_HPP
#define VELDAN_CLI_PHOTO_TASK_HPP

#include "kit_names.hpp"
#include "photo/face_api.hpp"
#include "photo/output_files.hpp"
#include "photo/photo.hpp"
#include "report/exit_codes.hpp"
#include "report/json.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace veldan::cli {

/** What every photo of a run shares; not changed while photos are worked on. */
struct PhotoOutputs {
    const PhotoFiles& files;
    bool json = false; ///< then no text is written
};

/** An instance of the library could not be created; the reason goes past all handlers of a single photo's failures. */
struct NoLibrary {
    CommandError reason;
};

/** The instance of one thread, created when it is first needed: starting takes longer than finding nothing to do. */
class PhotoWorker {
public:
    /** Throws NoLibrary. */
    FaceApi& api();

private:
    std::unique_ptr<FaceApi> api_;
};

/**
 * One photo that is worked on, and what is to be told about it. Nothing is printed yet, so that photos can be worked on
 * side by side. One thread at a time.
 */
class PhotoTask {
public:
    /** Text for standard output, of one line or several, or a message for standard error. */
    struct Line {
        bool message;
        std::string text;
    };

    /** @param drawing  where the drawn picture goes; empty: nowhere */
    PhotoTask(std::size_t index, std::string path, std::filesystem::path drawing, const PhotoOutputs& outputs,
              PhotoWorker& worker);

    std::size_t index() const { return index_; }
    const std::string& path() const { return path_; }
    FaceApi& api() { return worker_.api(); }

    /** @name What a command does with the photo, in this order */
    ///@{
    Photo load() { return decode(read()); }
    /** load() in two steps, for those who need the bytes themselves. */
    std::vector<unsigned char> read() const;
    Photo decode(const std::vector<unsigned char>& bytes);
    void addFaceCount(const Photo& photo, std::size_t count, double milliseconds);
    /** @param text  one line or several */
    void addFace(Json face, const std::string& text);
    /** Saves a crop of a face added before and names its file there. @param kind  its key under "aligned" */
    void saveCrop(std::size_t face, const char* kind, Photo crop, const std::filesystem::path& path);
    /** Saves the picture that annotated returns, if the user wants one. */
    void draw(const std::function<Photo()>& annotated);
    /** Sets a field of the photo's entry. */
    void set(const char* key, Json value) { entry_[key] = std::move(value); }
    void unset(const char* key) { entry_.erase(key); }
    /** A line of text, not in JSON. */
    void tell(const std::string& line);
    /** Says something about the photo that is no failure. */
    void note(const std::string& message) { lines_.push_back({true, path_ + ": " + message}); }
    ///@}

    /** Does something with the photo; what fails is told as this photo's failure. Throws NoLibrary. */
    void attempt(const std::function<void()>& action);

    const std::vector<Line>& lines() const { return lines_; }
    Json takeEntry() { return std::move(entry_); }
    ExitCode code() const { return code_; }
    /** Whether the failure ends the run. */
    bool fatal() const { return fatal_; }

private:
    void addText(const std::string& text);
    void fail(ExitCode code, const std::string& message);

    std::size_t index_;
    std::string path_;
    std::filesystem::path drawing_;
    const PhotoOutputs& outputs_;
    PhotoWorker& worker_;
    Json entry_;
    std::vector<Line> lines_;
    ExitCode code_ = ExitCode::Success;
    bool fatal_ = false;
};

} // namespace veldan::cli

#endif
