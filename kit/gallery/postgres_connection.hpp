#ifndef VELDAN_KIT_GALLERY_POSTGRES_CONNECTION_HPP
#define VELDAN_KIT_GALLERY_POSTGRES_CONNECTION_HPP

#include <veldan/template.hpp>

#include <cstddef>
#include <cstdint>
#include <libpq-fe.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace veldan::kit {

/** The connection to a server is gone, or there was none; what ran on it may have been done or not. */
class LostConnection : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/** The server refuses a statement, with one of the codes of the manual's appendix. */
class ServerError : public std::runtime_error {
public:
    ServerError(std::string state, const std::string& message)
        : std::runtime_error(message), state_(std::move(state)) {}
    const std::string& state() const { return state_; }

private:
    std::string state_;
};

/** What stands for $1, $2 and so on. All SQL is constant: whatever comes from outside is a parameter. */
class PostgresParameters {
public:
    PostgresParameters() = default;

    PostgresParameters& text(std::string_view value);
    PostgresParameters& bytes(std::string_view value);
    PostgresParameters& bytes(const Template& value);
    PostgresParameters& number(std::int64_t value);

    /** @name Arrays, added to element by element */
    ///@{
    PostgresParameters& texts(const std::vector<std::string_view>& values);
    PostgresParameters& manyBytes(const std::vector<std::string_view>& values);
    PostgresParameters& numbers(const std::vector<std::int64_t>& values);
    ///@}

private:
    friend class PostgresConnection;
    PostgresParameters& add(Oid type, std::string value);

    std::vector<Oid> types_;
    std::vector<std::string> values_;
};

/** The rows of an answer, whole. */
class PostgresRows {
public:
    explicit PostgresRows(PGresult* result) : result_(result, PQclear) {}

    int size() const { return PQntuples(result_.get()); }
    bool isNull(int row, int column) const { return PQgetisnull(result_.get(), row, column) == 1; }
    std::string text(int row, int column) const { return std::string(value(row, column)); }
    std::int64_t number(int row, int column) const;
    float real(int row, int column) const;
    /** One of another size gives zeros, which damageOf() finds. */
    Template faceTemplate(int row, int column) const;
    /** How many rows the statement has changed. */
    std::size_t changed() const;
    PGresult* get() const { return result_.get(); }

private:
    std::string_view value(int row, int column) const;

    std::unique_ptr<PGresult, void (*)(PGresult*)> result_;
};

/** A connection to a database. Every function throws LostConnection or ServerError. */
class PostgresConnection {
public:
    /** Throws LostConnection; CommandError (Usage) when the location is no address. */
    explicit PostgresConnection(const std::string& location);

    PostgresRows run(const char* statement, const PostgresParameters& parameters = {});

    /** Statements without parameters and answers, one after the other. */
    void runAll(const char* statements);

    /** Whether a notification has come since this was last asked. */
    bool notified();

    /** Whether the connection is in the middle of a transaction. */
    bool inTransaction() const { return PQtransactionStatus(connection_.get()) != PQTRANS_IDLE; }

private:
    PostgresRows checked(PGresult* result);

    std::unique_ptr<PGconn, void (*)(PGconn*)> connection_;
};

} // namespace veldan::kit

#endif
