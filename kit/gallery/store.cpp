#include "gallery/store.hpp"

#include "gallery/digest.hpp"
#include "report/exit_codes.hpp"
#include "report/printable.hpp"
#include "system/file_bytes.hpp"

#include <veldan/model_store.hpp>
#include <veldan/template.hpp>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace veldan::kit {

namespace {

// "VdGa", in the file's header: tells a gallery from the files of other programs.
constexpr std::int64_t applicationId = 0x56644761;
constexpr std::int64_t schemaVersion = 1;

constexpr int lockPatience = 5000; // milliseconds

constexpr std::size_t longestName = 200; // bytes

constexpr const char* schema = R"(
    CREATE TABLE recognizer (kind TEXT PRIMARY KEY, digest TEXT NOT NULL) STRICT, WITHOUT ROWID;
    CREATE TABLE person (id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE) STRICT;
    CREATE TABLE photo (
        id INTEGER PRIMARY KEY,
        person INTEGER NOT NULL REFERENCES person ON DELETE CASCADE,
        source TEXT NOT NULL,
        digest TEXT NOT NULL,
        date TEXT NOT NULL,
        quality INTEGER NOT NULL,
        bare BLOB NOT NULL,
        masked BLOB NOT NULL,
        UNIQUE (person, digest)
    ) STRICT;
    CREATE INDEX photo_by_digest ON photo (digest);
)";

using Accessor = int (*)(unsigned char*);

std::string digestOf(int length, Accessor data) {
    std::vector<unsigned char> bytes(static_cast<std::size_t>(std::max(length, 0)));
    if (bytes.empty() || data(bytes.data()) != 0)
        throw CommandError(ExitCode::Library, "an embedded network is damaged");
    return sha256(bytes);
}

CommandError notAGallery(const std::string& path) {
    return {ExitCode::Gallery, path + ": not a gallery; it was left as it is"};
}

/** The 32-bit number that the header of an SQLite file has for the application, or -1 for other files. */
std::int64_t applicationOf(const std::string& path) {
    constexpr std::string_view magic("SQLite format 3\0", 16);
    constexpr std::size_t position = 68;
    std::array<char, position + 4> header{};
    std::ifstream file(path, std::ios::binary);
    if (!file)
        throw CommandError(ExitCode::Unreadable, path + ": cannot be opened: " + std::strerror(errno));
    if (!file.read(header.data(), header.size()) || std::string_view(header.data(), magic.size()) != magic)
        return -1;
    std::int64_t id = 0;
    for (std::size_t i = 0; i < 4; ++i)
        id = id * 256 + static_cast<unsigned char>(header[position + i]);
    return id;
}

/** Makes sure that SQLite may open the file: opening alone can change it, by what a journal beside it says. */
void requireGallery(const std::string& path, const struct stat& status) {
    if (!S_ISREG(status.st_mode))
        throw CommandError(ExitCode::Gallery, path + ": not a file");
    // A process that was killed while it created a gallery leaves an empty file, or a beginning with its journal.
    const bool unfinished = status.st_size == 0 || ::access((path + "-journal").c_str(), F_OK) == 0;
    const std::int64_t application = applicationOf(path);
    if (application != applicationId && !(application < 0 && unfinished))
        throw notAGallery(path);
}

void prepareChanges(Database& database) {
    // Beyond a crash of the process, a commit survives a power failure, and what is removed is overwritten.
    database.run("PRAGMA synchronous = EXTRA; PRAGMA secure_delete = ON; PRAGMA foreign_keys = ON");
}

void createSchema(Database& database) {
    Transaction transaction(database);
    // Another process may have been faster.
    if (database.number("PRAGMA application_id") == applicationId)
        return;
    database.run(schema);
    const Recognizers own = Recognizers::embedded();
    const std::pair<const char*, std::string> rows[] = {{"bare", own.bare}, {"masked", own.masked}};
    for (const auto& [kind, digest] : rows)
        Statement(database, "INSERT INTO recognizer VALUES (?, ?)").bind(kind).bind(digest).step();
    database.run(("PRAGMA application_id = " + std::to_string(applicationId)).c_str());
    database.run(("PRAGMA user_version = " + std::to_string(schemaVersion)).c_str());
    transaction.commit();
}

std::string recognizerOf(Database& database, const char* kind) {
    Statement statement(database, "SELECT digest FROM recognizer WHERE kind = ?");
    return statement.bind(kind).step() ? statement.text(0) : std::string();
}

