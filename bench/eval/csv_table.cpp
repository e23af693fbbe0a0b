#include "csv_table.hpp"

#include <algorithm>
#include <exception>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace veldan::eval {

namespace fs = std::filesystem;

TableRow::TableRow(const fs::path& path, std::size_t line, const std::string& text) : path_(path), line_(line) {
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

Box TableRow::box(std::size_t first) const {
    return {number(first), number(first + 1), number(first + 2), number(first + 3)};
}

FivePoints TableRow::points(std::size_t first) const {
    FivePoints points;
    for (Point& point : points) {
        point = {number(first), number(first + 1)};
        first += 2;
    }
    return points;
}

std::string TableRow::place() const {
    return path_.string() + ":" + std::to_string(line_);
}

void TableRow::fail(const std::string& message) const {
    throw std::runtime_error(place() + ": " + message);
}

void readTable(const fs::path& path, std::size_t columns, const std::function<void(const TableRow&)>& use) {
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

} // namespace veldan::eval
