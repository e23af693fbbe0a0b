#ifndef VELDAN_API_SEARCH_HISTORY_HPP
#define VELDAN_API_SEARCH_HISTORY_HPP

#include <veldan/instance.hpp>

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace veldan {

// The search history of an instance: everything that knows its layout, which applications can see.

// A row for each track identity modulo 100.
constexpr int historyRows = 100;

// Tracking gives no negative identities; those of other callers share the rows all the same.
constexpr int historyRowOf(int trackId) {
    return (trackId % historyRows + historyRows) % historyRows;
}

// A row: the number of searches since the last decision, two unused words, then three blocks of one score for each
// person. Searches write the blocks in turn.
class HistoryRow {
public:
    HistoryRow(std::int32_t* words, int capacity) : words_(words), capacity_(capacity) {}

    static constexpr std::size_t length(int capacity) {
        return headLength + blocks * static_cast<std::size_t>(capacity);
    }

    // Counts a search; returns its number, from 1 on.
    int countSearch() { return ++*words_; }
    void forgetSearches() { *words_ = 0; }

    // What the search of that number writes, one score for each person.
    std::int32_t* scores(int search) { return block((search - 1) % blocks); }

    // A person's scores of the last three searches, added up.
    int sum(int person) const { return block(0)[person] + block(1)[person] + block(2)[person]; }

private:
    static constexpr int headLength = 3;
    static constexpr int blocks = 3;

    std::int32_t* block(int number) const {
        return words_ + headLength + static_cast<std::ptrdiff_t>(capacity_) * number;
    }

    std::int32_t* words_;
    int capacity_;
};

// All rows, of zeros. Throws std::bad_alloc.
std::int32_t** allocateHistory(int capacity);
void freeHistory(std::int32_t** history);

void forgetAllSearches(std::int32_t** history);

// A history apart from the instance's own, which the instance uses in place of it for the time of a search. Rows get
// their length when they are first searched with: most tracks of most videos never need one.
class SparseHistory {
public:
    SparseHistory();

    void forgetSearches(int trackId);

    // To be called for every identity that is going to be searched.
    void prepare(int trackId, int capacity);

private:
    friend class HistoryLoan;

    std::vector<std::int32_t>& rowOf(int trackId);

    std::array<std::vector<std::int32_t>, historyRows> rows_;
    std::array<std::int32_t*, historyRows> lent_{};
};

// Puts the instance's own history back whatever happens.
class HistoryLoan {
public:
    HistoryLoan(VdFaceAPI& api, SparseHistory& history);
    HistoryLoan(const HistoryLoan&) = delete;
    HistoryLoan& operator=(const HistoryLoan&) = delete;
    ~HistoryLoan() { api_.searchHistory = own_; }

private:
    VdFaceAPI& api_;
    std::int32_t** own_;
};

} // namespace veldan

#endif
