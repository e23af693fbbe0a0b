#include "commands.hpp"
#include "gallery/live_gallery.hpp"
#include "gallery_to_search.hpp"
#include "options.hpp"
#include "photo/annotate.hpp"
#include "photo/face_api.hpp"
#include "photo/judge.hpp"
#include "photo_task.hpp"
#include "report/messages.hpp"
#include "report/similarity.hpp"
#include "report/text.hpp"
#include "system/stop_signal.hpp"
#include "video/event_text.hpp"
#include "video/preview_window.hpp"
#include "video/record.hpp"
#include "video/source.hpp"
#include "video/track_events.hpp"

#include <veldan/veldan.hpp>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <system_error>
#include <vector>

namespace veldan::cli {

namespace {

constexpr int usualGrace = 25;

struct WatchOptions {
    std::string gallery;
    std::string source;
    std::string record;
    std::int64_t frames = 0;
    double threshold = recognitionThreshold;
    double maskThreshold = maskedRecognitionThreshold;
    int quality = VELDAN_TRACKED_QUALITY;
    bool liveness = false;
    int grace = usualGrace;
    bool json = false;
    bool show = false;
};

void refuseOverwriting(const WatchOptions& options) {
    std::error_code error;
    for (const std::string& input : {options.source, options.gallery})
        if (std::filesystem::equivalent(input, options.record, error))
            throw CommandError(ExitCode::NotWritten, "writing " + options.record + " would overwrite " + input);
}

class Watch {
public:
    explicit Watch(const WatchOptions& options)
        : options_(options), gallery_(options.gallery), api_(static_cast<int>(gallery_.capacity())),
          tracker_(api_.instance()), events_(options.grace), source_(options.source) {
        tellAbout(gallery_.gallery(), gallery_.name(), "nobody is enrolled, so everybody will be a stranger");
        if (options.record.empty())
            return;
        refuseOverwriting(options);
        record_.emplace(options.record, source_.framesPerSecond());
    }

    ExitCode run() {
        if (options_.show && !std::getenv("DISPLAY") && !std::getenv("WAYLAND_DISPLAY") &&
            !std::getenv("QT_QPA_PLATFORM"))
            tellUser("no display was found, so --show shows nothing");
        catchStopSignals();
        Frame frame;
        while (!stopRequested() && !enough() && source_.next(frame, stopRequested)) {
            ++frames_;
            last_ = frame.moment;
            gallery_.follow();
            process(frame);
        }
        const bool lost = source_.kind() == VideoSource::Kind::Camera && !stopRequested() && !enough();
        for (const TrackEvent& event : events_.finish())
            report(event);
        window_.close();
        if (record_)
            record([&] { record_->close(); });
        if (lost) {
            failure_ = CommandError(ExitCode::Unreadable, "camera " + options_.source + " sends no more pictures");
            tellUser(failure_->what());
        }
        summarise();
        return failure_ ? failure_->code() : ExitCode::Success;
    }

private:
    bool enough() const { return options_.frames > 0 && frames_ >= options_.frames; }

    void process(Frame& frame) {
        const std::vector<VDFACEINFOEX>& faces = search(frame.picture);
        for (const TrackEvent& event : events_.next(frame.moment, faces))
            report(event);
        if (!record_ && !options_.show)
            return;
        annotate(frame.picture, marksOf(faces));
        if (record_)
            record([&] { record_->write(frame.picture, frame.moment.seconds); });
        if (options_.show)
            window_.show(frame.picture);
    }

    const std::vector<VDFACEINFOEX>& search(Photo& picture) {
        try {
            tracker_.next(viewOf(picture));
            if (options_.liveness)
                tracker_.judgeLiveness(viewOf(picture));
            return tracker_.search(viewOf(picture), gallery_.gallery().bare, gallery_.gallery().masked,
                                   wholePercent(options_.threshold), wholePercent(options_.maskThreshold),
                                   options_.quality);
        } catch (const Error& error) {
            throw CommandError(error.code() == VD_ERR_IMAGE_TOO_SMALL ? ExitCode::TooSmall : ExitCode::Library,
                               options_.source + ": " + error.what());
        }
    }

    std::string personName(int searchId) const {
        const auto index = static_cast<std::size_t>(searchId);
        return searchId >= 0 && index < gallery_.gallery().names.size() ? gallery_.gallery().names[index] : "";
    }

    void report(const TrackEvent& event) {
        const std::string name = personName(event.face.searchId);
        people_ = std::max(people_, event.person);
        if (event.kind == TrackEvent::Kind::Recognised) {
            recognised_.insert(name);
            strangers_.erase(event.person);
        } else if (event.kind == TrackEvent::Kind::Stranger) {
            strangers_.insert(event.person);
        }
        if (options_.json)
            printLine(eventJson(event, name, options_.liveness));
        else
            std::cout << eventText(event, name, options_.liveness)
                      << std::endl; // whoever follows wants to know at once
    }

