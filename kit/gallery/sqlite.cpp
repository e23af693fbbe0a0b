#include "gallery/sqlite.hpp"

#include "report/exit_codes.hpp"
#include "system/file_bytes.hpp"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sqlite3.h>

namespace veldan::kit {

void Database::Closer::operator()(sqlite3* connection) const {
    sqlite3_close(connection);
}

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const {
    sqlite3_finalize(statement);
}

Database::Database(const std::string& path, const std::string& name, int waitMilliseconds) : name_(name) {
    // SQLite gives a meaning of their own to names such as ":memory:" and "file:..."; absolute ones are plain names.
    const std::string absolute = std::filesystem::absolute(path).string();
    sqlite3* connection = nullptr;
    const int code =
        sqlite3_open_v2(absolute.c_str(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_EXRESCODE, nullptr);
    connection_.reset(connection);
    if (code != SQLITE_OK)
        fail(code);
    sqlite3_busy_timeout(connection, waitMilliseconds);
    // A file from elsewhere may hold triggers and views: none of them runs here.
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
}

void Database::run(const char* statements) {
    if (const int code = sqlite3_exec(connection_.get(), statements, nullptr, nullptr, nullptr); code != SQLITE_OK)
        fail(code);
}

std::int64_t Database::number(const char* query) {
    Statement statement(*this, query);
    statement.step();
    return statement.number(0);
}

std::string Database::text(const char* query) {
    Statement statement(*this, query);
    statement.step();
    return statement.text(0);
}

std::size_t Database::changes() const {
    return static_cast<std::size_t>(std::max(sqlite3_changes(connection_.get()), 0));
}

bool Database::readOnly() const {
    return sqlite3_db_readonly(connection_.get(), "main") == 1;
}

bool Database::inTransaction() const {
    return sqlite3_get_autocommit(connection_.get()) == 0;
}

void Database::fail(int code) const {
    const std::string reason = connection_ == nullptr ? sqlite3_errstr(code) : sqlite3_errmsg(connection_.get());
    int system = 0; // the failure to write itself; undoing the change has overwritten what sqlite3_system_errno() tells
    if (connection_ != nullptr)
        sqlite3_file_control(connection_.get(), "main", SQLITE_FCNTL_LAST_ERRNO, &system);
    switch (code & 0xff) {
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
        throw FatalError(ExitCode::Gallery, name_ + ": another program is using it; try again when that is done");
    case SQLITE_NOTADB:
        throw FatalError(ExitCode::Gallery, name_ + ": not a gallery");
    case SQLITE_FULL:
        throw FatalError(ExitCode::NotWritten, name_ + ": cannot be written: " + reasonOf(ENOSPC));
    case SQLITE_CANTOPEN:
    case SQLITE_PERM:
    case SQLITE_READONLY:
        throw FatalError(ExitCode::NotWritten,
                         name_ + ": cannot be written: " + reason + "; may you write to it and to its folder?");
    case SQLITE_IOERR:
        throw FatalError(ExitCode::NotWritten, name_ + ": " + (system == 0 ? reason : reasonOf(system)));
    case SQLITE_NOMEM:
        throw FatalError(ExitCode::Internal, name_ + ": " + reason);
    default:
        throw FatalError(ExitCode::Gallery, name_ + ": the gallery is damaged: " + reason);
    }
}

Statement::Statement(Database& database, const char* query) : database_(database) {
    sqlite3_stmt* statement = nullptr;
    require(sqlite3_prepare_v2(database.connection_.get(), query, -1, &statement, nullptr));
    statement_.reset(statement);
}

Statement& Statement::bind(const std::string& text) {
    require(sqlite3_bind_text(statement_.get(), ++bound_, text.data(), static_cast<int>(text.size()),
                              SQLITE_TRANSIENT)); // NOLINT: the macro's cast
    return *this;
}

Statement& Statement::bind(std::int64_t number) {
    require(sqlite3_bind_int64(statement_.get(), ++bound_, number));
    return *this;
}

Statement& Statement::bind(const unsigned char* bytes, std::size_t size) {
    require(sqlite3_bind_blob(statement_.get(), ++bound_, bytes, static_cast<int>(size),
                              SQLITE_TRANSIENT)); // NOLINT: the macro's cast
    return *this;
}

bool Statement::step() {
    const int code = sqlite3_step(statement_.get());
    if (code != SQLITE_ROW && code != SQLITE_DONE)
        database_.fail(code);
    return code == SQLITE_ROW;
}

std::string Statement::text(int column) {
    const unsigned char* text = sqlite3_column_text(statement_.get(), column);
    const int size = sqlite3_column_bytes(statement_.get(), column);
    return text == nullptr ? std::string() : std::string(text, text + size);
}

std::int64_t Statement::number(int column) {
    return sqlite3_column_int64(statement_.get(), column);
}

bool Statement::bytes(int column, unsigned char* out, std::size_t size) {
    const void* blob = sqlite3_column_blob(statement_.get(), column);
    if (blob == nullptr || sqlite3_column_bytes(statement_.get(), column) != static_cast<int>(size))
        return false;
    std::copy_n(static_cast<const unsigned char*>(blob), size, out);
    return true;
}

void Statement::require(int code) {
    if (code != SQLITE_OK)
        database_.fail(code);
}

Transaction::Transaction(Database& database) : database_(database), open_(!database.inTransaction()) {
    // At once, so that two processes wait for each other here rather than in the middle.
    if (open_)
        database_.run("BEGIN IMMEDIATE");
}

Transaction::~Transaction() {
    if (!open_ || !database_.inTransaction())
        return;
    try {
        database_.run("ROLLBACK");
    } catch (...) { // NOLINT(bugprone-empty-catch): SQLite undoes it when the file is opened next
    }
}

void Transaction::commit() {
    if (open_)
        database_.run("COMMIT");
}

} // namespace veldan::kit
