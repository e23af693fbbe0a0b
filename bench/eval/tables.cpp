#include "tables.hpp"

#include <algorithm>
#include <exception>
#include <fstream>
#include <iomanip>
#include <sstream>
#include <stdexcept>

namespace veldan::eval {

namespace {

std::string cell(const Json& row, const Column& column) {
    const Json::json_pointer path(column.path);
    if (!row.contains(path))
        return "";
    const Json& value = row.at(path);
    if (value.is_string())
        return value.get<std::string>();
    if (value.is_number_integer() && column.factor == 1)
        return value.dump();
    return value.is_null() ? "-" : text(column.factor * value.get<double>(), column.decimals);
}

} // namespace

TableRow::TableRow(const std::filesystem::path& path, std::size_t line, const std::string& text)
    : path_(path), line_(line) {
    std::istringstream stream(text);
    for (std::string field; std::getline(stream, field, ',');)
        fields_.push_back(field);
    if (!text.empty() && text.back() == ',')
        fields_.emplace_back();
}

double TableRow::number(std::size_t i) const {
    std::size_t used = 0;
    double value = 0;
    try {
        value = std::stod(fields_[i], &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != fields_[i].size())
        fail("\"" + fields_[i] + "\" is not a number");
    return value;
}

const std::string& TableRow::choice(std::size_t i, const std::vector<std::string>& choices) const {
    if (std::find(choices.begin(), choices.end(), fields_[i]) != choices.end())
        return fields_[i];
    std::string list;
    for (const std::string& one : choices)
        list += (list.empty() ? "" : ", ") + one;
    fail("\"" + fields_[i] + "\" is none of " + list);
}

bool TableRow::isSecond(std::size_t i, const char* first, const char* second) const {
    return choice(i, {first, second}) == second;
}

Box TableRow::box(std::size_t first) const {
    return {number(first), number(first + 1), number(first + 2), number(first + 3)};
}

FivePoints TableRow::points(std::size_t first) const {
    FivePoints points;
    for (std::size_t k = 0; k < points.size(); ++k)
        points[k] = {number(first + 2 * k), number(first + 2 * k + 1)};
    return points;
}

void TableRow::fail(const std::string& message) const {
    throw std::runtime_error(place() + ": " + message);
}

void readTable(const std::filesystem::path& path, std::size_t columns,
               const std::function<void(const TableRow&)>& use) {
    std::ifstream file(path);
    if (!file)
        throw std::runtime_error(path.string() + ": cannot be opened");
    std::string text;
    for (std::size_t line = 1; std::getline(file, text); ++line) {
        if (!text.empty() && text.back() == '\r')
            text.pop_back();
        if (text.empty() || (line == 1 && text.rfind("file,", 0) == 0))
            continue;
        const TableRow row(path, line, text);
        if (row.size() != columns)
            row.fail(std::to_string(row.size()) + " fields instead of " + std::to_string(columns));
        use(row);
    }
}

Json orNull(const std::optional<double>& value) {
    return value ? Json(*value) : Json();
}

std::optional<double> ratio(std::size_t part, std::size_t whole) {
    if (whole == 0)
        return std::nullopt;
    return static_cast<double>(part) / static_cast<double>(whole);
}

Json named(const std::string& name, const Json& figures, const char* key) {
    Json entry = {{key, name}};
    entry.update(figures);
    return entry;
}

std::string text(std::optional<double> value, int decimals) {
    if (!value)
        return "-";
    std::ostringstream stream;
    stream << std::fixed << std::setprecision(decimals) << *value;
    return stream.str();
}

std::string percent(std::optional<double> share, int decimals) {
    return text(share ? std::optional<double>(100 * *share) : std::nullopt, decimals);
}

void printTable(std::ostream& out, const std::vector<Column>& columns, const Json& rows) {
    std::vector<std::string> lines(rows.size() + 1);
    for (const Column& column : columns) {
        std::vector<std::string> cells = {column.heading};
        for (const Json& row : rows)
            cells.push_back(cell(row, column));
        std::size_t width = 0;
        for (const std::string& one : cells)
            width = std::max(width, one.size());
        const bool first = &column == &columns.front();
        for (std::size_t i = 0; i < cells.size(); ++i) {
            const std::string space(width - cells[i].size(), ' ');
            lines[i] += first ? cells[i] + space : "  " + space + cells[i];
        }
    }
    for (const std::string& line : lines)
        out << line << '\n';
}

} // namespace veldan::eval
