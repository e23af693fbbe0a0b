#ifndef VELDAN_EVAL_TABLES_HPP
#define VELDAN_EVAL_TABLES_HPP

#include "geometry.hpp"

#include <nlohmann/json.hpp>

#include <cstddef>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace veldan::eval {

// Tables that are read, and what is printed. Figures are computed as JSON; what people read is drawn from that.

/** One line of a table, with its place for messages. Everything that does not fit throws std::runtime_error. */
class TableRow {
public:
    TableRow(const std::filesystem::path& path, std::size_t line, const std::string& text);

    std::size_t size() const { return fields_.size(); }
    const std::string& text(std::size_t i) const { return fields_[i]; }
    double number(std::size_t i) const;
    /** The field, which must be one of these. */
    const std::string& choice(std::size_t i, const std::vector<std::string>& choices) const;
    /** Whether the field is the second of these two; it must be one of them. */
    bool isSecond(std::size_t i, const char* first, const char* second) const;
    Box box(std::size_t first) const;
    FivePoints points(std::size_t first) const;
    /** File and line. */
    std::string place() const { return path_.string() + ":" + std::to_string(line_); }
    [[noreturn]] void fail(const std::string& message) const;

private:
    const std::filesystem::path& path_;
    std::size_t line_;
    std::vector<std::string> fields_;
};

/** Calls use for each line, which must have this many fields. A first line that begins with "file," is a heading. */
void readTable(const std::filesystem::path& path, std::size_t columns, const std::function<void(const TableRow&)>& use);

using Json = nlohmann::ordered_json;

/** null for nothing. */
Json orNull(const std::optional<double>& value);
/** Nothing when the whole is 0. */
std::optional<double> ratio(std::size_t part, std::size_t whole);
/** Under "name", with the figures behind it. */
Json named(const std::string& name, const Json& figures, const char* key = "name");

/** With this many decimals; "-" for nothing. */
std::string text(std::optional<double> value, int decimals);
/** As percent. */
std::string percent(std::optional<double> share, int decimals = 2);

/** A column of a printed table: where a row has its value, a JSON pointer. */
struct Column {
    std::string heading;
    std::string path;
    /** Of numbers that are not whole. */
    int decimals = 0;
    /** 100 for shares that are printed as percent. */
    double factor = 1;
};
/** A share that is printed as percent. */
inline Column percentColumn(std::string heading, std::string path, int decimals = 2) {
    return {std::move(heading), std::move(path), decimals, 100};
}

/**
 * Rows in columns as wide as they need to be, the first to the left and all others to the right. A value that is null
 * is printed as "-", one that is missing as nothing.
 */
void printTable(std::ostream& out, const std::vector<Column>& columns, const Json& rows);

} // namespace veldan::eval

#endif
