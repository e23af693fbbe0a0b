#ifndef VELDAN_EVAL_TEXT_TABLE_HPP
#define VELDAN_EVAL_TEXT_TABLE_HPP

#include <cstddef>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace veldan::eval {

/** Rows of text in columns as wide as they need to be, the first to the left and all others to the right. */
class TextTable {
public:
    explicit TextTable(std::vector<std::string> heading) { add(std::move(heading)); }
    void add(std::vector<std::string> row) { rows_.push_back(std::move(row)); }
    void print(std::ostream& out) const;

private:
    std::vector<std::vector<std::string>> rows_;
};

std::string text(std::size_t count);
/** With this many decimals; "-" for nothing. */
std::string text(std::optional<double> value, int decimals);
/** As percent. */
std::string percent(std::optional<double> share, int decimals = 2);

} // namespace veldan::eval

#endif