/** Of a row that begins with source, digest, date, quality, bare, masked. */
EnrolledPhoto photoOf(Statement& row) {
    EnrolledPhoto photo{row.text(0), row.text(1), row.text(2), static_cast<int>(row.number(3)), {}, {}};
    // A template of another size is left at zeros, which damageOf() finds.
    row.bytes(4, photo.bare.data(), photo.bare.size());
    row.bytes(5, photo.masked.data(), photo.masked.size());
    return photo;
}

std::string flawText(const char* which, const Template& one, Kind kind) {
    const std::string flaw = flawOf(one, kind);
    return flaw.empty() ? flaw : std::string("the template ") + which + " " + flaw;
}

CommandError nobody(const std::string& path, const std::string& person) {
    return {ExitCode::Missing, path + ": there is no \"" + person + "\""};
}

} // namespace

Recognizers Recognizers::embedded() {
    return {digestOf(length_VELDAN_V5_0_0_FaceRecog_Model(), data_VELDAN_V5_0_0_FaceRecog_Model),
            digestOf(length_VELDAN_V5_2_0_FaceMaskRecog_Model(), data_VELDAN_V5_2_0_FaceMaskRecog_Model)};
}

/** A file beside the place of a new gallery, under a name that nobody looks for; removed unless it is moved there. */
class GalleryStore::NewFile {
public:
    explicit NewFile(const std::string& path) : target_(withLinksFollowed(path)) {
        file_ =
            target_.parent_path() / ("." + target_.filename().string() + "-" + std::to_string(::getpid()) + "-partial");
        remove(); // left behind by a process that was killed
        const FileDescriptor created(::open(file_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, forOwner));
        if (created.get() < 0)
            throw CommandError(ExitCode::NotWritten, path + ": cannot be created: " + reasonOf(errno));
    }
    ~NewFile() {
        if (!moved_)
            remove();
    }
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    const std::filesystem::path& path() const { return file_; }

    /** @return false when there is such a file by now */
    bool moveToTarget() {
        int failed = ::renameat2(AT_FDCWD, file_.c_str(), AT_FDCWD, target_.c_str(), RENAME_NOREPLACE);
        // Some file systems know links but not this kind of renaming.
        if (failed != 0 && errno == EINVAL && (failed = ::link(file_.c_str(), target_.c_str())) == 0)
            ::unlink(file_.c_str());
        if (failed != 0 && errno == EEXIST)
            return false;
        if (failed != 0)
            throw FatalError(ExitCode::NotWritten, target_.string() + ": cannot be created: " + reasonOf(errno));
        moved_ = true;
        // The name has to survive a power failure as well.
        const std::filesystem::path folder = target_.has_parent_path() ? target_.parent_path() : ".";
        const FileDescriptor parent(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (parent.get() >= 0)
            ::fsync(parent.get());
        return true;
    }

private:
    void remove() {
        ::unlink(file_.c_str());
        ::unlink((file_.string() + "-journal").c_str());
    }

    std::filesystem::path target_;
    std::filesystem::path file_;
    bool moved_ = false;
};

void GalleryStore::NewFileDeleter::operator()(NewFile* file) const {
    delete file;
}

GalleryStore::NewFilePointer GalleryStore::prepared(const std::string& path, Access access) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        requireGallery(path, status);
        return nullptr;
    }
    if (access == Access::Read)
        throw CommandError(ExitCode::Missing, path + ": no such gallery");
    return NewFilePointer(new NewFile(path));
}

GalleryStore::GalleryStore(const std::string& path, Access access)
    : GalleryStore(path, access, prepared(path, access)) {}

GalleryStore::GalleryStore(const std::string& path, Access access, NewFilePointer newFile)
    : path_(path), newFile_(std::move(newFile)),
      database_(newFile_ == nullptr ? path : newFile_->path().string(), path, lockPatience) {
    if (access == Access::Change) {
        if (database_.readOnly())
            throw CommandError(ExitCode::NotWritten, path + ": cannot be written: the file is read-only");
        prepareChanges(database_);
    }
    if (database_.number("PRAGMA application_id") != applicationId) {
        if (database_.number("SELECT count(*) FROM sqlite_schema") > 0)
            throw notAGallery(path);
        if (access == Access::Read)
            throw CommandError(ExitCode::Gallery, path + ": empty, nobody was ever enrolled in it");
        createSchema(database_);
    }
    if (access == Access::Read)
        database_.run("PRAGMA query_only = ON");
    const std::int64_t version = database_.number("PRAGMA user_version");
    if (version > schemaVersion)
        throw CommandError(ExitCode::Gallery, path + ": made by a newer version of veldan (gallery format " +
                                                  std::to_string(version) + ", this version knows " +
                                                  std::to_string(schemaVersion) + "); use that one");
    if (const std::string state = database_.text("PRAGMA quick_check(1)"); state != "ok")
        throw CommandError(ExitCode::Gallery, path + ": the gallery is damaged: " + state);
    recognizers_ = {recognizerOf(database_, "bare"), recognizerOf(database_, "masked")};
}

