// The results of a search and the cursor over them, written once for every store: a query
// counts its matches when it starts and hands out their keys a window at a time as the cursor
// moves, so a page of 25 out of thousands of matches reads about 25 keys. Each further window
// of a walk is twice the last, so walking n results costs O(n) however far the walk goes.
//
// When the store says the data changed since the count, or before the open changes records
// itself (complete()), every remaining key is read at once and kept: a walk that deletes as it
// goes visits each result once, and records it adds are not results.
#pragma once

#include "Store.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kiv::db
{

class ResultCursor
{
public:
    // Reads one row into the open's record buffer; false when the row no longer exists, which
    // the moves pass over.
    using RowLoader = std::function<bool(const RowKey& key)>;

    bool hasResults() const { return bool(myQuery); }
    void start(std::unique_ptr<ResultQuery> query);
    void clear();
    size_t count() const { return myCount; }

    // 0, or 'MBOF'/'MEOF' when there is no such record; the position stays where it was then.
    uint32_t moveFirst(const RowLoader& load);
    uint32_t moveLast(const RowLoader& load);
    uint32_t moveNext(const RowLoader& load);
    uint32_t movePrevious(const RowLoader& load);
    uint32_t jump(size_t offset, const RowLoader& load);
    // To the result whose key is `key`; false when it is not among the results.
    bool moveToKey(const RowKey& key, const RowLoader& load);
    bool positioned() const { return bool(myPosition); }

    // Reads every remaining key now and keeps them.
    void complete();
    // Every key, in order (completes the results).
    const std::vector<RowKey>& keys();

private:
    std::optional<RowKey> keyAt(size_t index, int step);
    uint32_t settleAt(size_t index, int step, uint32_t noRecord, const RowLoader& load);

    std::unique_ptr<ResultQuery> myQuery;
    size_t myCount = 0;
    bool myComplete = false; // myKeys holds them all
    size_t myWindowStart = 0;
    std::vector<RowKey> myKeys;
    std::optional<size_t> myPosition;
};

} // namespace kiv::db
