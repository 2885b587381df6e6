#include <Time/Timestamp.h>

#include <gtest/gtest.h>

#include <type_traits>

using Kesa::Timestamp;

namespace
{

static_assert(std::is_same_v<Timestamp::timestamp_t, Poco::Timestamp::TimeDiff>);
static_assert(!std::is_constructible_v<Timestamp, int64_t>);

constexpr int64_t SECOND = 1'000'000;

/// Leaves the process with an origin of this moment.
class TimestampTest: public ::testing::Test
{
protected:
    ~TimestampTest() override { Timestamp::initSystemTime(Poco::Timestamp()); }
};

TEST_F(TimestampTest, AGivenTimeIsKept)
{
    const Timestamp timestamp = Timestamp::createTimestamp(1'234'567);
    EXPECT_EQ(static_cast<Timestamp::timestamp_t>(timestamp), 1'234'567);
    EXPECT_EQ(timestamp.asMilliseconds(), 1'234);
}

TEST_F(TimestampTest, MillisecondsAreTruncatedTowardsZero)
{
    EXPECT_EQ(Timestamp::createTimestamp(999).asMilliseconds(), 0);
    EXPECT_EQ(Timestamp::createTimestamp(1000).asMilliseconds(), 1);
    EXPECT_EQ(Timestamp::createTimestamp(-1999).asMilliseconds(), -1);
}

TEST_F(TimestampTest, BeforeAnOriginIsSetTimeCountsFromTheLoad)
{
    const Timestamp::timestamp_t elapsed = Timestamp::createTimestamp();
    EXPECT_GE(elapsed, 0);
    EXPECT_LT(elapsed, 3600 * SECOND);
}

TEST_F(TimestampTest, TheOriginMovesAllLaterReadings)
{
    Timestamp::initSystemTime(Poco::Timestamp() - 3600 * SECOND);
    const Timestamp earlier = Timestamp::createTimestamp();
    EXPECT_GE(earlier, 3600 * SECOND);
    EXPECT_LT(earlier, 3660 * SECOND);
    Timestamp::initSystemTime(Poco::Timestamp());
    EXPECT_LT(Timestamp::createTimestamp(), 60 * SECOND);
    EXPECT_GE(earlier, 3600 * SECOND) << "a moment that was taken does not move";
}

TEST_F(TimestampTest, AnOriginInTheFutureGivesNegativeTimes)
{
    Timestamp::initSystemTime(Poco::Timestamp() + 3600 * SECOND);
    EXPECT_LT(Timestamp::createTimestamp(), -3500 * SECOND);
}

} // namespace
