// Per-address write allowance.
#include "region/WriteRateLimiter.h"

#include <algorithm>
#include <cmath>

namespace kiv
{

WriteRateLimiter::WriteRateLimiter(int perMinute, size_t maxAddresses)
    : myPerMinute(std::max(perMinute, 0)), myMaxAddresses(std::max<size_t>(maxAddresses, 1))
{
}

double WriteRateLimiter::allowanceAt(const Bucket& bucket, Clock::time_point now) const
{
    const double seconds = std::chrono::duration<double>(now - bucket.updated).count();
    if (seconds <= 0)
        return bucket.allowance;
    return std::min<double>(myPerMinute, bucket.allowance + seconds * myPerMinute / 60.0);
}

WriteRateLimiter::Decision WriteRateLimiter::admit(const std::string& address, Clock::time_point now)
{
    Decision decision;
    if (myPerMinute == 0)
        return decision;
    std::lock_guard<std::mutex> lock(myMutex);
    auto found = myBuckets.find(address);
    if (found == myBuckets.end())
    {
        makeRoom(now);
        found = myBuckets.emplace(address, Bucket{double(myPerMinute), now, false}).first;
    }
    Bucket& bucket = found->second;
    bucket.allowance = allowanceAt(bucket, now);
    bucket.updated = std::max(bucket.updated, now);
    if (bucket.allowance >= 1)
    {
        bucket.allowance -= 1;
        bucket.refusing = false;
        return decision;
    }
    const double wait = (1 - bucket.allowance) * 60.0 / myPerMinute;
    decision.retryAfterSeconds = std::max(1, static_cast<int>(std::ceil(wait)));
    decision.firstRefusal = !bucket.refusing;
    bucket.refusing = true;
    return decision;
}

size_t WriteRateLimiter::trackedAddresses() const
{
    std::lock_guard<std::mutex> lock(myMutex);
    return myBuckets.size();
}

// Forgets the addresses whose allowance is whole again; when none is, the one quiet longest.
void WriteRateLimiter::makeRoom(Clock::time_point now)
{
    if (myBuckets.size() < myMaxAddresses)
        return;
    for (auto entry = myBuckets.begin(); entry != myBuckets.end();)
        entry = allowanceAt(entry->second, now) >= myPerMinute ? myBuckets.erase(entry) : std::next(entry);
    if (myBuckets.size() < myMaxAddresses)
        return;
    myBuckets.erase(std::min_element(myBuckets.begin(), myBuckets.end(),
                                     [](const auto& a, const auto& b)
                                     { return a.second.updated < b.second.updated; }));
}

} // namespace kiv
