#include "commands.hpp"
#include "gallery/copy.hpp"
#include "gallery/exchange.hpp"
#include "gallery/feature_matrix.hpp"
#include "gallery/listing.hpp"
#include "gallery/location.hpp"
#include "gallery/photo_choice.hpp"
#include "gallery/store.hpp"
#ifdef VELDAN_WITH_POSTGRESQL
#include "gallery/postgres_schema.hpp"
#endif
#include "options.hpp"
#include "report/messages.hpp"
#include "report/printable.hpp"
#include "report/progress.hpp"
#include "report/text.hpp"
#include "system/file_bytes.hpp"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

namespace veldan::cli {

namespace {

using Access = GalleryStore::Access;

struct GalleryOptions {
    std::string gallery;
    std::vector<std::string> names;
    std::string photo;
    bool onePhoto = false; ///< whether --photo was given, with whatever value
    std::string person;
    std::string other;    ///< for that person
    std::string location; ///< of a gallery, as an argument
    std::string target;
    std::string file;
    std::string format = "json";
    std::string kind = "bare";
    std::optional<bool> progress;
    bool json = false;
};

std::string photoCount(std::size_t count) {
    return counted(count, "photo");
}

/** The beginning of every JSON document about a gallery. */
Json documentOf(const GalleryStore& store) {
    return {
        {"version", VELDAN_VERSION}, {"gallery", store.name()}, {"recognizers", recognizersJson(store.recognizers())}};
}

/** Managing a gallery needs no networks, so one of other networks is shown all the same. */
void noteOtherNetworks(const GalleryStore& store) {
    try {
        store.requireOwnNetworks();
    } catch (const CommandError& error) {
        tellUser(error.what());
    }
}

ExitCode listPersons(const GalleryOptions& options) {
    GalleryStore store(options.gallery, Access::Read);
    noteOtherNetworks(store);
    const std::vector<PersonSummary> persons = store.persons();
    Json document = documentOf(store);
    document["persons"] = Json::array();
    std::size_t photos = 0;
    for (const PersonSummary& person : persons) {
        photos += person.photos;
        if (options.json)
            document["persons"].push_back(personJson(person));
        else
            std::cout << printable(person.name) << ": " << photoCount(person.photos) << ", last enrolled "
                      << printable(person.lastDate) << '\n';
    }
    if (options.json)
        std::cout << written(document) << '\n';
    else
        std::cout << counted(persons.size(), "person") << ", " << photoCount(photos) << '\n';
    return ExitCode::Success;
}

ExitCode showPersons(const GalleryOptions& options) {
    GalleryStore store(options.gallery, Access::Read);
    noteOtherNetworks(store);
    std::vector<std::string> names = options.names;
    if (names.empty()) {
        for (const PersonSummary& person : store.persons())
            names.push_back(person.name);
    }
    ExitCode code = ExitCode::Success;
    Json document = documentOf(store);
    document["persons"] = Json::array();
    for (const std::string& name : names) {
        const std::vector<EnrolledPhoto> photos = store.photosOf(name);
        if (photos.empty()) {
            tellUser(store.name() + ": there is no \"" + name + "\"");
            code = ExitCode::Missing;
            continue;
        }
        if (!options.json)
            std::cout << printable(name) << ": " << photoCount(photos.size()) << '\n';
        Json entries = Json::array();
        for (const EnrolledPhoto& photo : photos) {
            const std::string damage = damageOf(photo);
            entries.push_back(photoJson(photo));
            if (!options.json)
                std::cout << "  " << printable(shortDigest(photo.digest)) << "  " << printable(photo.date)
                          << "  quality " << photo.quality << "  " << printable(photo.source)
                          << (damage.empty() ? "" : "  " + damage) << '\n';
        }
        document["persons"].push_back({{"name", name}, {"photos", std::move(entries)}});
    }
    if (options.json)
        std::cout << written(document) << '\n';
    return code;
}

ExitCode removePhoto(const GalleryOptions& options) {
    if (options.names.size() != 1)
        throw CommandError(ExitCode::Usage, "--photo: goes with one name");
    const std::string& name = options.names.front();
    GalleryStore store(options.gallery, Access::Change);
    const std::vector<EnrolledPhoto> photos = store.photosOf(name);
    if (photos.empty())
        throw CommandError(ExitCode::Missing, store.name() + ": there is no \"" + name + "\"");
    try {
        store.removePhoto(name, chosenPhoto(photos, options.photo));
    } catch (const FatalError&) {
        throw;
    } catch (const CommandError& error) {
        throw CommandError(error.code(), name + ": " + error.what());
    }
    std::cout << printable(name) << ": one photo removed, "
              << (photos.size() == 1 ? "it was the last one" : photoCount(photos.size() - 1) + " left") << '\n';
    return ExitCode::Success;
}

ExitCode removePersons(const GalleryOptions& options) {
    if (options.onePhoto)
        return removePhoto(options);
    GalleryStore store(options.gallery, Access::Change);
    ExitCode code = ExitCode::Success;
    for (const std::string& name : options.names) {
        if (const std::size_t photos = store.removePerson(name); photos > 0) {
            std::cout << printable(name) << ": removed, with " << photoCount(photos) << std::endl;
        } else {
            tellUser(store.name() + ": there is no \"" + name + "\"");
            code = ExitCode::Missing;
        }
    }
    return code;
}

ExitCode renamePerson(const GalleryOptions& options) {
    GalleryStore(options.gallery, Access::Change).renamePerson(options.person, options.other);
    std::cout << printable(options.person) << ": is " << printable(options.other) << " now\n";
    return ExitCode::Success;
}

ExitCode mergePersons(const GalleryOptions& options) {
    const std::size_t photos = GalleryStore(options.gallery, Access::Change).mergePerson(options.person, options.other);
    std::cout << printable(options.person) << ": is part of " << printable(options.other) << " now, who has "
              << photoCount(photos) << '\n';
    return ExitCode::Success;
}

ExitCode initGallery(const GalleryOptions& options) {
    const std::string shown = shownLocation(options.location);
    if (!isServer(options.location))
        throw CommandError(ExitCode::Usage, shown +
                                                ": not a database of a server; a file needs no preparation, \"veldan "
                                                "enroll\" creates it");
#ifdef VELDAN_WITH_POSTGRESQL
    const InitialisedDatabase done = initDatabase(options.location);
    if (options.json)
        std::cout << written({{"version", VELDAN_VERSION},
                              {"gallery", shown},
                              {"schema", {{"before", done.before}, {"now", done.now}}},
                              {"roles", {{"reader", readerRole}, {"writer", writerRole}}},
                              {"remark", done.remark}})
                  << '\n';
    else
        std::cout << printable(shown)
                  << (done.before == 0          ? ": is a gallery now\n"
                      : done.before == done.now ? ": is a gallery already\n"
                                                : ": brought up to date\n");
    if (!done.remark.empty())
        tellUser(shown + ": " + done.remark);
#else
    GalleryStore(options.location, Access::Read); // says why not
#endif
    return ExitCode::Success;
}

ExitCode copyGallery(const GalleryOptions& options) {
    std::error_code error;
    if (options.location == options.target || std::filesystem::equivalent(options.location, options.target, error))
        throw CommandError(ExitCode::Usage, "a gallery cannot be copied into itself");
    GalleryStore from(options.location, Access::Read);
    noteOtherNetworks(from);
    GalleryStore to(options.target, Access::Create);
    Progress progress(from.size().photos, options.progress);
    const CopiedGallery copied = kit::copyGallery(from, to, [&](std::size_t photos) {
        for (std::size_t i = 0; i < photos; ++i)
            progress.done(to.name());
    });
    progress.end();
    if (options.json) {
        Json refused = Json::array();
        for (const Unusable& photo : copied.unusable)
            refused.push_back({{"photo", photo.what}, {"message", photo.reason}});
        std::cout << written({{"version", VELDAN_VERSION},
                              {"from", from.name()},
                              {"to", to.name()},
                              {"summary",
                               {{"copied", copied.added},
                                {"repaired", copied.repaired},
                                {"unchanged", copied.unchanged},
                                {"refused", copied.unusable.size()}}},
                              {"refused", refused}})
                  << '\n';
    } else {
        std::cout << photoCount(copied.added) << " copied, ";
        if (copied.repaired > 0)
            std::cout << copied.repaired << " repaired, ";
        std::cout << copied.unchanged << " there before, " << copied.unusable.size() << " refused\n";
    }
    for (const Unusable& photo : copied.unusable)
        tellUser(from.name() + ": not copied: " + photo.what + ": " + photo.reason);
    return copied.unusable.empty() ? ExitCode::Success : ExitCode::Gallery;
}

ExitCode exportFeatures(const GalleryOptions& options) {
    if (options.file == "-")
        throw CommandError(ExitCode::Usage, "--format npy: writes two files, so FILE is a name");
    std::error_code error;
    if (std::filesystem::equivalent(options.file, options.gallery, error))
        throw CommandError(ExitCode::NotWritten, options.file + ": this would overwrite the gallery");
    GalleryStore store(options.gallery, Access::Read);
    const WrittenFeatures written =
        writeFeatures(store, options.kind == "masked" ? Kind::Masked : Kind::Bare, options.file);
    std::cout << printable(options.file) << ": features of " << photoCount(written.rows) << ", whose they are is in "
              << printable(written.rowFile) << '\n';
    for (const Unusable& photo : written.unusable)
        tellUser(store.name() + ": not exported: " + photo.what + ": " + photo.reason);
    return written.unusable.empty() ? ExitCode::Success : ExitCode::Gallery;
}

ExitCode exportGallery(const GalleryOptions& options) {
    if (options.format == "npy")
        return exportFeatures(options);
    GalleryStore store(options.gallery, Access::Read);
    std::vector<Unusable> unusable;
    const Json document = exportedGallery(store, unusable);
    if (options.file == "-") {
        std::cout << written(document, -1) << '\n';
    } else {
        std::error_code error;
        if (std::filesystem::equivalent(options.file, options.gallery, error))
            throw CommandError(ExitCode::NotWritten, options.file + ": this would overwrite the gallery");
        const std::string text = written(document, 1) + "\n";
        try {
            writeFile(options.file, reinterpret_cast<const unsigned char*>(text.data()), text.size(), forOwner);
        } catch (const CommandError& failure) {
            throw CommandError(failure.code(), options.file + ": " + failure.what());
        }
        std::size_t photos = 0;
        for (const Json& person : document["persons"])
            photos += person["photos"].size();
        std::cout << printable(options.file) << ": " << counted(document["persons"].size(), "person") << ", "
                  << photoCount(photos) << '\n';
    }
    for (const Unusable& photo : unusable)
        tellUser(store.name() + ": not exported: " + photo.what + ": " + photo.reason);
    return unusable.empty() ? ExitCode::Success : ExitCode::Gallery;
}

ExportedGallery readExportFile(const std::string& path) {
    try {
        return readExport(readFile(path == "-" ? "/dev/stdin" : path));
    } catch (const CommandError& failure) {
        throw CommandError(failure.code(), path + ": " + failure.what());
    }
}

ExitCode importGallery(const GalleryOptions& options) {
    const ExportedGallery exported = readExportFile(options.file);
    if (exported.recognizers != Recognizers::embedded())
        throw CommandError(ExitCode::Gallery,
                           options.file +
                               ": exported with other networks, whose templates cannot be compared with "
                               "those of this version. Enrol again from the photos: veldan enroll --gallery " +
                               shownLocation(options.gallery) + " NAME PHOTO...");
    GalleryStore store(options.gallery, Access::Create);
    store.requireOwnNetworks();
    const std::vector<GalleryStore::Added> added = store.add(exported.photos);
    const auto count = [&](GalleryStore::Added what) { return std::count(added.begin(), added.end(), what); };
    std::cout << photoCount(static_cast<std::size_t>(count(GalleryStore::Added::New))) << " imported, "
              << count(GalleryStore::Added::Unchanged) << " enrolled before, ";
    if (const auto repaired = count(GalleryStore::Added::Repaired); repaired > 0)
        std::cout << repaired << " repaired, ";
    std::cout << exported.unusable.size() << " refused\n";
    for (const Unusable& photo : exported.unusable)
        tellUser(options.file + ": not imported: " + photo.what + ": " + photo.reason);
    return exported.unusable.empty() ? ExitCode::Success : ExitCode::Unsuitable;
}

} // namespace

void addGalleryCommand(CLI::App& app, Action& action) {
    CLI::App* command = app.add_subcommand(
        "gallery", "List, show, remove, rename, merge, copy, export and import the persons of a gallery");
    command->require_subcommand(1);
    // Before the subcommands, which take it over.
    command->footer(
        "Exit codes: 0 done; 2 wrong usage; 3 no such gallery, file or person; 4 a file cannot be read, or\n"
        "is not an exported gallery; 7 a file cannot be written; 9 what was to be imported is damaged in\n"
        "part; 10 the gallery cannot be used, or is damaged in part.\n"
        "\n"
        "Examples:\n"
        "  veldan gallery list --gallery staff.db\n"
        "  veldan gallery show --gallery staff.db \"Ada Lovelace\"\n"
        "  veldan gallery remove --gallery staff.db \"Ada Lovelace\" --photo ada1.jpg\n"
        "  veldan gallery rename --gallery staff.db \"Ada Byron\" \"Ada Lovelace\"\n"
        "  veldan gallery merge --gallery staff.db \"A. Lovelace\" \"Ada Lovelace\"\n"
        "  veldan gallery export --gallery staff.db staff.json\n"
        "  veldan gallery import --gallery other.db staff.json\n"
        "  veldan gallery init postgresql://host/people\n"
        "  veldan gallery copy staff.db postgresql://host/people\n"
        "  veldan gallery export --gallery staff.db --format npy staff.npy\n"
        "  veldan gallery export --gallery staff.db - | ssh host veldan gallery import --gallery staff.db -\n");
    const auto options = std::make_shared<GalleryOptions>();
    const auto add = [&](const char* name, const char* help, ExitCode (*run)(const GalleryOptions&)) {
        CLI::App* subcommand = command->add_subcommand(name, help);
        addGalleryOption(*subcommand, options->gallery);
        subcommand->callback([options, &action, run] { action = [options, run] { return run(*options); }; });
        return subcommand;
    };
    CLI::App* init = command->add_subcommand("init", "Make a database of a PostgreSQL server a gallery");
    init->add_option("LOCATION", options->location, "postgresql://HOST/DATABASE or service=NAME")
        ->required()
        ->type_name("");
    addJsonFlag(*init, options->json);
    init->callback([options, &action] { action = [options] { return initGallery(*options); }; });

    addJsonFlag(*add("list", "The persons, with the number of their photos", listPersons), options->json);

    CLI::App* show = add("show", "The photos of persons: file name, digest, date and quality", showPersons);
    show->add_option("NAME", options->names, "Persons; all when there is none")->type_name("");
    addJsonFlag(*show, options->json);

    CLI::App* remove = add("remove", "Remove persons, or a photo of a person", removePersons);
    remove->add_option("NAME", options->names, "Persons")->required()->type_name("");
    const CLI::Option* photo =
        remove
            ->add_option("--photo", options->photo,
                         "Remove this photo only: its file name, or at least four digits that its digest begins with")
            ->type_name("PHOTO");
    remove->callback([options, photo, &action] {
        options->onePhoto = photo->count() > 0; // an empty value must not remove the person
        action = [options] { return removePersons(*options); };
    });

    const auto addTwoPersons = [&](const char* name, const char* help, ExitCode (*run)(const GalleryOptions&),
                                   const char* second, const char* secondHelp) {
        CLI::App* subcommand = add(name, help, run);
        subcommand->add_option("NAME", options->person, "The person")->required()->type_name("");
        subcommand->add_option(second, options->other, secondHelp)->required()->type_name("");
    };
    addTwoPersons("rename", "Give a person another name", renamePerson, "NEW", "A name that nobody has");
    addTwoPersons("merge", "Make two persons one", mergePersons, "INTO",
                  "Another person, who gets the photos; the name stays");

    CLI::App* copying = command->add_subcommand(
        "copy", "Add the persons of a gallery to another one: from a file to a server, or back");
    copying->add_option("FROM", options->location, "The gallery: a file, or postgresql://HOST/DATABASE")
        ->required()
        ->type_name("");
    copying->add_option("TO", options->target, "The other one; a file is created when there is none")
        ->required()
        ->type_name("");
    copying->add_flag_function(
        "--progress,!--no-progress", [options](std::int64_t count) { options->progress = count > 0; },
        "Show how far the work has come; by default when standard error is a terminal");
    addJsonFlag(*copying, options->json);
    copying->callback([options, &action] { action = [options] { return copyGallery(*options); }; });

    CLI::App* exporting = add("export", "Write all persons to a file", exportGallery);
    exporting
        ->add_option("--format", options->format,
                     "json: all of them, for import; npy: the features as a matrix for NumPy and search libraries, "
                     "and beside it a .jsonl that says whose they are")
        ->type_name("FORMAT")
        ->check(CLI::IsMember({"json", "npy"}))
        ->capture_default_str();
    exporting->add_option("--kind", options->kind, "Which features are in the matrix: bare or masked")
        ->type_name("KIND")
        ->check(CLI::IsMember({"bare", "masked"}))
        ->capture_default_str();
    exporting->add_option("FILE", options->file, "The file; - is the standard output")->required()->type_name("");

    CLI::App* importing =
        add("import", "Add the persons of an exported file; makes a gallery when there is none", importGallery);
    importing->add_option("FILE", options->file, "The file; - is the standard input")->required()->type_name("");
#ifdef VELDAN_WITH_POSTGRESQL
    addShardCommand(*command, action);
#endif
}

} // namespace veldan::cli
