// How often one client address may write from a region's public pages: a bucket per address
// that holds a minute's allowance and refills evenly, so a person filling in forms never meets
// the limit while a flood of posts is cut to the rate. The table has a fixed size, so a flood of
// new addresses cannot grow it. Each worker process keeps its own.
#pragma once

#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <unordered_map>

namespace kiv
{

class WriteRateLimiter
{
public:
    using Clock = std::chrono::steady_clock;

    struct Decision
    {
        int retryAfterSeconds = 0; // 0: the write may go ahead (and was counted)
        bool firstRefusal = false; // the first refusal since this address last wrote (log it)
    };

    // perMinute 0: no limit.
    explicit WriteRateLimiter(int perMinute, size_t maxAddresses = 10000);

    Decision admit(const std::string& address, Clock::time_point now);
    size_t trackedAddresses() const;

private:
    struct Bucket
    {
        double allowance = 0;
        Clock::time_point updated;
        bool refusing = false;
    };

    double allowanceAt(const Bucket& bucket, Clock::time_point now) const;
    void makeRoom(Clock::time_point now);

    const int myPerMinute;
    const size_t myMaxAddresses;
    mutable std::mutex myMutex;
    std::unordered_map<std::string, Bucket> myBuckets;
};

} // namespace kiv
