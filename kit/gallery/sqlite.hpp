#ifndef VELDAN_KIT_GALLERY_SQLITE_HPP
#define VELDAN_KIT_GALLERY_SQLITE_HPP

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

struct sqlite3;
struct sqlite3_stmt;

namespace veldan::kit {

/** An open SQLite file. Failures become FatalErrors that name the file: the next statement would meet them as well. */
class Database {
public:
    /**
     * Opens an existing file, to be written where its permissions allow it.
     * @param name              what messages call it
     * @param waitMilliseconds  for its locks
     */
    Database(const std::string& path, const std::string& name, int waitMilliseconds);

    /** Runs statements without results. */
    void run(const char* statements);

    /** The first column of a statement's only row. */
    std::int64_t number(const char* query);
    std::string text(const char* query);

    /** Rows that the last statement changed. */
    std::size_t changes() const;
    /** Whether the file cannot be written to. */
    bool readOnly() const;
    bool inTransaction() const;

    /** As messages call the file. */
    const std::string& name() const { return name_; }

    /** Throws what a result code of SQLite means for the user. */
    [[noreturn]] void fail(int code) const;

private:
    friend class Statement;
    struct Closer {
        void operator()(sqlite3* connection) const;
    };

    std::string name_;
    std::unique_ptr<sqlite3, Closer> connection_;
};

/** A prepared statement: bind its parameters in their order, then step through its rows. */
class Statement {
public:
    Statement(Database& database, const char* query);

    Statement& bind(const std::string& text);
    Statement& bind(std::int64_t number);
    Statement& bind(const unsigned char* bytes, std::size_t size);

    /** Goes to the next row. @return false when there is none */
    bool step();

    /** @name Columns of the row, from 0 */
    ///@{
    std::string text(int column);
    std::int64_t number(int column);
    /** Copies a blob of exactly that size. @return false when it has another one */
    bool bytes(int column, unsigned char* out, std::size_t size);
    ///@}

private:
    struct Finalizer {
        void operator()(sqlite3_stmt* statement) const;
    };

    void require(int code);

    Database& database_;
    std::unique_ptr<sqlite3_stmt, Finalizer> statement_;
    int bound_ = 0;
};

/** Changes that are made together or not at all; undone unless committed. Within another one it is a part of that. */
class Transaction {
public:
    explicit Transaction(Database& database);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    /** Returns once the changes are on the disk. */
    void commit();

private:
    Database& database_;
    bool open_;
};

} // namespace veldan::kit

#endif
