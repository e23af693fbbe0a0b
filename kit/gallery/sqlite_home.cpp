#include "gallery/sqlite_home.hpp"

#include "report/exit_codes.hpp"
#include "system/file_bytes.hpp"

#include <SQLiteCpp/VariadicBind.h>
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sqlite3.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace veldan::kit {

namespace {

// "VdGa", in the file's header: tells a gallery from the files of other programs.
constexpr std::int64_t applicationId = 0x56644761;
constexpr std::int64_t schemaVersion = 1;

// Of larger files, damage shows when it is read: to read them twice would double the time that opening takes.
constexpr std::uintmax_t mostChecked = 256 << 20;

constexpr int lockPatience = 5000; // milliseconds

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

std::unique_ptr<NewFile> prepared(const std::string& path, GalleryAccess access) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        requireGallery(path, status);
        return nullptr;
    }
    if (access != GalleryAccess::Create)
        throw CommandError(ExitCode::Missing, path + ": no such gallery");
    return std::make_unique<NewFile>(path);
}

SQLite::Database connected(const std::string& path) {
    // SQLite gives a meaning of their own to names such as ":memory:" and "file:..."; absolute ones are plain names.
    SQLite::Database database(std::filesystem::absolute(path).string(), SQLITE_OPEN_READWRITE | SQLITE_OPEN_EXRESCODE,
                              lockPatience);
    // A file from elsewhere may hold triggers and views: none of them runs here.
    for (const int option :
         {SQLITE_DBCONFIG_ENABLE_TRIGGER, SQLITE_DBCONFIG_ENABLE_VIEW, SQLITE_DBCONFIG_TRUSTED_SCHEMA})
        sqlite3_db_config(database.getHandle(), option, 0, nullptr);
    return database;
}

/** Copies a blob of a template's size; one of another size leaves zeros, which damageOf() finds. */
Template templateIn(const SQLite::Column& column) {
    Template bytes{};
    const void* blob = column.getBlob();
    if (blob != nullptr && column.getBytes() == static_cast<int>(bytes.size()))
        std::copy_n(static_cast<const unsigned char*>(blob), bytes.size(), bytes.begin());
    return bytes;
}

constexpr const char* photoColumns = "source, digest, date, quality, bare, masked";

/** Of a row that begins with photoColumns. */
EnrolledPhoto photoIn(SQLite::Statement& row) {
    return {row.getColumn(0).getString(), row.getColumn(1).getString(), row.getColumn(2).getString(),
            row.getColumn(3).getInt(),    templateIn(row.getColumn(4)), templateIn(row.getColumn(5))};
}

void bindTemplate(SQLite::Statement& statement, int index, const Template& bytes) {
    statement.bind(index, bytes.data(), static_cast<int>(bytes.size()));
}

std::string select(const char* rest) {
    return std::string("SELECT ") + photoColumns + rest;
}

} // namespace

template <class Work>
auto SqliteHome::told(const Work& work) const -> decltype(work()) {
    try {
        return work();
    } catch (const SQLite::Exception& error) {
        fail(error);
    }
}

void SqliteHome::fail(const SQLite::Exception& error) const {
    int system = 0; // the failure to write itself; undoing the change has overwritten what sqlite3_system_errno() tells
    if (database_)
        sqlite3_file_control(database_->getHandle(), "main", SQLITE_FCNTL_LAST_ERRNO, &system);
    const std::string reason = error.what();
    switch (error.getErrorCode() & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        throw FatalError(ExitCode::Gallery, path_ + ": another program is using it; try again when that is done");
    case SQLITE_NOTADB:
        throw FatalError(ExitCode::Gallery, path_ + ": not a gallery");
    case SQLITE_FULL:
        throw FatalError(ExitCode::NotWritten, path_ + ": cannot be written: " + reasonOf(ENOSPC));
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_READONLY:
        throw FatalError(ExitCode::NotWritten,
                         path_ + ": cannot be written: " + reason + "; may you write to it and to its folder?");
    case SQLITE_IOERR:
        throw FatalError(ExitCode::NotWritten, path_ + ": " + (system == 0 ? reason : reasonOf(system)));
    case SQLITE_NOMEM:
        throw FatalError(ExitCode::Internal, path_ + ": " + reason);
    default:
        throw FatalError(ExitCode::Gallery, path_ + ": the gallery is damaged: " + reason);
    }
}

SqliteHome::SqliteHome(std::string path, GalleryAccess access) : path_(std::move(path)), access_(access) {
    told([this] { open(); });
}

