#include "PeriodicSubscriptionObject.h"

#include "Delivery.h"
#include "LoadedNotification.h"

#include <CapturedLog.h>
#include <Time/Timestamp.h>

#include <gtest/gtest.h>

#include <vector>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Poco::Message;

namespace
{

typedef SubscriptionObject::NotificationPtr NotificationPtr;

class OpenSubscription: public PeriodicSubscriptionObject
{
public:
    using PeriodicSubscriptionObject::PeriodicSubscriptionObject;
    using SubscriptionObject::getLastNotificationData;
    using SubscriptionObject::loadNotificationData;
};

/// A subscription with an interval of 1 s and no updater: the test makes the attempts of the worker itself.
class PeriodicSubscriptionObjectTest: public testing::Test
{
protected:
    PeriodicSubscriptionObjectTest(): subscription(connection.proxy(), subscribeTo("/shop/orders/1", INTERVAL))
    {
        subscription.registerDataSource(source);
    }

    void begin()
    {
        subscription.initialUpdate();
        EXPECT_EQ(delivered(), Amounts{0});
    }

    NotificationPtr change(int amount)
    {
        source.deliver(R"({"amount":)" + std::to_string(amount) + "}");
        return subscription.subscribedDataChanged(nullptr);
    }

    void attempt() { EXPECT_EQ(subscription.tryToSendUpdate(), SubscriptionObject::KEEP_SCHEDULED); }

    std::vector<int> delivered()
    {
        std::vector<int> amounts;
        while (connection.hasMessage())
            amounts.push_back(connection.nextMessage()->getObject("data")->getValue<int>("amount"));
        return amounts;
    }

    typedef std::vector<int> Amounts;
    static constexpr const char* INTERVAL = R"("interval":1000)";

    TestClock clock;
    LoopbackConnection connection;
    ScriptedSource source{R"({"amount":0})"};
    OpenSubscription subscription;
};

} // namespace

TEST_F(PeriodicSubscriptionObjectTest, UnchangedDataIsSentAtEachIntervalWithANewTimestamp)
{
    begin();
    std::vector<Poco::Int64> stamps;
    for (int tick = 0; tick < 3; ++tick)
    {
        clock.advance(1000);
        const Poco::Int64 before = Timestamp::createTimestamp().asMilliseconds();
        while (Timestamp::createTimestamp().asMilliseconds() == before) // so that two stamps can differ
            std::this_thread::yield();
        attempt();
        const auto message = connection.nextMessage();
        EXPECT_EQ(message->getObject("data")->getValue<int>("amount"), 0);
        stamps.push_back(message->getValue<Poco::Int64>("timestamp"));
    }
    EXPECT_LT(stamps[0], stamps[1]);
    EXPECT_LT(stamps[1], stamps[2]);
    EXPECT_EQ(source.loads(), 1) << "a tick loads nothing";
}

TEST_F(PeriodicSubscriptionObjectTest, ThreeChangesInOneIntervalAreOneSendWithTheLastState)
{
    begin();
    change(1);
    change(2);
    change(3);
    clock.advance(1000);
    attempt();
    EXPECT_EQ(delivered(), Amounts{3});
    EXPECT_EQ(source.loads(), 4) << "each change loads";
    clock.advance(1000);
    attempt();
    EXPECT_EQ(delivered(), Amounts{3}) << "the same state again";
}

TEST_F(PeriodicSubscriptionObjectTest, AChangeNeverCausesASendOutsideTheInterval)
{
    begin();
    clock.advanceMicroseconds(999999);
    CapturedLog log;
    change(1);
    EXPECT_EQ(log.count(Message::PRIO_WARNING), 0U) << "it asks for nothing";
    attempt();
    EXPECT_EQ(delivered(), Amounts{});
    clock.advanceMicroseconds(1);
    attempt();
    EXPECT_EQ(delivered(), Amounts{1}) << "exactly the interval passes";
    attempt();
    EXPECT_EQ(delivered(), Amounts{});
}

TEST_F(PeriodicSubscriptionObjectTest, TheFirstTickComesOneIntervalAfterTheFirstNotification)
{
    begin();
    EXPECT_EQ(subscription.getIdleTime(), 1000U);
    clock.advance(999);
    attempt();
    EXPECT_EQ(delivered(), Amounts{});
    clock.advance(1);
    attempt();
    EXPECT_EQ(delivered(), Amounts{0});
}

TEST_F(PeriodicSubscriptionObjectTest, ALateTickShiftsThoseAfterIt)
{
    begin();
    clock.advance(1400);
    attempt();
    EXPECT_EQ(delivered(), Amounts{0});
    EXPECT_EQ(subscription.getIdleTime(), 1000U);
}

TEST_F(PeriodicSubscriptionObjectTest, WithNothingToSendItStaysScheduledWithoutAWord)
{
    CapturedLog log;
    attempt();
    EXPECT_EQ(log.entries().size(), 0U);
    EXPECT_EQ(subscription.getIdleTime(), 0U);
    EXPECT_EQ(delivered(), Amounts{});
}

