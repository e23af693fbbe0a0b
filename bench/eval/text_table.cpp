#include "text_table.hpp"

#include <algorithm>
#include <iomanip>
#include <sstream>

namespace veldan::eval {

void TextTable::print(std::ostream& out) const {
    std::vector<std::size_t> widths;
    for (const std::vector<std::string>& row : rows_) {
        widths.resize(std::max(widths.size(), row.size()));
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    for (const std::vector<std::string>& row : rows_) {
        for (std::size_t i = 0; i < row.size(); ++i) {
            const std::string space(widths[i] - row[i].size(), ' ');
            out << (i == 0 ? row[i] + space : "  " + space + row[i]);
        }
        out << '\n';
    }
}

std::string text(std::size_t count) {
    return std::to_string(count);
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

} // namespace veldan::eval
