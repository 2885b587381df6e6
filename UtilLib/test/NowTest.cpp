#include <Time/Now.h>

#include <gtest/gtest.h>

using Kesa::Util::now;
using Kesa::Util::TestClock;

namespace
{

TEST(NowTest, WithoutATestClockTimeIsThatOfTheMonotonicClock)
{
    const Poco::Clock before;
    const Poco::Clock reading = now();
    const Poco::Clock after;
    EXPECT_LE(before, reading);
    EXPECT_LE(reading, after);
}

TEST(NowTest, ATestClockStandsStillAtThePresentMoment)
{
    const Poco::Clock before;
    TestClock clock;
    const Poco::Clock stopped = now();
    EXPECT_LE(before, stopped);
    while (Poco::Clock() - stopped < 2000)
    {
    }
    EXPECT_EQ(now(), stopped);
}

TEST(NowTest, ATestClockMovesByHand)
{
    TestClock clock;
    const Poco::Clock start = now();
    clock.advance(5);
    EXPECT_EQ(now() - start, 5000);
    clock.advanceMicroseconds(7);
    EXPECT_EQ(now() - start, 5007);
}

TEST(NowTest, TheRealClockRunsAgainAfterATestClock)
{
    {
        TestClock clock;
        clock.advance(3'600'000);
        EXPECT_GT(now(), Poco::Clock());
    }
    const Poco::Clock reading = now();
    EXPECT_LE(reading, Poco::Clock());
}

} // namespace