TEST_F(PeriodicSubscriptionObjectTest, IdleTimeIsInWholeMilliseconds)
{
    subscription.initialUpdate();
    clock.advanceMicroseconds(999001);
    EXPECT_EQ(subscription.getIdleTime(), 0U);
    clock.advance(5000);
    EXPECT_EQ(subscription.getIdleTime(), 0U);
}

TEST_F(PeriodicSubscriptionObjectTest, TheLongestIntervalFitsTheIdleTime)
{
    PeriodicSubscriptionObject longest(connection.proxy(), subscribeTo("/shop", R"("interval":2147483647)"));
    longest.registerDataSource(source);
    longest.initialUpdate();
    EXPECT_EQ(longest.getIdleTime(), 2147483647U);
}

TEST_F(PeriodicSubscriptionObjectTest, AFailedLoadRepeatsThePreviousNotification)
{
    begin();
    change(1);
    clock.advance(1000);
    attempt();
    EXPECT_EQ(delivered(), Amounts{1});
    source.fail();
    CapturedLog log;
    EXPECT_TRUE(subscription.subscribedDataChanged(nullptr).isNull());
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Failed to retrieve subscription data for subscription /shop/orders/1"),
              1U);
    clock.advance(1000);
    attempt();
    EXPECT_EQ(delivered(), Amounts{1});
}

TEST_F(PeriodicSubscriptionObjectTest, AChangeBeforeTheFirstNotificationIsLoadedAndSentByTheTick)
{
    EXPECT_FALSE(change(1).isNull());
    attempt();
    EXPECT_EQ(delivered(), Amounts{1}) << "nothing was sent before, so the interval does not hold it back";
}

TEST_F(PeriodicSubscriptionObjectTest, AFailedWriteCountsAsATick)
{
    begin();
    connection.breakConnection();
    clock.advance(1000);
    CapturedLog log;
    attempt();
    attempt();
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Failed to send websocketSubscriptionUpdate. Unknown exception"), 1U);
    EXPECT_EQ(subscription.getIdleTime(), 1000U);
}

TEST_F(PeriodicSubscriptionObjectTest, ANewSchedulerIsAskedAtOnceAlsoWhereThereIsNone)
{
    CapturedLog log;
    subscription.setScheduler(nullptr);
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(
        log.count(Message::PRIO_WARNING, "schedule: scheduler not set, subscription object is not fully initialised"),
        1U);
}

TEST_F(PeriodicSubscriptionObjectTest, ACarriedNotificationSavesTheLoadAndHasItsOwnEvent)
{
    OpenSubscription neighbour(connection.proxy(), subscribeTo("/shop/orders/1#other", INTERVAL));
    ScriptedSource neighboursSource(R"({"amount":5})");
    neighbour.registerDataSource(neighboursSource);
    begin();
    const NotificationPtr result = subscription.subscribedDataChanged(neighbour.loadNotificationData());
    EXPECT_EQ(source.loads(), 1);
    EXPECT_EQ(result->getEvent().toString(), "/shop/orders/1");
    clock.advance(1000);
    attempt();
    const auto message = connection.nextMessage();
    EXPECT_EQ(message->getValue<std::string>("event"), "/shop/orders/1");
    EXPECT_EQ(message->getObject("data")->getValue<int>("amount"), 5);
}

TEST_F(PeriodicSubscriptionObjectTest, TheObjectThatTicksStampIsNeverTheOneThatNeighboursCarry)
{
    begin();
    const NotificationPtr result = change(1);
    clock.advance(1000);
    attempt();
    EXPECT_EQ(result->getTimestamp(), 0) << "only the subscription's own copy is stamped";
    EXPECT_TRUE(connection.nextMessage()->has("timestamp"));
}

TEST_F(PeriodicSubscriptionObjectTest, AStateIsNotReplacedByAnOlderOne)
{
    begin();
    source.deliver(R"({"amount":1})");
    const NotificationPtr older = subscription.loadNotificationData();
    change(2);
    subscription.subscribedDataChanged(older);
    clock.advance(1000);
    attempt();
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(PeriodicSubscriptionObjectTest, AStateThatIsOlderThanTheFirstNotificationIsNotSentAfterIt)
{
    change(1);
    source.deliver(R"({"amount":2})");
    subscription.initialUpdate();
    clock.advance(1000);
    attempt();
    EXPECT_EQ(delivered(), (Amounts{2, 2}));
}

TEST_F(PeriodicSubscriptionObjectTest, LoadsWithoutItsLock)
{
    bool isFree = false;
    source.onLoad([&] { isFree = runsElsewhere([&] { subscription.getLastUpdate(); }); });
    change(1);
    EXPECT_TRUE(isFree);
}

TEST_F(PeriodicSubscriptionObjectTest, AnExceptionOfTheDataSourceGoesToTheReporter)
{
    begin();
    source.onLoad([] { throw std::runtime_error("database gone"); });
    EXPECT_THROW(subscription.subscribedDataChanged(nullptr), std::runtime_error);
    clock.advance(1000);
    attempt();
    EXPECT_EQ(delivered(), Amounts{0});
}
