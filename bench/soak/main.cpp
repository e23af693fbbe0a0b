// Runs frames through all that an application does with them and says whether memory stays where it is. See
// bench/README.md.

#include "scene.hpp"

#include <veldan/thresholds.h>
#include <veldan/veldan.hpp>

#include <CLI/CLI.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <unistd.h>

namespace {

volatile std::sig_atomic_t interrupted = 0;

struct Options {
    long frames = 1000000;
    long warmUp = 20000;
    int side = 100;
    int visitEvery = 200;
    double mostGrowth = 1024;
    std::string photos = VELDAN_PHOTO_DIR;
};

double residentKiB() {
    long all = 0;
    long resident = 0;
    std::ifstream("/proc/self/statm") >> all >> resident;
    return static_cast<double>(resident) * static_cast<double>(sysconf(_SC_PAGESIZE)) / 1024;
}

struct Work {
    long faces = 0;
    long judged = 0;
    long extracted = 0;
    long recognised = 0;
};

// A door camera's day in small: nobody most of the time, then one of three people walks by, two of whom are enrolled.
class Door {
public:
    explicit Door(const Options& options)
        : options_(options), heads_(portraitHeads(options.photos)),
          wall_(texture({options.side * 3, options.side * 3})) {
        for (std::size_t person = 0; person < 2; ++person) {
            const cv::Mat frame = visit(person, 0);
            std::vector<VDFACEINFOEX> faces = instance_.detect(view(frame));
            if (faces.empty())
                throw std::runtime_error("no face found to enrol; a larger --side may help");
            bare_.add({instance_.extractForEnrolment(view(frame), faces[0])});
            masked_.add({instance_.extractForEnrolment(view(frame), faces[0], veldan::Kind::Masked)});
        }
    }

    void run(long number) {
        const long inVisit = number % options_.visitEvery;
        const auto person = static_cast<std::size_t>(number / options_.visitEvery % 3);
        if (inVisit == 0)
            tracker_ = veldan::Tracker(instance_);
        const bool anybody = inVisit < visitLength;
        const cv::Mat frame = anybody ? visit(person, static_cast<int>(inVisit)) : empty(number);
        work_.faces += static_cast<long>(tracker_.next(view(frame)).size());
        if (tracker_.faces().empty())
            return;
        tracker_.judgeLiveness(view(frame));
        ++work_.judged;
        for (const VDFACEINFOEX& face :
             tracker_.search(view(frame), bare_, masked_, VELDAN_SAME_PERSON, VELDAN_SAME_PERSON_MASKED, 0))
            work_.recognised += face.searchFlag > 0 ? 1 : 0;
        if (inVisit == 0)
            lookOnce(frame);
    }

    const Work& work() const { return work_; }

private:
    static constexpr int visitLength = 6;

    static veldan::ImageView view(const cv::Mat& frame) { return {frame.data, frame.cols, frame.rows}; }

    cv::Mat empty(long number) const {
        const int x = static_cast<int>(number * 7 % (2 * options_.side));
        const int y = static_cast<int>(number * 11 % (2 * options_.side));
        return wall_(cv::Rect(x, y, options_.side, options_.side)).clone();
    }

    cv::Mat visit(std::size_t person, int step) const {
        cv::Mat frame = empty(0);
        const int side = options_.side * 8 / 10;
        cv::Mat head;
        cv::resize(heads_[person], head, {side, side}, 0, 0, cv::INTER_AREA);
        const int shift = std::min(options_.side / 20 + step, options_.side - side);
        head.copyTo(frame(cv::Rect(shift, shift, side, side)));
        return frame;
    }

