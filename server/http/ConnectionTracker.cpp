// Connection counting and eviction.
#include "http/ConnectionTracker.h"

#include "process/Metrics.h"

namespace kiv
{

ConnectionTracker::Member::~Member()
{
    if (myTracker)
        myTracker->leave(*this);
}

ConnectionTracker::ConnectionTracker(size_t maxConnections, size_t maxPerAddress)
    : myMaxConnections(maxConnections), myMaxPerAddress(maxPerAddress)
{
}

ConnectionTracker::Admission ConnectionTracker::admit(Member& member, const std::string& address,
                                                      Clock::time_point now)
{
    auto count = myPerAddress.find(address);
    if (count != myPerAddress.end() && count->second >= myMaxPerAddress)
        return Admission::AddressFull;
    if (myMembers.size() >= myMaxConnections)
    {
        // A linear search, but only at the limit, over at most the limit's connections.
        Member* oldest = nullptr;
        for (Member* candidate : myMembers)
            if (candidate->myIdle && (!oldest || candidate->myIdleSince < oldest->myIdleSince))
                oldest = candidate;
        if (!oldest)
            return Admission::WorkerFull;
        leave(*oldest);
        ++myEvictions;
        oldest->evict();
    }
    member.myTracker = this;
    member.myAddress = address;
    member.myIdle = true;
    member.myIdleSince = now;
    myMembers.insert(&member);
    ++myPerAddress[address];
    metrics::connectionOpened();
    return Admission::Admitted;
}

void ConnectionTracker::leave(Member& member)
{
    if (member.myTracker != this)
        return;
    member.myTracker = nullptr;
    myMembers.erase(&member);
    metrics::connectionClosed();
    auto count = myPerAddress.find(member.myAddress);
    if (count != myPerAddress.end() && --count->second == 0)
        myPerAddress.erase(count);
}

void ConnectionTracker::setIdle(Member& member, bool idle, Clock::time_point now)
{
    if (idle && !member.myIdle)
        member.myIdleSince = now;
    member.myIdle = idle;
}

} // namespace kiv
