#ifndef VELDAN_EVAL_CSV_TABLE_HPP
#define VELDAN_EVAL_CSV_TABLE_HPP

#include "geometry.hpp"

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace veldan::eval {

/** One line of a table, with its place for messages. Everything that does not fit throws std::runtime_error. */
class TableRow {
public:
    TableRow(const std::filesystem::path& path, std::size_t line, const std::string& text);

    std::size_t size() const { return fields_.size(); }
    const std::string& text(std::size_t i) const { return fields_[i]; }
    double number(std::size_t i) const;
    /** The field, which must be one of these. */
    const std::string& choice(std::size_t i, const std::vector<std::string>& choices) const;
    Box box(std::size_t first) const;
    FivePoints points(std::size_t first) const;
    /** File and line. */
    std::string place() const;
    [[noreturn]] void fail(const std::string& message) const;

private:
    const std::filesystem::path& path_;
    std::size_t line_;
    std::vector<std::string> fields_;
};

/** Calls use for each line, which must have this many fields. A first line that begins with "file," is a heading. */
void readTable(const std::filesystem::path& path, std::size_t columns, const std::function<void(const TableRow&)>& use);

} // namespace veldan::eval

#endif