void GalleryStore::requireOwnNetworks() const {
    if (recognizers_ == Recognizers::embedded())
        return;
    throw CommandError(ExitCode::Gallery,
                       path_ +
                           ": made with other networks, whose templates cannot be compared with those of this version. "
                           "Enrol again from the photos, into a new gallery: veldan enroll --gallery NEW.db NAME "
                           "PHOTO... (\"veldan gallery show --gallery " +
                           path_ + "\" names persons and photos)");
}

SearchableGallery GalleryStore::searchable() {
    requireOwnNetworks();
    SearchableGallery gallery;
    Statement rows(database_, "SELECT source, digest, date, quality, bare, masked, name, person.id FROM person "
                              "JOIN photo ON photo.person = person.id ORDER BY person.id, photo.id");
    std::int64_t person = 0;
    std::string name;
    std::vector<Template> bare;
    std::vector<Template> masked;
    const auto finish = [&] {
        if (bare.empty())
            return;
        gallery.names.push_back(name);
        gallery.bare.add(bare);
        gallery.masked.add(masked);
        bare.clear();
        masked.clear();
    };
    while (rows.step()) {
        if (rows.number(7) != person) {
            finish();
            person = rows.number(7);
            name = rows.text(6);
        }
        const EnrolledPhoto photo = photoOf(rows);
        if (const std::string damage = damageOf(photo); !damage.empty()) {
            std::string line = name;
            gallery.damaged.push_back(line.append(": ").append(photo.source).append(": ").append(damage));
        } else {
            bare.push_back(photo.bare);
            masked.push_back(photo.masked);
            gallery.origins.push_back({photo.source, photo.digest});
        }
    }
    finish();
    return gallery;
}

std::vector<PersonSummary> GalleryStore::persons() {
    Statement rows(database_, "SELECT name, count(*), min(date), max(date) FROM person "
                              "JOIN photo ON photo.person = person.id GROUP BY person.id ORDER BY name");
    std::vector<PersonSummary> persons;
    while (rows.step())
        persons.push_back({rows.text(0), static_cast<std::size_t>(rows.number(1)), rows.text(2), rows.text(3)});
    return persons;
}

std::vector<EnrolledPhoto> GalleryStore::photosOf(const std::string& person) {
    Statement rows(database_, "SELECT source, digest, date, quality, bare, masked FROM photo "
                              "JOIN person ON photo.person = person.id WHERE name = ? ORDER BY photo.id");
    rows.bind(person);
    std::vector<EnrolledPhoto> photos;
    while (rows.step())
        photos.push_back(photoOf(rows));
    return photos;
}

bool GalleryStore::holds(const std::string& person, const std::string& digest) {
    Statement row(database_, "SELECT source, digest, date, quality, bare, masked FROM photo WHERE digest = ? "
                             "AND person = (SELECT id FROM person WHERE name = ?)");
    return row.bind(digest).bind(person).step() && damageOf(photoOf(row)).empty();
}

std::vector<std::string> GalleryStore::othersWith(const std::string& person, const std::string& digest) {
    Statement rows(database_, "SELECT name FROM person JOIN photo ON photo.person = person.id "
                              "WHERE digest = ? AND name <> ? ORDER BY name");
    rows.bind(digest).bind(person);
    std::vector<std::string> names;
    while (rows.step())
        names.push_back(rows.text(0));
    return names;
}

GalleryStore::Added GalleryStore::add(const std::string& person, const EnrolledPhoto& photo) {
    Statement(database_, "INSERT INTO person (name) VALUES (?) ON CONFLICT DO NOTHING").bind(person).step();
    Statement insert(database_, "INSERT INTO photo (person, source, digest, date, quality, bare, masked) "
                                "SELECT id, ?, ?, ?, ?, ?, ? FROM person WHERE name = ? ON CONFLICT DO NOTHING");
    insert.bind(photo.source).bind(photo.digest).bind(photo.date).bind(photo.quality);
    insert.bind(photo.bare.data(), photo.bare.size()).bind(photo.masked.data(), photo.masked.size()).bind(person);
    insert.step();
    if (database_.changes() > 0)
        return Added::New;
    if (holds(person, photo.digest) || !damageOf(photo).empty())
        return Added::Unchanged;
    Statement update(database_, "UPDATE photo SET quality = ?, bare = ?, masked = ? WHERE digest = ? "
                                "AND person = (SELECT id FROM person WHERE name = ?)");
    update.bind(photo.quality).bind(photo.bare.data(), photo.bare.size());
    update.bind(photo.masked.data(), photo.masked.size()).bind(photo.digest).bind(person).step();
    return Added::Repaired;
}

