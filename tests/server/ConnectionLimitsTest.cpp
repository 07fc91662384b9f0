// The parts of the connection layer that keep a worker available under attack: the login
// throttle, the connection count with its eviction of idle connections, the bounded pools and
// the rate-limited log of refusals.
#include "http/ConnectionTracker.h"
#include "http/LoginThrottle.h"
#include "http/RefusalLog.h"
#include "http/WorkerPool.h"

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>

namespace kiv
{
namespace
{

using std::chrono::milliseconds;
using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

TEST(LoginThrottle, FailuresAreAnsweredEverLaterThenBlocked)
{
    LoginThrottle::Settings settings;
    settings.maxFailures = 6;
    LoginThrottle throttle(settings);
    Clock::time_point now{};
    std::vector<long long> delays;
    LoginThrottle::Failure failure;
    for (int i = 0; i < 5; ++i)
    {
        EXPECT_EQ(throttle.blockedSeconds("address 10.0.0.1", now), 0);
        failure = throttle.recordFailure("address 10.0.0.1", now);
        delays.push_back(failure.delay.count());
        EXPECT_EQ(failure.firstOfBurst, i == 0);
        EXPECT_FALSE(failure.blockedNow);
    }
    EXPECT_EQ(delays, (std::vector<long long>{0, 250, 500, 1000, 2000}));
    EXPECT_TRUE(throttle.recordFailure("address 10.0.0.1", now).blockedNow);
    EXPECT_EQ(throttle.blockedSeconds("address 10.0.0.1", now), 60);
    EXPECT_EQ(throttle.blockedSeconds("address 10.0.0.1", now + seconds(59) + milliseconds(100)), 1);
    EXPECT_EQ(throttle.blockedSeconds("address 10.0.0.2", now), 0) << "other keys are not affected";

    // After the block, one more failure blocks again.
    now += seconds(61);
    EXPECT_EQ(throttle.blockedSeconds("address 10.0.0.1", now), 0);
    EXPECT_TRUE(throttle.recordFailure("address 10.0.0.1", now).blockedNow);
}

TEST(LoginThrottle, SuccessAndQuietTimeForgetFailures)
{
    LoginThrottle::Settings settings;
    LoginThrottle throttle(settings);
    Clock::time_point now{};
    throttle.recordFailure("user main/admin", now);
    throttle.recordFailure("user main/admin", now);
    throttle.recordSuccess("user main/admin", now);
    EXPECT_TRUE(throttle.recordFailure("user main/admin", now).firstOfBurst);
    throttle.recordFailure("user main/admin", now);
    EXPECT_TRUE(throttle.recordFailure("user main/admin", now + settings.memory + seconds(1)).firstOfBurst);
}

TEST(LoginThrottle, TheTableStaysWithinItsSize)
{
    LoginThrottle::Settings settings;
    settings.maxKeys = 3;
    LoginThrottle throttle(settings);
    Clock::time_point now{};
    for (int i = 0; i < 10; ++i)
        throttle.recordFailure("address 10.0.0." + std::to_string(i), now + seconds(i));
    EXPECT_EQ(throttle.trackedKeys(), 3u);
    EXPECT_FALSE(throttle.recordFailure("address 10.0.0.9", now + seconds(10)).firstOfBurst)
        << "the newest keys are kept";
}

struct FakeConnection : ConnectionTracker::Member
{
    void evict() override { evicted = true; }
    void stopServing() override {}
    bool evicted = false;
};

TEST(ConnectionTracker, LimitsEachAddressAndTheWorker)
{
    ConnectionTracker tracker(3, 2);
    Clock::time_point now{};
    FakeConnection a, b, c, d;
    EXPECT_EQ(tracker.admit(a, "10.0.0.1", now), ConnectionTracker::Admission::Admitted);
    EXPECT_EQ(tracker.admit(b, "10.0.0.1", now), ConnectionTracker::Admission::Admitted);
    EXPECT_EQ(tracker.admit(c, "10.0.0.1", now), ConnectionTracker::Admission::AddressFull);
    EXPECT_EQ(tracker.admit(c, "10.0.0.2", now), ConnectionTracker::Admission::Admitted);
    for (FakeConnection* busy : {&a, &b, &c})
        tracker.setIdle(*busy, false, now);
    EXPECT_EQ(tracker.admit(d, "10.0.0.3", now), ConnectionTracker::Admission::WorkerFull)
        << "nothing idle can make room";
    tracker.leave(a);
    EXPECT_EQ(tracker.admit(d, "10.0.0.1", now), ConnectionTracker::Admission::Admitted)
        << "a closed connection frees its address's count";
    EXPECT_EQ(tracker.size(), 3u);
}

TEST(ConnectionTracker, TheLongestIdleConnectionMakesRoom)
{
    ConnectionTracker tracker(3, 10);
    Clock::time_point now{};
    auto first = std::make_unique<FakeConnection>();
    FakeConnection second, third, newcomer;
    tracker.admit(*first, "10.0.0.1", now);
    tracker.admit(second, "10.0.0.2", now + seconds(1));
    tracker.admit(third, "10.0.0.3", now + seconds(2));
    tracker.setIdle(*first, false, now + seconds(3)); // busy: answering a request
    tracker.setIdle(second, false, now + seconds(3));
    tracker.setIdle(second, true, now + seconds(4)); // idle again, more recently than third
    EXPECT_EQ(tracker.admit(newcomer, "10.0.0.4", now + seconds(5)), ConnectionTracker::Admission::Admitted);
    EXPECT_TRUE(third.evicted);
    EXPECT_FALSE(second.evicted);
    EXPECT_FALSE(first->evicted);
    EXPECT_EQ(tracker.evictions(), 1u);
    first.reset(); // a connection that goes away leaves the count
    EXPECT_EQ(tracker.size(), 2u);
}

TEST(WorkerPool, RunsTasksAndRefusesWhatItsQueueCannotHold)
{
    std::promise<void> started;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::atomic<int> done{0};
    {
        WorkerPool pool(1, 2);
        ASSERT_TRUE(pool.trySubmit(
            [&]
            {
                started.set_value();
                released.wait();
                ++done;
            }));
        started.get_future().wait(); // the only thread is busy now
        EXPECT_TRUE(pool.trySubmit([&] { ++done; }));
        EXPECT_TRUE(pool.trySubmit([&] { ++done; }));
        EXPECT_FALSE(pool.trySubmit([&] { ++done; })) << "two tasks already wait";
        release.set_value();
    } // the pool runs what is queued before its threads end
    EXPECT_EQ(done.load(), 3);
}

TEST(RefusalLog, WritesOneLineOfAKindPerSecond)
{
    RefusalLog log;
    Clock::time_point now{};
    EXPECT_TRUE(log.write(LogKind::Warning, "431", "refused a request", now));
    EXPECT_FALSE(log.write(LogKind::Warning, "431", "refused a request", now + milliseconds(500)));
    EXPECT_TRUE(log.write(LogKind::Warning, "408", "too slow", now + milliseconds(500))) << "another kind";
    EXPECT_TRUE(log.write(LogKind::Warning, "431", "refused a request", now + milliseconds(1001)));
}

} // namespace
} // namespace kiv
