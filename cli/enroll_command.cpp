#include "commands.hpp"
#include "gallery/digest.hpp"
#include "gallery/enrolment.hpp"
#include "gallery/enrolment_list.hpp"
#include "gallery/store.hpp"
#include "gallery/template_file.hpp"
#include "photo/face_api.hpp"
#include "photo_run.hpp"
#include "report/messages.hpp"
#include "report/text.hpp"
#include "system/file_bytes.hpp"

#include <CLI/CLI.hpp>

#include <cstddef>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace veldan::cli {

namespace {

struct EnrollOptions {
    std::string gallery;
    std::string name;
    std::vector<std::string> photos;
    EnrolmentRules rules;
    PhotoOptions run; ///< for JSON and jobs
};

class Enrolment {
public:
    explicit Enrolment(const EnrollOptions& options)
        : options_(options), list_(enrolmentList(options.name, options.photos)), store_(opened(options.gallery)),
          photoOptions_(runOptions(options, list_)), photos_(photoOptions_), examined_(list_.photos.size()) {}

    ExitCode run() {
        if (!list_.remark.empty())
            tellUser(list_.remark);
        for (const EnrolmentList::Refusal& refusal : list_.refused)
            tellUser(refusal.path + ": not enrolled: " + refusal.reason);
        const ExitCode code =
            photos_.forEach({[this](PhotoTask& task) { examine(task); }, [this](PhotoTask& task) { store(task); }}, {},
                            [this](Json& document) { summarise(document); });
        return code == ExitCode::Success && !list_.refused.empty() ? list_.refused.front().code : code;
    }

private:
    static GalleryStore opened(const std::string& path) {
        GalleryStore store(path, GalleryStore::Access::Create);
        store.requireOwnNetworks();
        return store;
    }

    static PhotoOptions runOptions(const EnrollOptions& options, const EnrolmentList& list) {
        PhotoOptions run = options.run;
        run.photos.named = list.photos;
        return run;
    }

    /** Everything that takes long, on the thread of the task. */
    void examine(PhotoTask& task) {
        const std::string& person = list_.persons[task.index()];
        task.set("person", person);
        std::vector<unsigned char> bytes = task.read();
        const bool isTemplate = isTemplateFile(bytes);
        EnrolledPhoto photo;
        photo.source = task.path();
        if (isTemplate)
            bytes = takeTemplates(task, bytes, list_.maskTemplates[task.index()], photo);
        photo.digest = sha256(bytes);
        task.set("digest", photo.digest);
        if (holds(person, photo.digest))
            return;
        if (!isTemplate) {
            Photo picture = task.decode(bytes);
            takeFace(task.api(), picture, options_.rules, photo, [&](int quality) { task.set("quality", quality); });
        }
        photo.date = dateNow();
        examined_[task.index()] = std::make_unique<EnrolledPhoto>(std::move(photo));
    }

    bool holds(const std::string& person, const std::string& digest) {
        const std::lock_guard<std::mutex> lock(storeMutex_);
        return store_.holds(person, digest);
    }

    /** One photo after the other, in order. */
    void store(PhotoTask& task) {
        const std::string& person = list_.persons[task.index()];
        const std::unique_ptr<EnrolledPhoto> photo = std::move(examined_[task.index()]);
        const std::lock_guard<std::mutex> lock(storeMutex_);
        // Another process, or a photo before this one, may have enrolled the same photo meanwhile.
        const GalleryStore::Added added =
            photo == nullptr ? GalleryStore::Added::Unchanged : store_.add({{person, *photo}}).front();
        switch (added) {
        case GalleryStore::Added::New:
            ++enrolled_;
            task.set("result", "enrolled");
            task.tell(person + ": " + task.path() + " enrolled (quality " + std::to_string(photo->quality) + ")");
            break;
        case GalleryStore::Added::Repaired:
            ++repaired_;
            task.set("result", "repaired");
            task.tell(person + ": " + task.path() + " was enrolled before with a damaged template, which is repaired");
            break;
        case GalleryStore::Added::Unchanged:
            ++unchanged_;
            // The same whether the photo was looked at, beside the one before it, or not.
            for (const char* key : {"width", "height", "quality"})
                task.unset(key);
            task.set("result", "unchanged");
            task.tell(person + ": " + task.path() + " was enrolled before, nothing changed");
            return;
        }
        if (const std::vector<std::string> others = store_.othersWith(person, photo->digest); !others.empty())
            task.note("the same photo is enrolled as " + others.front() +
                      (others.size() > 1 ? " and " + std::to_string(others.size() - 1) + " more" : "") + ", too");
    }