    // What is not part of following a video: the same frame once more, by detection and the one-shot calls.
    void lookOnce(const cv::Mat& frame) {
        std::vector<VDFACEINFOEX> faces = instance_.detect(view(frame));
        instance_.judgeQuality(view(frame), faces);
        instance_.judgeMask(view(frame), faces);
        instance_.judgeNearInfraredLiveness(view(frame), faces);
        for (VDFACEINFOEX& face : faces) {
            const veldan::Template one = instance_.extract(view(frame), face, veldan::Kind::Masked);
            instance_.identify(masked_, one, 0.7F);
            instance_.match(one, one, veldan::Kind::Masked);
            ++work_.extracted;
        }
    }

    const Options& options_;
    std::vector<cv::Mat> heads_;
    cv::Mat wall_;
    veldan::Instance instance_{100};
    veldan::Tracker tracker_{instance_};
    veldan::Gallery bare_{veldan::Kind::Bare};
    veldan::Gallery masked_{veldan::Kind::Masked};
    Work work_;
};

// Slope of the straight line through the samples by least squares, KiB a frame.
double slopeOf(const std::vector<std::pair<double, double>>& samples) {
    double n = 0, sx = 0, sy = 0, sxx = 0, sxy = 0;
    for (const auto& [x, y] : samples) {
        n += 1;
        sx += x;
        sy += y;
        sxx += x * x;
        sxy += x * y;
    }
    const double spread = n * sxx - sx * sx;
    return spread > 0 ? (n * sxy - sx * sy) / spread : 0;
}

int soak(const Options& options) {
    Door door(options);
    std::vector<std::pair<double, double>> samples;
    const long sampleEvery = std::max(1L, options.frames / 200);
    double warm = 0;
    long number = 0;
    for (; number < options.frames && interrupted == 0; ++number) {
        if (number == options.warmUp)
            warm = residentKiB();
        if (number >= options.warmUp && number % sampleEvery == 0)
            samples.emplace_back(static_cast<double>(number), residentKiB());
        if (number > 0 && number % (10 * sampleEvery) == 0)
            std::fprintf(stderr, "%ld frames, %.0f KiB\n", number, residentKiB());
        door.run(number);
    }
    if (number <= options.warmUp)
        throw std::runtime_error("stopped before the warm-up was over");
    const double end = residentKiB();
    samples.emplace_back(static_cast<double>(number), end);
    const bool flat = end - warm <= options.mostGrowth;
    const Work& work = door.work();
    std::printf("%ld frames of %d x %d: %ld faces tracked, %ld frames judged and searched (%ld recognised), %ld faces "
                "looked at once\n",
                number, options.side, options.side, work.faces, work.judged, work.recognised, work.extracted);
    std::printf("RSS %.0f KiB after %ld frames, %.0f KiB at the end, slope %.2f KiB per 100,000 frames: %s\n", warm,
                options.warmUp, end, slopeOf(samples) * 1e5, flat ? "flat" : "GROWING");
    return flat ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    Options options;
    CLI::App app("Runs frames through detection, tracking, judgement, extraction and search, and watches the memory.\n"
                 "Exit code 1 when it grows after the warm-up. SIGINT ends the run early, with its figures.");
    app.add_option("--frames", options.frames)->check(CLI::PositiveNumber)->capture_default_str();
    app.add_option("--warm-up", options.warmUp, "Frames before memory is looked at")->capture_default_str();
    app.add_option("--side", options.side, "Width and height of a frame")
        ->check(CLI::Range(100, 2000))
        ->capture_default_str();
    app.add_option("--visit-every", options.visitEvery, "Somebody walks by once in so many frames")
        ->check(CLI::Range(2, 1000000))
        ->capture_default_str();
    app.add_option("--growth", options.mostGrowth, "KiB from which on memory counts as growing")->capture_default_str();
    app.add_option("--photos", options.photos, "Folder of the bundled photos")->capture_default_str();
    CLI11_PARSE(app, argc, argv);
    std::signal(SIGINT, [](int) { interrupted = 1; });
    cv::setNumThreads(1);
    try {
        return soak(options);
    } catch (const std::exception& error) {
        std::cerr << "veldan_soak: " << error.what() << '\n';
        return 2;
    }
}
