// Login failure counting.
#include "http/LoginThrottle.h"

#include <algorithm>

namespace kiv
{

LoginThrottle::LoginThrottle(const Settings& settings) : mySettings(settings) {}

int LoginThrottle::blockedSeconds(const std::string& key, Clock::time_point now)
{
    auto found = myEntries.find(key);
    if (found == myEntries.end() || found->second.blockedUntil <= now)
        return 0;
    auto left = std::chrono::ceil<std::chrono::seconds>(found->second.blockedUntil - now);
    return static_cast<int>(std::max<long long>(1, left.count()));
}

LoginThrottle::Failure LoginThrottle::recordFailure(const std::string& key, Clock::time_point now)
{
    auto found = myEntries.find(key);
    if (found != myEntries.end() && now - found->second.lastFailure > mySettings.memory &&
        found->second.blockedUntil <= now)
    {
        myEntries.erase(found);
        found = myEntries.end();
    }
    if (found == myEntries.end())
    {
        makeRoom(now);
        found = myEntries.emplace(key, Entry{}).first;
    }
    Entry& entry = found->second;
    entry.lastFailure = now;
    Failure failure;
    failure.failures = ++entry.failures;
    failure.firstOfBurst = entry.failures == 1;
    if (entry.failures >= mySettings.maxFailures)
    {
        // After a block one more failure blocks again, until the key has been quiet for the
        // memory time.
        entry.blockedUntil = now + mySettings.blockTime;
        entry.failures = mySettings.maxFailures - 1;
        failure.blockedNow = true;
        return failure;
    }
    if (entry.failures > 1)
    {
        auto delay = mySettings.firstDelay * (1LL << std::min(entry.failures - 2, 20));
        failure.delay = std::min<std::chrono::milliseconds>(delay, mySettings.maxDelay);
    }
    return failure;
}

void LoginThrottle::recordSuccess(const std::string& key, Clock::time_point now)
{
    auto found = myEntries.find(key);
    if (found != myEntries.end() && found->second.blockedUntil <= now)
        myEntries.erase(found);
}

// Drops forgotten keys; when all are recent, the one whose last failure is oldest.
void LoginThrottle::makeRoom(Clock::time_point now)
{
    if (myEntries.size() < mySettings.maxKeys)
        return;
    for (auto entry = myEntries.begin(); entry != myEntries.end();)
    {
        bool forgotten =
            now - entry->second.lastFailure > mySettings.memory && entry->second.blockedUntil <= now;
        entry = forgotten ? myEntries.erase(entry) : std::next(entry);
    }
    if (myEntries.size() < mySettings.maxKeys)
        return;
    auto oldest = std::min_element(myEntries.begin(), myEntries.end(),
                                   [](const auto& a, const auto& b)
                                   { return a.second.lastFailure < b.second.lastFailure; });
    myEntries.erase(oldest);
}

} // namespace kiv