    /** @return the bytes of both files, which the digest is of */
    static std::vector<unsigned char> takeTemplates(PhotoTask& task, std::vector<unsigned char> bytes,
                                                    const std::string& maskTemplate, EnrolledPhoto& photo) {
        const TemplateOfKind first = readTemplate(bytes);
        if (maskTemplate.empty())
            throw enrolmentRefusal(
                first.kind == Kind::Bare
                    ? "the template of a bare face; one for a mask has to go with it (veldan template --mask)"
                    : "a template for a mask; one of the bare face has to go with it (veldan template)");
        task.set("maskTemplate", maskTemplate);
        const std::vector<unsigned char> others = readFile(maskTemplate);
        photo.bare = first.bytes;
        photo.masked = readTemplate(others).bytes;
        bytes.insert(bytes.end(), others.begin(), others.end());
        return bytes;
    }

    void summarise(Json& document) {
        const std::size_t refused = photos_.done() - enrolled_ - repaired_ - unchanged_ + list_.refused.size();
        document["refusedFolders"] = Json::array();
        for (const EnrolmentList::Refusal& refusal : list_.refused)
            document["refusedFolders"].push_back({{"path", refusal.path}, {"message", refusal.reason}});
        document["summary"] = {
            {"enrolled", enrolled_}, {"repaired", repaired_}, {"unchanged", unchanged_}, {"refused", refused}};
        std::string text = std::to_string(enrolled_) + " enrolled, ";
        if (repaired_ > 0)
            text += std::to_string(repaired_) + " repaired, ";
        text += std::to_string(unchanged_) + " enrolled before, " + std::to_string(refused) + " refused; ";
        if (photos_.stopped()) {
            document["summary"]["left"] = list_.photos.size() - photos_.done();
            photos_.tell(text + counted(list_.photos.size() - photos_.done(), "photo") + " left");
            return;
        }
        std::size_t photos = 0;
        const std::vector<PersonSummary> persons = store_.persons();
        for (const PersonSummary& person : persons)
            photos += person.photos;
        document["summary"]["persons"] = persons.size();
        document["summary"]["photos"] = photos;
        photos_.tell(text + "the gallery holds " + counted(persons.size(), "person") + " with " +
                     counted(photos, "photo"));
    }

    const EnrollOptions& options_;
    EnrolmentList list_;
    GalleryStore store_;
    PhotoOptions photoOptions_;
    PhotoRun photos_;
    std::vector<std::unique_ptr<EnrolledPhoto>> examined_; // what is still to be stored
    std::mutex storeMutex_;
    std::size_t enrolled_ = 0;
    std::size_t repaired_ = 0;
    std::size_t unchanged_ = 0;
};

} // namespace

void addEnrollCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand("enroll", "Put persons into a gallery, from photos of their faces");
    const auto options = std::make_shared<EnrollOptions>();
    addGalleryOption(*command, options->gallery, "The gallery; it is created when there is none");
    command
        ->add_option("NAME", options->name,
                     "The person; or, without photos, a folder that holds a folder of photos for each person")
        ->required()
        ->type_name("");
    command->add_option("PHOTO", options->photos, "Photos of that person, or folders of them")->type_name("");
    command->add_option("--min-quality", options->rules.leastQuality, "Least quality of a face, 0 to 100")
        ->type_name("N")
        ->check(CLI::Range(0, 100))
        ->capture_default_str();
    command->add_flag("--largest", options->rules.largest, "Take the largest face of a photo that shows several");
    addJsonFlag(*command, options->run.json);
    addJobOptions(*command, options->run);
    command->footer(
        "A photo must show one bare face. It gives two templates: one to recognise the bare face, one to recognise it\n"
        "with a mask. More photos of a person are better than one. A photo that is enrolled already changes nothing,\n"
        "unless its template is damaged, which is then repaired. A line \"NAME: PHOTO enrolled\" is printed once the\n"
        "photo is safely in the gallery. A folder without folders is that of one person, named like the folder, who\n"
        "gets all of its photos. Files written by \"veldan template\" serve in place of photos, in pairs: one of the\n"
        "bare face and one made with --mask.\n"
        "\n"
        "Exit codes: 0 done; 2 wrong usage; 3 a photo does not exist; 4 a photo or folder cannot be read, or is not a\n"
        "picture; 5 a photo is too small; 8 the library did not start; 9 a photo was refused: no face, several faces,\n"
        "a mask, low quality; 11 unexpected failure. The first problem decides; the other photos are processed all\n"
        "the same. A gallery that cannot be written, as on a full disk (7), or not be used, as while another program\n"
        "changes it (10), ends everything at once and decides whatever was refused before.\n"
        "\n"
        "Examples:\n"
        "  veldan enroll --gallery staff.db \"Ada Lovelace\" ada1.jpg ada2.jpg\n"
        "  veldan enroll --gallery staff.db photos/       (photos/Ada Lovelace/1.jpg and so on)\n"
        "  veldan enroll --gallery staff.db \"Ada Lovelace\" ada.tpl ada-mask.tpl\n");
    command->callback([options, &action] { action = [options] { return Enrolment(*options).run(); }; });
}

} // namespace veldan::cli
