// The connections of one worker: how many there are in all and from each client address, and
// which of them are idle (waiting for the first byte of a request). When the worker is at its
// limit, the connection idle the longest makes room for a new one, so that idle connections,
// however many, cannot lock out new clients.
#pragma once

#include <chrono>
#include <cstddef>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace kiv
{

class ConnectionTracker
{
public:
    using Clock = std::chrono::steady_clock;

    class Member
    {
    public:
        virtual ~Member();
        // Close now: the worker needs the room.
        virtual void evict() = 0;
        // The worker stops: close if idle between requests; otherwise finish the request first.
        virtual void stopServing() = 0;

    private:
        friend class ConnectionTracker;
        ConnectionTracker* myTracker = nullptr;
        std::string myAddress;
        bool myIdle = true;
        Clock::time_point myIdleSince;
    };

    enum class Admission
    {
        Admitted,
        AddressFull, // answer 429
        WorkerFull   // answer 503: nothing idle could make room
    };

    ConnectionTracker(size_t maxConnections, size_t maxPerAddress);

    Admission admit(Member& member, const std::string& address, Clock::time_point now);
    // Called by a member that closes (also done by its destructor).
    void leave(Member& member);
    void setIdle(Member& member, bool idle, Clock::time_point now);
    size_t size() const { return myMembers.size(); }
    size_t evictions() const { return myEvictions; }
    std::vector<Member*> members() const { return {myMembers.begin(), myMembers.end()}; }

private:
    size_t myMaxConnections;
    size_t myMaxPerAddress;
    std::unordered_set<Member*> myMembers;
    std::unordered_map<std::string, size_t> myPerAddress;
    size_t myEvictions = 0;
};

} // namespace kiv