    void summarise() {
        if (options_.json) {
            Json json = {{"event", "summary"},
                         {"frames", frames_},
                         {"seconds", last_.seconds},
                         {"dropped", source_.dropped()},
                         {"people", people_},
                         {"recognised", recognised_},
                         {"strangers", strangers_.size()}};
            if (record_)
                json["record"] = options_.record;
            if (failure_)
                json["error"] = failureJson(failure_->code(), failure_->what());
            printLine(json);
            return;
        }
        std::cout << counted(static_cast<std::size_t>(frames_), "frame");
        if (source_.dropped() > 0)
            std::cout << " (" << source_.dropped() << " dropped)";
        std::cout << ", " << people_ << (people_ == 1 ? " person; recognised:" : " people; recognised:");
        for (const std::string& name : recognised_)
            std::cout << (name == *recognised_.begin() ? " " : ", ") << name;
        std::cout << (recognised_.empty() ? " nobody" : "") << "; strangers: " << strangers_.size() << '\n';
        if (record_)
            std::cout << "recorded in " << options_.record << '\n';
    }

    static void printLine(const Json& json) { std::cout << written(json, -1) << std::endl; }

    std::vector<Mark> marksOf(const std::vector<VDFACEINFOEX>& faces) const {
        std::vector<Mark> marks;
        marks.reserve(faces.size());
        for (std::size_t i = 0; i < faces.size(); ++i) {
            const TrackedPerson tracked = events_.personOf(i);
            std::string words = tracked.searchId >= 0 ? personName(tracked.searchId)
                                : tracked.stranger    ? "stranger"
                                                      : "?";
            if (faces[i].searchFlag >= 1)
                words += " " + fixed(similarityOf(faces[i]), 2);
            marks.emplace_back(faces[i], faces[i].maskScore >= maskedFrom, std::vector<std::string>{words});
        }
        return marks;
    }

    /** What cannot be recorded is told at once and decides the exit code, but does not end watching. */
    void record(const std::function<void()>& step) {
        try {
            step();
        } catch (const CommandError& error) {
            tellUser(error.what());
            failure_ = error;
            record_.reset();
        }
    }

    const WatchOptions& options_;
    LiveGallery gallery_;
    FaceApi api_;
    Tracker tracker_;
    TrackEvents events_;
    VideoSource source_;
    std::optional<VideoRecord> record_;
    std::optional<CommandError> failure_;
    PreviewWindow window_{"veldan watch"};
    std::int64_t frames_ = 0;
    Moment last_;
    int people_ = 0;
    std::set<std::string> recognised_;
    std::set<int> strangers_;
};

} // namespace

void addWatchCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("watch", "Follow the faces of a camera or video and say who comes and goes");
    const auto options = std::make_shared<WatchOptions>();
    addGalleryOption(*command, options->gallery, "The gallery to search, as veldan enroll makes it");
    command
        ->add_option("SOURCE", options->source,
                     "Number of a camera, address of a stream (rtsp://..., http://...), or a video file")
        ->required()
        ->type_name("");
    command->add_flag("--json", options->json, "Print one JSON object a line instead of text");
    command->add_flag("--show", options->show, "Show the video with names in a window");
    command->add_option("--record", options->record, "Write the video with names: .avi or .mp4")->type_name("OUT");
    addSimilarityOption(*command, "--threshold", options->threshold, "Similarity of a bare face that is recognised");
    addSimilarityOption(*command, "--mask-threshold", options->maskThreshold, "The same for a face with a mask");
    command
        ->add_option("--quality", options->quality, "Quality that a face needs to be searched, half of it with a mask")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0, 100));
    command->add_flag("--liveness", options->liveness,
                      "Tell whether each person is live, by the median of the latest 31 frames");
    command->add_option("--grace", options->grace, "Frames for which somebody may be lost before having left")
        ->type_name("N")
        ->capture_default_str()
        ->check(CLI::Range(0, 100000));
    command->add_option("--frames", options->frames, "Stop after so many frames")
        ->type_name("N")
        ->check(CLI::PositiveNumber);
    command->footer(
        "Events, one a line: appeared, recognised, stranger, left; a summary at the end. Files are read frame by\n"
        "frame; of cameras and streams the latest frame is taken and older ones are dropped. Ctrl-C ends watching,\n"
        "with the summary and a complete recording. q or Esc closes the window of --show.\n"
        "\n" +
        std::string(similarityHelp) +
        "Here they are rounded up to whole percent, of which 1 is the least.\n"
        "\n"
        "Exit codes: 0 the video has ended, or Ctrl-C; 2 wrong usage; 3 a file does not exist; 4 the source cannot\n"
        "be opened, or the camera stopped; 5 the pictures are too small; 7 the recording could not be written; 8 the\n"
        "library did not start; 10 the gallery cannot be used.\n"
        "\n"
        "Examples:\n"
        "  veldan watch --gallery staff.db 0 --show\n"
        "  veldan watch --gallery staff.db door.mp4 --record named.avi\n"
        "  veldan watch --gallery staff.db rtsp://camera/stream --json | jq 'select(.event == \"recognised\")'\n");
    command->callback([options, &action] { action = [options] { return Watch(*options).run(); }; });
}

} // namespace veldan::cli
