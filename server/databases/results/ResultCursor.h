// The results of a search and the cursor over them, written once for every store: a query
// counts its matches when it starts and hands out their keys a window at a time as the cursor
// moves, so a page of 25 out of thousands of matches reads about 25 keys. Each further window
// of a walk is twice the last, so walking n results costs O(n) however far the walk goes. A
// store that reads the rows' values with their keys (a data source) hands them out with the
// window, and a page then costs it one round trip; other stores' rows are read by key.
//
// moveFirst only notes that the cursor is before the first result; the record is read when
// it is needed, so a page that jumps on at once reads only the window it jumps to.
//
// When the store says the data changed since the count, or before the open changes records
// itself (complete()), every remaining key is read at once and kept, and rows are read by key
// from then on: a walk that deletes as it goes visits each result once, and records it adds
// are not results.
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
    // Puts one result into the open's record buffer: `values` when the window holds them, else
    // the row read by its key; false when the row no longer exists, which the moves pass over.
    using RowLoader = std::function<bool(const RowKey& key, const std::vector<FieldValue>* values)>;

    bool hasResults() const { return bool(myQuery); }
    void start(std::unique_ptr<ResultQuery> query);
    void clear();
    size_t count() const { return myCount; }

    // 0, or 'MBOF'/'MEOF' when there is no such record; the position stays where it was then.
    // moveFirst answers from the count and leaves the record to settle().
    uint32_t moveFirst();
    bool pending() const { return myFirstPending; }
    // Reads the record that moveFirst went to; 'MEOF' when none of the results exists any more.
    uint32_t settle(const RowLoader& load);
    uint32_t moveLast(const RowLoader& load);
    uint32_t moveNext(const RowLoader& load);
    uint32_t movePrevious(const RowLoader& load);
    uint32_t jump(size_t offset, const RowLoader& load);
    // To the result whose key is `key`; false when it is not among the results.
    bool moveToKey(const RowKey& key, const RowLoader& load);
    bool positioned() const { return myPosition || myFirstPending; }

    // Reads every remaining key now and keeps them.
    void complete();
    // Every key, in order (completes the results).
    const std::vector<RowKey>& keys();

private:
    // Where the result `index` is in myKeys (and myRows), reading its window first when it is
    // not there; nullopt past the results.
    std::optional<size_t> slotOf(size_t index, int step);
    uint32_t settleAt(size_t index, int step, uint32_t noRecord, const RowLoader& load);

    std::unique_ptr<ResultQuery> myQuery;
    size_t myCount = 0;
    bool myComplete = false; // myKeys holds them all
    size_t myWindowStart = 0;
    std::vector<RowKey> myKeys;
    std::vector<std::vector<FieldValue>> myRows; // the window's values, when the store read them
    std::optional<size_t> myPosition;
    bool myFirstPending = false;
};

} // namespace kiv::db