std::vector<GalleryStore::Added> GalleryStore::add(const std::vector<PersonPhoto>& photos) {
    std::vector<Added> added;
    added.reserve(photos.size());
    Transaction transaction(database_);
    for (const PersonPhoto& photo : photos)
        added.push_back(add(photo.person, photo.photo));
    transaction.commit();
    if (newFile_ == nullptr || photos.empty() || publish())
        return added;
    *this = GalleryStore(path_, Access::Change);
    requireOwnNetworks();
    return add(photos);
}

/** Gives a new gallery its name. @return false when another process was faster with a gallery of that name */
bool GalleryStore::publish() {
    if (!newFile_->moveToTarget())
        return false;
    newFile_.reset();
    database_ = Database(path_, path_, lockPatience); // which knows its journal by that name
    prepareChanges(database_);
    return true;
}

void GalleryStore::renamePerson(const std::string& person, const std::string& name) {
    if (const std::string refusal = refusalOfName(name); !refusal.empty())
        throw CommandError(ExitCode::Usage, "\"" + name + "\": " + refusal);
    Transaction transaction(database_);
    if (photosOf(person).empty())
        throw nobody(path_, person);
    if (person != name && !photosOf(name).empty())
        throw CommandError(ExitCode::Usage, path_ + ": there is a \"" + name +
                                                "\" already; \"veldan gallery merge\" makes one person of both");
    Statement(database_, "UPDATE person SET name = ? WHERE name = ?").bind(name).bind(person).step();
    transaction.commit();
}

std::size_t GalleryStore::mergePerson(const std::string& person, const std::string& into) {
    if (person == into)
        throw CommandError(ExitCode::Usage, "\"" + person + "\" cannot be merged into itself");
    Transaction transaction(database_);
    const std::vector<EnrolledPhoto> photos = photosOf(person);
    if (photos.empty())
        throw nobody(path_, person);
    if (photosOf(into).empty())
        throw nobody(path_, into);
    for (const EnrolledPhoto& photo : photos)
        add(into, photo);
    removePerson(person);
    const std::size_t count = photosOf(into).size();
    transaction.commit();
    return count;
}

std::size_t GalleryStore::removePerson(const std::string& person) {
    Transaction transaction(database_);
    Statement(database_, "DELETE FROM photo WHERE person = (SELECT id FROM person WHERE name = ?)").bind(person).step();
    const std::size_t photos = database_.changes();
    Statement(database_, "DELETE FROM person WHERE name = ?").bind(person).step();
    transaction.commit();
    return photos;
}

bool GalleryStore::removePhoto(const std::string& person, const std::string& digest) {
    Transaction transaction(database_);
    Statement(database_, "DELETE FROM photo WHERE person = (SELECT id FROM person WHERE name = ?) AND digest = ?")
        .bind(person)
        .bind(digest)
        .step();
    const bool removed = database_.changes() > 0;
    database_.run("DELETE FROM person WHERE id NOT IN (SELECT person FROM photo)");
    transaction.commit();
    return removed;
}

std::string refusalOfName(const std::string& name) {
    if (name.empty())
        return "a name cannot be empty";
    if (name.size() > longestName)
        return "a name cannot be longer than " + std::to_string(longestName) + " bytes";
    if (name.front() == ' ' || name.back() == ' ')
        return "a name cannot begin or end with a space";
    std::string_view rest(name);
    while (!rest.empty()) {
        const Character character = firstCharacter(rest);
        if (character.bytes == 0)
            return "a name must be UTF-8";
        if (character.control)
            return "a name cannot hold control characters";
        if (rest.front() == '/')
            return "a name cannot hold a slash";
        rest.remove_prefix(character.bytes);
    }
    return {};
}

std::string dateNow() {
    const std::time_t now = std::time(nullptr);
    std::tm parts{};
    ::gmtime_r(&now, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    return text.data();
}

std::string damageOf(const EnrolledPhoto& photo) {
    const std::string damage = flawText("of the bare face", photo.bare, Kind::Bare);
    return damage.empty() ? flawText("for a face with a mask", photo.masked, Kind::Masked) : damage;
}

} // namespace veldan::kit