void SqliteHome::open() {
    newFile_ = prepared(path_, access_);
    database_.emplace(connected(newFile_ == nullptr ? path_ : newFile_->path().string()));
    if (access_ == GalleryAccess::Create)
        allowChanges();
    if (database_->execAndGet("PRAGMA application_id").getInt64() != applicationId) {
        if (database_->execAndGet("SELECT count(*) FROM sqlite_schema").getInt64() > 0)
            throw notAGallery(path_);
        if (access_ != GalleryAccess::Create)
            throw CommandError(ExitCode::Gallery, path_ + ": empty, nobody was ever enrolled in it");
        createSchema();
    }
    if (access_ == GalleryAccess::Read)
        database_->exec("PRAGMA query_only = ON");
    const std::int64_t version = database_->execAndGet("PRAGMA user_version").getInt64();
    if (version > schemaVersion)
        throw CommandError(ExitCode::Gallery, path_ + ": made by a newer version of veldan (gallery format " +
                                                  std::to_string(version) + ", this version knows " +
                                                  std::to_string(schemaVersion) + "); use that one");
    if (newFile_ == nullptr && std::filesystem::file_size(path_) <= mostChecked)
        if (const std::string state = database_->execAndGet("PRAGMA quick_check(1)").getString(); state != "ok")
            throw CommandError(ExitCode::Gallery, path_ + ": the gallery is damaged: " + state);
    if (access_ == GalleryAccess::Change)
        allowChanges();
    recognizers_ = {recognizerOf("bare"), recognizerOf("masked")};
    dataVersion_ = dataVersion();
}

void SqliteHome::allowChanges() {
    if (sqlite3_db_readonly(database_->getHandle(), "main") == 1)
        throw CommandError(ExitCode::NotWritten, path_ + ": cannot be written: the file is read-only");
    // Beyond a crash of the process, a commit survives a power failure, and what is removed is overwritten.
    database_->exec("PRAGMA synchronous = EXTRA; PRAGMA secure_delete = ON; PRAGMA foreign_keys = ON");
}

void SqliteHome::createSchema() {
    SQLite::Transaction transaction(*database_, SQLite::TransactionBehavior::IMMEDIATE);
    // Another process may have been faster.
    if (database_->execAndGet("PRAGMA application_id").getInt64() == applicationId)
        return;
    database_->exec(schema);
    const Recognizers& own = Recognizers::embedded();
    const std::pair<const char*, std::string> rows[] = {{"bare", own.bare}, {"masked", own.masked}};
    for (const auto& [kind, digest] : rows) {
        SQLite::Statement insert(*database_, "INSERT INTO recognizer VALUES (?, ?)");
        SQLite::bind(insert, kind, digest);
        insert.exec();
    }
    database_->exec("PRAGMA application_id = " + std::to_string(applicationId));
    database_->exec("PRAGMA user_version = " + std::to_string(schemaVersion));
    transaction.commit();
}

std::string SqliteHome::recognizerOf(const char* kind) {
    SQLite::Statement row(*database_, "SELECT digest FROM recognizer WHERE kind = ?");
    SQLite::bind(row, kind);
    return row.executeStep() ? row.getColumn(0).getString() : std::string();
}

void SqliteHome::forEach(const std::function<void(const PersonPhoto& photo)>& visit, const std::function<void()>&) {
    told([&] {
        // By the column of the index, so that photos are sorted a person at a time and never all of them.
        SQLite::Statement rows(*database_, select(", name FROM person JOIN photo ON photo.person = person.id "
                                                  "ORDER BY photo.person, photo.id"));
        while (rows.executeStep())
            visit({rows.getColumn(6).getString(), photoIn(rows)});
    });
}

std::vector<PersonSummary> SqliteHome::persons() {
    return told([&] {
        SQLite::Statement rows(*database_, "SELECT name, count(*), min(date), max(date) FROM person "
                                           "JOIN photo ON photo.person = person.id GROUP BY person.id ORDER BY name");
        std::vector<PersonSummary> persons;
        while (rows.executeStep())
            persons.push_back({rows.getColumn(0).getString(), static_cast<std::size_t>(rows.getColumn(1).getInt64()),
                               rows.getColumn(2).getString(), rows.getColumn(3).getString()});
        return persons;
    });
}

std::vector<EnrolledPhoto> SqliteHome::photosOf(const std::string& person) {
    return told([&] {
        SQLite::Statement rows(*database_, select(" FROM photo JOIN person ON photo.person = person.id "
                                                  "WHERE name = ? ORDER BY photo.id"));
        SQLite::bind(rows, person);
        std::vector<EnrolledPhoto> photos;
        while (rows.executeStep())
            photos.push_back(photoIn(rows));
        return photos;
    });
}

std::optional<EnrolledPhoto> SqliteHome::photo(const std::string& person, const std::string& digest) {
    return told([&] {
        SQLite::Statement row(*database_, select(" FROM photo WHERE digest = ? "
                                                 "AND person = (SELECT id FROM person WHERE name = ?)"));
        SQLite::bind(row, digest, person);
        return row.executeStep() ? std::optional<EnrolledPhoto>(photoIn(row)) : std::nullopt;
    });
}

