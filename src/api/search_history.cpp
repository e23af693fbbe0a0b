#include "api/search_history.hpp"

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

namespace veldan {

namespace {

// Zeroed memory from the allocator instead of a fill: at the default capacity the history is 18 million bytes, which
// would be touched at every start-up although most applications search few of the rows.
template <class T>
T* allocateZeroed(std::size_t count) {
    void* const memory = std::calloc(count, sizeof(T));
    if (memory == nullptr)
        throw std::bad_alloc();
    return static_cast<T*>(memory);
}

} // namespace

std::int32_t** allocateHistory(int capacity) {
    std::unique_ptr<std::int32_t*, void (*)(std::int32_t**)> unfinished(allocateZeroed<std::int32_t*>(historyRows),
                                                                        freeHistory);
    std::generate_n(unfinished.get(), historyRows,
                    [capacity] { return allocateZeroed<std::int32_t>(HistoryRow::length(capacity)); });
    return unfinished.release();
}

void freeHistory(std::int32_t** history) {
    if (history == nullptr)
        return;
    std::for_each_n(history, historyRows, [](std::int32_t* row) { std::free(row); });
    std::free(history);
}

void forgetAllSearches(std::int32_t** history) {
    std::for_each_n(history, historyRows, [](std::int32_t* row) { HistoryRow(row, 0).forgetSearches(); });
}

SparseHistory::SparseHistory() {
    for (std::vector<std::int32_t>& row : rows_)
        row.resize(HistoryRow::length(0));
}

std::vector<std::int32_t>& SparseHistory::rowOf(int trackId) {
    return rows_[static_cast<std::size_t>(historyRowOf(trackId))];
}

void SparseHistory::forgetSearches(int trackId) {
    HistoryRow(rowOf(trackId).data(), 0).forgetSearches();
}

void SparseHistory::prepare(int trackId, int capacity) {
    std::vector<std::int32_t>& row = rowOf(trackId);
    row.resize(std::max(row.size(), HistoryRow::length(capacity)));
}

HistoryLoan::HistoryLoan(VdFaceAPI& api, SparseHistory& history) : api_(api), own_(api.searchHistory) {
    std::transform(history.rows_.begin(), history.rows_.end(), history.lent_.begin(),
                   [](std::vector<std::int32_t>& row) { return row.data(); });
    api.searchHistory = history.lent_.data();
}

} // namespace veldan
