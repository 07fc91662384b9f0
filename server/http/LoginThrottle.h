// Failed logins, counted per key (a client address, or a region's user name): each failure
// after the first is answered a little later than the last, and once a key reaches the limit
// its logins are refused for a while without any password being checked. A key that stays
// quiet long enough is forgotten; the table has a fixed size, so a flood of new keys cannot
// grow it.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>

namespace kiv
{

class LoginThrottle
{
public:
    using Clock = std::chrono::steady_clock;

    struct Settings
    {
        int maxFailures = 10; // then blocked
        std::chrono::seconds blockTime{60};
        std::chrono::seconds memory{15 * 60}; // failures older than this are forgotten
        std::chrono::milliseconds firstDelay{250};
        std::chrono::milliseconds maxDelay{4000};
        size_t maxKeys = 10000;
    };

    struct Failure
    {
        std::chrono::milliseconds delay{0}; // wait this long before answering
        bool firstOfBurst = false;          // the first failure after a quiet time (log it)
        bool blockedNow = false;            // this failure started a block (log it)
        int failures = 0;
    };

    explicit LoginThrottle(const Settings& settings);

    // Seconds until the key may try again; 0 when it may now.
    int blockedSeconds(const std::string& key, Clock::time_point now);
    Failure recordFailure(const std::string& key, Clock::time_point now);
    void recordSuccess(const std::string& key, Clock::time_point now);
    size_t trackedKeys() const { return myEntries.size(); }

private:
    struct Entry
    {
        int failures = 0;
        Clock::time_point lastFailure;
        Clock::time_point blockedUntil;
    };

    void makeRoom(Clock::time_point now);

    Settings mySettings;
    std::unordered_map<std::string, Entry> myEntries;
};

} // namespace kiv
