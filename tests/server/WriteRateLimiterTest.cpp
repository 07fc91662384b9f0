// The write allowance of public pages: a minute's worth at once, then the rate, per address,
// in a table that a flood of addresses cannot grow.
#include "region/WriteRateLimiter.h"

#include <gtest/gtest.h>

namespace kiv
{
namespace
{

using Clock = WriteRateLimiter::Clock;
using std::chrono::seconds;

TEST(WriteRateLimiter, AMinutesAllowanceThenTheRateWithRetryAfter)
{
    WriteRateLimiter limiter(6); // one every ten seconds
    const Clock::time_point start{};
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(limiter.admit("192.0.2.1", start).retryAfterSeconds, 0) << i;
    auto refused = limiter.admit("192.0.2.1", start);
    EXPECT_EQ(refused.retryAfterSeconds, 10);
    EXPECT_TRUE(refused.firstRefusal);
    refused = limiter.admit("192.0.2.1", start + seconds(4));
    EXPECT_EQ(refused.retryAfterSeconds, 6);
    EXPECT_FALSE(refused.firstRefusal) << "a flood is logged once";
    EXPECT_EQ(limiter.admit("192.0.2.2", start).retryAfterSeconds, 0) << "other addresses have their own";
    EXPECT_EQ(limiter.admit("192.0.2.1", start + seconds(10)).retryAfterSeconds, 0);
    refused = limiter.admit("192.0.2.1", start + seconds(10));
    EXPECT_EQ(refused.retryAfterSeconds, 10);
    EXPECT_TRUE(refused.firstRefusal) << "after a write, a new flood is logged again";
    // A quiet minute gives the whole allowance back, never more.
    for (int i = 0; i < 6; ++i)
        EXPECT_EQ(limiter.admit("192.0.2.1", start + seconds(600)).retryAfterSeconds, 0) << i;
    EXPECT_GT(limiter.admit("192.0.2.1", start + seconds(600)).retryAfterSeconds, 0);
    // A clock that seems to go back does not refill.
    EXPECT_GT(limiter.admit("192.0.2.1", start).retryAfterSeconds, 0);
}

TEST(WriteRateLimiter, NoLimitAtZeroAndABoundedTable)
{
    WriteRateLimiter unlimited(0);
    for (int i = 0; i < 1000; ++i)
        ASSERT_EQ(unlimited.admit("192.0.2.1", Clock::time_point{}).retryAfterSeconds, 0);
    EXPECT_EQ(unlimited.trackedAddresses(), 0u);

    WriteRateLimiter limiter(1, 100);
    const Clock::time_point start{};
    EXPECT_EQ(limiter.admit("203.0.113.9", start).retryAfterSeconds, 0);
    for (int i = 0; i < 1000; ++i)
        limiter.admit("2001:db8::" + std::to_string(i), start + seconds(1));
    EXPECT_LE(limiter.trackedAddresses(), 100u);
    // The address quiet longest was forgotten first: it starts again with a full allowance.
    EXPECT_EQ(limiter.admit("203.0.113.9", start + seconds(2)).retryAfterSeconds, 0);
}

} // namespace
} // namespace kiv