std::vector<std::string> SqliteHome::othersWith(const std::string& person, const std::string& digest) {
    return told([&] {
        SQLite::Statement rows(*database_, "SELECT name FROM person JOIN photo ON photo.person = person.id "
                                           "WHERE digest = ? AND name <> ? ORDER BY name");
        SQLite::bind(rows, digest, person);
        std::vector<std::string> names;
        while (rows.executeStep())
            names.push_back(rows.getColumn(0).getString());
        return names;
    });
}

GallerySize SqliteHome::size() {
    return told([&] {
        const auto count = [&](const char* statement) {
            return static_cast<std::size_t>(database_->execAndGet(statement).getInt64());
        };
        return GallerySize{count("SELECT count(*) FROM person"), count("SELECT count(*) FROM photo")};
    });
}

std::int64_t SqliteHome::dataVersion() {
    return database_->execAndGet("PRAGMA data_version").getInt64();
}

bool SqliteHome::changed() {
    return told([&] {
        const std::int64_t before = std::exchange(dataVersion_, dataVersion());
        return std::exchange(changedHere_, false) || dataVersion_ != before;
    });
}

bool SqliteHome::change(const std::function<void()>& steps) {
    return told([&] {
        // At once, so that two processes wait for each other here rather than in the middle.
        {
            SQLite::Transaction transaction(*database_, SQLite::TransactionBehavior::IMMEDIATE);
            steps();
            transaction.commit();
        }
        changedHere_ = true;
        return newFile_ == nullptr || publish();
    });
}

/** Gives a new gallery its name. @return false when another process was faster with a gallery of that name */
bool SqliteHome::publish() {
    const bool moved = newFile_->moveToTarget();
    database_.reset();
    newFile_.reset();
    if (moved) {
        database_.emplace(connected(path_)); // which knows its journal by that name
        allowChanges();
        dataVersion_ = dataVersion();
    } else {
        open();
    }
    return moved;
}

std::vector<bool> SqliteHome::insert(const std::vector<PersonPhoto>& photos) {
    return told([&] {
        SQLite::Statement named(*database_, "INSERT INTO person (name) VALUES (?) ON CONFLICT DO NOTHING");
        SQLite::Statement row(*database_, "INSERT INTO photo (person, source, digest, date, quality, bare, masked) "
                                          "SELECT id, ?, ?, ?, ?, ?, ? FROM person WHERE name = ? "
                                          "ON CONFLICT DO NOTHING");
        std::vector<bool> added;
        added.reserve(photos.size());
        for (const auto& [person, photo] : photos) {
            named.reset();
            SQLite::bind(named, person);
            named.exec();
            row.reset();
            SQLite::bind(row, photo.source, photo.digest, photo.date, photo.quality);
            bindTemplate(row, 5, photo.bare);
            bindTemplate(row, 6, photo.masked);
            row.bind(7, person);
            added.push_back(row.exec() > 0);
        }
        return added;
    });
}

void SqliteHome::replaceTemplates(const std::string& person, const EnrolledPhoto& photo) {
    told([&] {
        SQLite::Statement row(*database_, "UPDATE photo SET quality = ?, bare = ?, masked = ? WHERE digest = ? "
                                          "AND person = (SELECT id FROM person WHERE name = ?)");
        row.bind(1, photo.quality);
        bindTemplate(row, 2, photo.bare);
        bindTemplate(row, 3, photo.masked);
        row.bind(4, photo.digest);
        row.bind(5, person);
        row.exec();
    });
}

void SqliteHome::rename(const std::string& person, const std::string& name) {
    told([&] {
        SQLite::Statement row(*database_, "UPDATE person SET name = ? WHERE name = ?");
        SQLite::bind(row, name, person);
        row.exec();
    });
}

std::size_t SqliteHome::removePerson(const std::string& person) {
    return told([&] {
        SQLite::Statement rows(*database_, "DELETE FROM photo WHERE person = (SELECT id FROM person WHERE name = ?)");
        SQLite::bind(rows, person);
        const int photos = rows.exec();
        SQLite::Statement row(*database_, "DELETE FROM person WHERE name = ?");
        SQLite::bind(row, person);
        row.exec();
        return static_cast<std::size_t>(photos);
    });
}

bool SqliteHome::removePhoto(const std::string& person, const std::string& digest) {
    return told([&] {
        SQLite::Statement row(*database_,
                              "DELETE FROM photo WHERE person = (SELECT id FROM person WHERE name = ?) AND digest = ?");
        SQLite::bind(row, person, digest);
        return row.exec() > 0;
    });
}

void SqliteHome::removePersonsWithoutPhotos() {
    told([&] { database_->exec("DELETE FROM person WHERE id NOT IN (SELECT person FROM photo)"); });
}

} // namespace veldan::kit
