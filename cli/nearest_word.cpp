#include "nearest_word.hpp"

#include <algorithm>
#include <cstddef>

namespace veldan::cli {

namespace {

/** Letters to insert, leave out, replace or swap with their neighbour until one word is the other. */
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::vector<std::size_t>> table(a.size() + 1, std::vector<std::size_t>(b.size() + 1));
    for (std::size_t i = 0; i <= a.size(); ++i) {
        for (std::size_t j = 0; j <= b.size(); ++j) {
            if (i == 0 || j == 0) {
                table[i][j] = i + j;
                continue;
            }
            const std::size_t replaced = table[i - 1][j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            table[i][j] = std::min({table[i - 1][j] + 1, table[i][j - 1] + 1, replaced});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                table[i][j] = std::min(table[i][j], table[i - 2][j - 2] + 1);
        }
    }
    return table[a.size()][b.size()];
}

std::string withoutDashes(const std::string& word) {
    return word.substr(std::min(word.find_first_not_of('-'), word.size()));
}

} // namespace

std::string nearestWord(const std::string& word, const std::vector<std::string>& known) {
    const std::string meant = withoutDashes(word);
    std::string nearest;
    std::size_t least = meant.size() / 3 + 1; // a third of the letters may be wrong
    for (const std::string& candidate : known) {
        const std::string letters = withoutDashes(candidate);
        const bool begun = meant.size() > 1 && letters.compare(0, meant.size(), meant) == 0;
        const std::size_t errors = begun ? 0 : distance(meant, letters);
        if (errors < least && errors < letters.size()) {
            least = errors;
            nearest = candidate;
        }
    }
    return nearest;
}

} // namespace veldan::cli
