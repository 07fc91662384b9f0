// Counting, windows of keys, and the moves over them.
#include "results/ResultCursor.h"

#include "KivModuleInterface.h"

#include <algorithm>
#include <cstdint>

namespace kiv::db
{

namespace
{
// The first window of keys a walk reads.
constexpr size_t kFirstWindow = 64;
} // namespace

void ResultCursor::start(std::unique_ptr<ResultQuery> query)
{
    myQuery = std::move(query);
    myCount = myQuery->count();
    myComplete = myCount == 0;
    myWindowStart = 0;
    myKeys.clear();
    myPosition.reset();
}

void ResultCursor::clear()
{
    myQuery.reset();
    myCount = 0;
    myComplete = false;
    myKeys.clear();
    myPosition.reset();
}

void ResultCursor::complete()
{
    // Also when the data changed since the count: the results then become the matches as
    // they are now.
    if (!myQuery || myComplete)
        return;
    std::vector<RowKey> all;
    myQuery->fetch(0, SIZE_MAX, all);
    // The position keeps pointing at the same record where it can.
    if (myPosition && *myPosition >= myWindowStart && *myPosition - myWindowStart < myKeys.size())
    {
        const RowKey& current = myKeys[*myPosition - myWindowStart];
        const auto found = std::find(all.begin(), all.end(), current);
        myPosition = found == all.end() ? std::optional<size_t>() : size_t(found - all.begin());
    }
    myKeys = std::move(all);
    myCount = myKeys.size();
    myWindowStart = 0;
    myComplete = true;
}

const std::vector<RowKey>& ResultCursor::keys()
{
    complete();
    return myKeys;
}

std::optional<RowKey> ResultCursor::keyAt(size_t index, int step)
{
    if (index >= myCount)
        return std::nullopt;
    if (!myComplete && (index < myWindowStart || index - myWindowStart >= myKeys.size()))
    {
        const size_t size = std::max(kFirstWindow, myKeys.size() * 2);
        const size_t start = step >= 0 ? index : (index + 1 >= size ? index + 1 - size : 0);
        std::vector<RowKey> window;
        if (!myQuery->fetch(start, size, window))
            complete();
        else
        {
            myWindowStart = start;
            myKeys = std::move(window);
            myComplete = start == 0 && myKeys.size() >= myCount;
        }
        if (index >= myCount)
            return std::nullopt;
    }
    const size_t offset = index - (myComplete ? 0 : myWindowStart);
    return offset < myKeys.size() ? std::optional<RowKey>(myKeys[offset]) : std::nullopt;
}

uint32_t ResultCursor::settleAt(size_t index, int step, uint32_t noRecord, const RowLoader& load)
{
    // Records deleted since the search are passed over.
    while (const auto key = keyAt(index, step))
    {
        if (load(*key))
        {
            myPosition = index;
            return kKivResult_Success;
        }
        if (step < 0 && index == 0)
            break;
        index = step > 0 ? index + 1 : index - 1;
    }
    return noRecord;
}

uint32_t ResultCursor::moveFirst(const RowLoader& load)
{
    return settleAt(0, +1, kKivResult_EndOfFile, load);
}

uint32_t ResultCursor::moveLast(const RowLoader& load)
{
    if (myCount == 0)
        return kKivResult_EndOfFile;
    return settleAt(myCount - 1, -1, kKivResult_EndOfFile, load);
}

uint32_t ResultCursor::moveNext(const RowLoader& load)
{
    if (!myPosition)
        return moveFirst(load);
    return settleAt(*myPosition + 1, +1, kKivResult_EndOfFile, load);
}

uint32_t ResultCursor::movePrevious(const RowLoader& load)
{
    if (!myPosition)
        return moveLast(load);
    if (*myPosition == 0)
        return kKivResult_BeginningOfFile;
    return settleAt(*myPosition - 1, -1, kKivResult_BeginningOfFile, load);
}

uint32_t ResultCursor::jump(size_t offset, const RowLoader& load)
{
    return settleAt(offset, +1, kKivResult_EndOfFile, load);
}

bool ResultCursor::moveToKey(const RowKey& key, const RowLoader& load)
{
    const auto& all = keys();
    for (size_t index = 0; index < all.size(); ++index)
        if (all[index] == key && load(all[index]))
        {
            myPosition = index;
            return true;
        }
    return false;
}

} // namespace kiv::db
