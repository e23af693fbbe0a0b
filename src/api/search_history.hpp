#ifndef VELDAN_API_SEARCH_HISTORY_HPP
#define VELDAN_API_SEARCH_HISTORY_HPP

#include <cstddef>
#include <cstdint>

namespace veldan {

// The layout of an instance's search history: a row for each track identity modulo 100. A row holds the number of
// searches since the last decision, two unused words, then three blocks of one score for each person: searches write
// them in turn.

constexpr int historyRows = 100;
constexpr int historyRowHead = 3;
constexpr int historyBlocks = 3;

constexpr std::size_t historyRowLength(int capacity) {
    return historyRowHead + historyBlocks * static_cast<std::size_t>(capacity);
}

// Tracking gives no negative identities; those of other callers share the rows all the same.
constexpr int historyRowOf(int trackId) {
    return (trackId % historyRows + historyRows) % historyRows;
}

// What the search of that number, from 1 on, writes.
inline std::int32_t* historyBlock(std::int32_t* row, int capacity, int search) {
    return row + historyRowHead + static_cast<std::ptrdiff_t>(capacity) * ((search - 1) % historyBlocks);
}

} // namespace veldan

#endif
