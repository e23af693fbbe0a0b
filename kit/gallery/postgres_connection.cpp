#include "gallery/postgres_connection.hpp"

#include "gallery/location.hpp"
#include "report/exit_codes.hpp"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

namespace veldan::kit {

namespace {

// Numbers that the server gives to its own types, the same in all versions.
enum : Oid { byteaType = 17, int8Type = 20, textType = 25, byteaArray = 1001, textArray = 1009, int8Array = 1016 };

void putBigEndian(std::string& bytes, std::uint64_t value, int size) {
    for (int shift = (size - 1) * 8; shift >= 0; shift -= 8)
        bytes += static_cast<char>(value >> shift & 0xff);
}

std::uint64_t bigEndian(std::string_view bytes) {
    std::uint64_t value = 0;
    for (const char byte : bytes)
        value = value << 8 | static_cast<unsigned char>(byte);
    return value;
}

std::string numberBytes(std::int64_t value) {
    std::string bytes;
    putBigEndian(bytes, static_cast<std::uint64_t>(value), 8);
    return bytes;
}

/** One dimension, no nulls, as the server takes it. */
template <class Values>
std::string arrayBytes(Oid element, const Values& values) {
    std::string bytes;
    for (const std::uint64_t word : {std::uint64_t{1}, std::uint64_t{0}, std::uint64_t{element},
                                     static_cast<std::uint64_t>(values.size()), std::uint64_t{1}})
        putBigEndian(bytes, word, 4);
    for (const auto& value : values) {
        putBigEndian(bytes, value.size(), 4);
        bytes += value;
    }
    return bytes;
}

/** libpq ends its messages with a line break and may need several lines. */
std::string oneLine(const char* message) {
    std::string text = message == nullptr ? "" : message;
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    std::replace(text.begin(), text.end(), '\n', ' ');
    text.erase(std::remove(text.begin(), text.end(), '\t'), text.end());
    return text;
}

/** What a message about a location says beside its name. A faulty one may have a part of its password anywhere. */
void requireAddress(const std::string& location) {
    char* reason = nullptr;
    PQconninfoOption* options = PQconninfoParse(location.c_str(), &reason);
    PQconninfoFree(options);
    const std::unique_ptr<char, void (*)(void*)> owned(reason, PQfreemem);
    if (options != nullptr)
        return;
    const std::string shown = shownLocation(location);
    throw CommandError(ExitCode::Usage, shown + ": not the address of a PostgreSQL database" +
                                            (shown == location ? ": " + oneLine(reason) : ""));
}

/** The server ends the connection, or begins to. */
bool endsConnection(const std::string& state) {
    return state.rfind("08", 0) == 0 || state == "57P01" || state == "57P02" || state == "57P03" || state == "57P05";
}

} // namespace

PostgresParameters& PostgresParameters::add(Oid type, std::string value) {
    types_.push_back(type);
    values_.push_back(std::move(value));
    return *this;
}

PostgresParameters& PostgresParameters::text(std::string_view value) {
    return add(textType, std::string(value));
}

PostgresParameters& PostgresParameters::bytes(std::string_view value) {
    return add(byteaType, std::string(value));
}

PostgresParameters& PostgresParameters::bytes(const Template& value) {
    return bytes(std::string_view(reinterpret_cast<const char*>(value.data()), value.size()));
}

PostgresParameters& PostgresParameters::number(std::int64_t value) {
    return add(int8Type, numberBytes(value));
}

PostgresParameters& PostgresParameters::texts(const std::vector<std::string_view>& values) {
    return add(textArray, arrayBytes(textType, values));
}

PostgresParameters& PostgresParameters::manyBytes(const std::vector<std::string_view>& values) {
    return add(byteaArray, arrayBytes(byteaType, values));
}

PostgresParameters& PostgresParameters::numbers(const std::vector<std::int64_t>& values) {
    std::vector<std::string> elements(values.size());
    std::transform(values.begin(), values.end(), elements.begin(), numberBytes);
    return add(int8Array, arrayBytes(int8Type, elements));
}

std::string_view PostgresRows::value(int row, int column) const {
    return {PQgetvalue(result_.get(), row, column), static_cast<std::size_t>(PQgetlength(result_.get(), row, column))};
}

std::int64_t PostgresRows::number(int row, int column) const {
    const std::string_view bytes = value(row, column);
    const auto bits = bigEndian(bytes);
    return bytes.size() == 4 ? static_cast<std::int32_t>(static_cast<std::uint32_t>(bits))
                             : static_cast<std::int64_t>(bits);
}

float PostgresRows::real(int row, int column) const {
    const auto bits = static_cast<std::uint32_t>(bigEndian(value(row, column)));
    float number = 0;
    std::memcpy(&number, &bits, sizeof number);
    return number;
}

Template PostgresRows::faceTemplate(int row, int column) const {
    Template bytes{};
    const std::string_view field = value(row, column);
    if (field.size() == bytes.size())
        std::copy(field.begin(), field.end(), bytes.begin());
    return bytes;
}

std::size_t PostgresRows::changed() const {
    return std::strtoull(PQcmdTuples(result_.get()), nullptr, 10);
}

PostgresConnection::PostgresConnection(const std::string& location) : connection_(nullptr, PQfinish) {
    requireAddress(location);
    // Those before the address are for addresses that do not say otherwise.
    const std::array<std::pair<const char*, const char*>, 7> settings = {{{"connect_timeout", "10"},
                                                                          {"keepalives_idle", "30"},
                                                                          {"keepalives_interval", "10"},
                                                                          {"tcp_user_timeout", "60000"},
                                                                          {"fallback_application_name", "veldan"},
                                                                          {"dbname", location.c_str()},
                                                                          {"client_encoding", "UTF8"}}};
    std::array<const char*, settings.size() + 1> names{};
    std::array<const char*, settings.size() + 1> values{};
    for (std::size_t i = 0; i < settings.size(); ++i)
        std::tie(names[i], values[i]) = settings[i];
    connection_.reset(PQconnectdbParams(names.data(), values.data(), 1));
    if (connection_ == nullptr)
        throw std::bad_alloc();
    if (PQstatus(connection_.get()) != CONNECTION_OK)
        throw LostConnection(oneLine(PQerrorMessage(connection_.get())));
    PQsetNoticeProcessor(
        connection_.get(), [](void*, const char*) {}, nullptr);
}

PostgresRows PostgresConnection::checked(PGresult* result) {
    PostgresRows rows(result);
    switch (PQresultStatus(result)) {
    case PGRES_COMMAND_OK:
    case PGRES_TUPLES_OK:
        return rows;
    default:
        break;
    }
    const char* state = PQresultErrorField(result, PG_DIAG_SQLSTATE);
    const char* primary = PQresultErrorField(result, PG_DIAG_MESSAGE_PRIMARY);
    const std::string reason = oneLine(primary != nullptr ? primary : PQerrorMessage(connection_.get()));
    if (PQstatus(connection_.get()) != CONNECTION_OK || state == nullptr || endsConnection(state))
        throw LostConnection(reason);
    throw ServerError(state, reason);
}

PostgresRows PostgresConnection::run(const char* statement, const PostgresParameters& parameters) {
    std::vector<const char*> values;
    std::vector<int> lengths;
    for (const std::string& value : parameters.values_) {
        values.push_back(value.data());
        lengths.push_back(static_cast<int>(value.size()));
    }
    const std::vector<int> formats(values.size(), 1);
    return checked(PQexecParams(connection_.get(), statement, static_cast<int>(values.size()), parameters.types_.data(),
                                values.data(), lengths.data(), formats.data(), 1));
}

void PostgresConnection::runAll(const char* statements) {
    checked(PQexec(connection_.get(), statements));
}

bool PostgresConnection::notified() {
    if (PQconsumeInput(connection_.get()) != 1)
        throw LostConnection(oneLine(PQerrorMessage(connection_.get())));
    bool any = false;
    while (PGnotify* notification = PQnotifies(connection_.get())) {
        PQfreemem(notification);
        any = true;
    }
    return any;
}

} // namespace veldan::kit
