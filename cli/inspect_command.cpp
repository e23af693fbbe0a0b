#include "commands.hpp"
#include "photo/annotate.hpp"
#include "photo/face_api.hpp"
#include "photo/face_text.hpp"
#include "photo/judge.hpp"
#include "photo/photo_entry.hpp"
#include "photo_run.hpp"

#include <CLI/CLI.hpp>

#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

namespace veldan::cli {

namespace {

struct InspectOptions {
    PhotoOptions photos;
    std::string aligned;
    bool nearInfrared = false;
};

/** What the answers about liveness are worth, as docs/models.md measures it. */
const char* worthText(Light light) {
    return light == Light::NearInfrared
               ? "live, near-infrared: learnt from drawn pictures alone, so nobody knows how often it is right; "
                 "measure it with veldan calibrate"
               : "live: from one photo, of a camera it has not seen, about 16 of 100 answers are wrong; of living "
                 "people with a quality below 60, half; see docs/liveness.md";
}

Photo drawn(Photo& photo, const std::vector<JudgedFace>& faces) {
    std::vector<Mark> marks;
    marks.reserve(faces.size());
    for (const JudgedFace& face : faces)
        marks.emplace_back(face.record, face.masked, judgementWords(face));
    return annotatedCopy(photo, std::move(marks));
}

class Inspection {
public:
    explicit Inspection(const InspectOptions& options)
        : options_(options), photos_(options.photos), crops_(options.aligned) {
        if (crops_.wanted())
            for (const PhotoInput& photo : photos_.photos())
                stems_.push_back(crops_.nextStem(photo.path));
    }

    ExitCode run() {
        return photos_.forEach({[this](PhotoTask& task) { process(task); }, {}}, {}, [this](Json&) {
            for (const Light light : judged_)
                photos_.tell(worthText(light));
        });
    }

private:
    void process(PhotoTask& task) {
        Photo photo = task.load();
        const Light light = options_.nearInfrared && isGrey(photo) ? Light::NearInfrared : Light::Visible;
        const FaceApi::Detection detection = task.api().detect(photo);
        const auto start = std::chrono::steady_clock::now();
        const std::vector<JudgedFace> faces = judge(task.api().instance(), photo, detection.faces, light);
        const std::chrono::duration<double, std::milli> elapsed = std::chrono::steady_clock::now() - start;

        task.addFaceCount(photo, faces.size(), detection.milliseconds + elapsed.count());
        if (!faces.empty()) {
            const std::lock_guard<std::mutex> lock(judgedMutex_);
            judged_.insert(light);
        }
        for (const JudgedFace& face : faces)
            task.addFace(judgementJson(face, light),
                         detectionText(face.record) + "\n      " + judgementText(face, light));
        if (crops_.wanted())
            saveCrops(task, photo, faces);
        task.draw([&] { return drawn(photo, faces); });
        refuseCrowd(faces.size());
    }

    void saveCrops(PhotoTask& task, const Photo& photo, const std::vector<JudgedFace>& faces) const {
        const std::string& stem = stems_[task.index()];
        for (std::size_t i = 0; i < faces.size(); ++i) {
            task.saveCrop(i, "five", alignedByFive(photo, faces[i].record), crops_.pathFor(stem, i + 1, ""));
            if (faces[i].masked)
                task.saveCrop(i, "two", alignedByTwo(photo, faces[i].record), crops_.pathFor(stem, i + 1, "-mask"));
        }
    }

    const InspectOptions& options_;
    PhotoRun photos_;
    CropTarget crops_;
    std::vector<std::string> stems_; // of the crops of each photo
    std::mutex judgedMutex_;
    std::set<Light> judged_;
};

} // namespace

void addInspectCommand(CLI::App& app, Action& action) {
    CLI::App* command =
        app.add_subcommand("inspect", "Find faces and judge them: quality, sharp, frontal, mask, liveness");
    const auto options = std::make_shared<InspectOptions>();
    addPhotoOptions(*command, options->photos, "Draw boxes, points and judgements");
    command->add_option("--aligned", options->aligned, "Write the aligned 112 x 112 crops of each face into a folder")
        ->type_name("DIR");
    command->add_flag("--nir", options->nearInfrared, "Judge the liveness of grey photos as near-infrared frames");
    command->footer(
        std::string(
            "quality    0 to 100, higher is better\n"
            "sharp      whether the face's edges are crisp\n"
            "frontal    whether the face looks at the camera, as its points lie\n"
            "masked     whether the face wears a mask: a score of 41 and more of 100\n"
            "live       whether a person was in front of the camera and not a picture of one: a score of 50 and more\n"
            "           (one photo is weak evidence: veldan calibrate liveness measures it on yours)\n"
            "The picture of --draw is larger than a small photo, so that the words have room. --aligned names\n"
            "its files PHOTO-face1.png (by five points), PHOTO-face1-mask.png (masked faces, by two points).\n"
            "\n") +
        exitCodeHelp() +
        "\n"
        "Examples:\n"
        "  veldan inspect photo.jpg\n"
        "  veldan inspect photo.jpg --draw judged.jpg\n"
        "  veldan inspect --draw judged/ --aligned crops/ *.jpg\n"
        "  veldan inspect -r holidays/ --jobs auto --json > judged.json\n"
        "  veldan inspect --nir frame.png\n"
        "  veldan inspect *.jpg --json | jq '.photos[] | {photo, masked: [.faces[]?.masked]}'\n");
    command->callback([options, &action] { action = [options] { return Inspection(*options).run(); }; });
}

} // namespace veldan::cli
