#include "OnChangeSubscriptionObject.h"

#include "Delivery.h"
#include "LoadedNotification.h"

#include <CapturedLog.h>

#include <Poco/Exception.h>

#include <gtest/gtest.h>

#include <utility>
#include <vector>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Command::WebSocketResponseObject;
using Poco::Message;

namespace
{

typedef SubscriptionObject::NotificationPtr NotificationPtr;

const char* const NO_SCHEDULER = "schedule: scheduler not set, subscription object is not fully initialised";

/// Opens what a test has to see of it.
class OpenSubscription: public OnChangeSubscriptionObject
{
public:
    using OnChangeSubscriptionObject::OnChangeSubscriptionObject;
    using SubscriptionObject::getLastNotificationData;
    using SubscriptionObject::loadNotificationData;
};

/// A subscription with an update limit of 100 ms and no updater: the test makes the attempts of the worker itself, so
/// that each request for one shows as the warning that there is no scheduler.
class OnChangeSubscriptionObjectTest: public testing::Test
{
protected:
    void subscribe(const std::string& event = "/shop/orders/1", const std::string& members = R"("updateLimit":100)")
    {
        subscription = new OpenSubscription(connection.proxy(), subscribeTo(event, members));
        subscription->registerDataSource(source);
    }

    void subscribeAndReadFirst(const std::string& event = "/shop/orders/1",
                               const std::string& members = R"("updateLimit":100)")
    {
        subscribe(event, members);
        subscription->initialUpdate();
        connection.nextMessage();
    }

    NotificationPtr change(int amount)
    {
        setAmount(amount);
        return subscription->subscribedDataChanged(nullptr);
    }

    void setAmount(int amount) { source.deliver(R"({"id":"1","amount":)" + std::to_string(amount) + "}"); }

    SubscriptionObject::PostUpdateAction attempt() { return subscription->tryToSendUpdate(); }

    /// The amounts that the client was told since the last call.
    std::vector<int> delivered()
    {
        std::vector<int> amounts;
        while (connection.hasMessage())
            amounts.push_back(connection.nextMessage()->getObject("data")->getValue<int>("amount"));
        return amounts;
    }

    typedef std::vector<int> Amounts;

    /// Looks at the amount, and then another thread changes it and reports that before the load has ended.
    struct ChangingSource: ISubscriptionDataSource
    {
        explicit ChangingSource(OpenSubscription& changed): subscription(changed)
        {
            subscription.registerDataSource(*this);
        }
        bool fetchData(const SubscriptionRequest&, WebSocketResponseObject& response) override
        {
            Poco::JSON::Object::Ptr data = new Poco::JSON::Object;
            data->set("amount", amount);
            response.setData(data);
            if (const int next = std::exchange(changeMeanwhileTo, 0))
            {
                amount = next;
                EXPECT_TRUE(runsElsewhere([this] { subscription.subscribedDataChanged(nullptr); }));
                if (afterwards)
                    std::exchange(afterwards, nullptr)();
            }
            return true;
        }
        OpenSubscription& subscription;
        int amount = 0;
        int changeMeanwhileTo = 0; ///< 0: nothing happens
        std::function<void()> afterwards;
    };

    TestClock clock;
    LoopbackConnection connection;
    ScriptedSource source{R"({"id":"1","amount":0})"};
    Poco::SharedPtr<OpenSubscription> subscription;
};

} // namespace

TEST_F(OnChangeSubscriptionObjectTest, ThreeChangesInsideOneLimitAreOneNotificationWithTheLastState)
{
    subscribeAndReadFirst();
    change(1);
    change(2);
    change(3);
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    EXPECT_EQ(delivered(), Amounts{});
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{3});
}

TEST_F(OnChangeSubscriptionObjectTest, AChangeAfterTheLimitIsSentAtOnceByTheReportingThread)
{
    subscribeAndReadFirst();
    clock.advance(100);
    CapturedLog log;
    const NotificationPtr result = change(1);
    EXPECT_EQ(result->getDataAsJsonObject()->getValue<int>("amount"), 1);
    EXPECT_EQ(delivered(), Amounts{1});
    EXPECT_EQ(log.count(Message::PRIO_WARNING), 0U) << "the worker was not asked";
    const auto entries = log.entries();
    ASSERT_EQ(entries.size(), 4U);
    EXPECT_EQ(entries[1].priority, Message::PRIO_DEBUG);
    EXPECT_EQ(entries[1].text, "OnChangeSubscriptionObject: send update for /shop/orders/1");
    EXPECT_EQ(entries[2].priority, Message::PRIO_TRACE);
    EXPECT_EQ(entries[2].text, "sendUpdate: data is changed - send update");
}

TEST_F(OnChangeSubscriptionObjectTest, ExactlyTheLimitPasses)
{
    subscribeAndReadFirst();
    clock.advanceMicroseconds(99999);
    change(1);
    EXPECT_EQ(delivered(), Amounts{});
    clock.advanceMicroseconds(1);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{1});
}

TEST_F(OnChangeSubscriptionObjectTest, WithoutALimitEachChangeIsSentAtOnce)
{
    subscribeAndReadFirst("/shop/orders/1", R"("updateLimit":0)");
    for (int amount = 1; amount <= 3; ++amount)
        change(amount);
    EXPECT_EQ(delivered(), (Amounts{1, 2, 3}));
}

TEST_F(OnChangeSubscriptionObjectTest, TheDefaultLimitHoldsForARequestWithoutOne)
{
    subscribeAndReadFirst("/shop/orders/1", "");
    clock.advance(99);
    change(1);
    EXPECT_EQ(delivered(), Amounts{});
    EXPECT_EQ(subscription->getIdleTime(), 1U);
}

TEST_F(OnChangeSubscriptionObjectTest, TheFirstChangeIsComparedWithTheFirstNotification)
{
    subscribeAndReadFirst();
    clock.advance(100);
    CapturedLog log;
    change(0);
    EXPECT_EQ(delivered(), Amounts{});
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, "sendUpdate: data is unchanged - skip update"));
    change(1);
    EXPECT_EQ(delivered(), Amounts{1});
}

TEST_F(OnChangeSubscriptionObjectTest, ARestoredStateSendsNothingAndUsesNoBudget)
{
    subscribeAndReadFirst();
    const Poco::Clock first = subscription->getLastUpdate();
    change(1);
    change(0);
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{});
    EXPECT_EQ(subscription->getLastUpdate(), first);
    change(2);
    EXPECT_EQ(delivered(), Amounts{2}) << "at once, since nothing was sent meanwhile";
}

TEST_F(OnChangeSubscriptionObjectTest, InsideTheLimitTheReportingThreadLoadsNothing)
{
    subscribeAndReadFirst();
    CapturedLog log;
    EXPECT_TRUE(change(1).isNull());
    EXPECT_EQ(source.loads(), 1);
    EXPECT_EQ(
        log.count(Message::PRIO_DEBUG, "subscribedDataChanged: can't send update directly - forward it to scheduler"),
        1U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, NO_SCHEDULER), 1U);
}

TEST_F(OnChangeSubscriptionObjectTest, TheWorkerLoadsAheadAndKeepsTheDataUntilTheLimitHasPassed)
{
    subscribeAndReadFirst();
    change(1);
    CapturedLog log;
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    EXPECT_EQ(log.count(Message::PRIO_DEBUG, "sendUpdate: can't send now - keep scheduled."), 1U);
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(source.loads(), 2) << "the first notification and one load for the change";
    EXPECT_EQ(delivered(), Amounts{1});
}

TEST_F(OnChangeSubscriptionObjectTest, ANewChangeDropsWhatTheWorkerHasLoaded)
{
    subscribeAndReadFirst();
    change(1);
    attempt();
    change(2);
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    clock.advance(100);
    attempt();
    EXPECT_EQ(source.loads(), 3);
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(OnChangeSubscriptionObjectTest, WhatANewChangeHasDroppedIsNotSentWhenTheLimitHasPassed)
{
    subscribeAndReadFirst();
    change(1);
    attempt();
    change(2);
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(OnChangeSubscriptionObjectTest, AnAttemptWithoutAChangeWarnsAndLeavesTheQueue)
{
    subscribeAndReadFirst();
    CapturedLog log;
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, "tryToSendUpdate: no change pending."), 1U);
    EXPECT_EQ(source.loads(), 1);
}

TEST_F(OnChangeSubscriptionObjectTest, AChangeBeforeTheFirstNotificationWaitsForIt)
{
    subscribe();
    CapturedLog log;
    EXPECT_TRUE(change(1).isNull());
    EXPECT_EQ(log.count(Message::PRIO_WARNING,
                        "subscribedDataChanged: can't send update yet - subscription is not fully initialised"),
              1U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, NO_SCHEDULER), 1U) << "it asks for the worker";
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, "tryToSendUpdate: subscription is not fully initialised yet."), 1U);
    EXPECT_EQ(source.loads(), 0);

    setAmount(2);
    subscription->initialUpdate();
    EXPECT_EQ(delivered(), Amounts{2});
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{}) << "compared with the first notification";
}

TEST_F(OnChangeSubscriptionObjectTest, ACarriedNotificationBeforeTheFirstOneIsNotPassedOn)
{
    subscribe();
    const NotificationPtr payload = subscription->loadNotificationData();
    EXPECT_TRUE(subscription->subscribedDataChanged(payload).isNull());
}

TEST_F(OnChangeSubscriptionObjectTest, IdleTimeIsTheRestOfTheLimitInWholeMilliseconds)
{
    subscribe();
    EXPECT_EQ(subscription->getIdleTime(), 10U) << "before the first notification the worker looks again soon";
    subscription->initialUpdate();
    EXPECT_EQ(subscription->getIdleTime(), 100U);
    clock.advanceMicroseconds(500);
    EXPECT_EQ(subscription->getIdleTime(), 99U);
    clock.advanceMicroseconds(98501);
    EXPECT_EQ(subscription->getIdleTime(), 0U) << "less than a millisecond is left";
    clock.advance(1000);
    EXPECT_EQ(subscription->getIdleTime(), 0U);
}

TEST_F(OnChangeSubscriptionObjectTest, TheLongestLimitFitsTheIdleTime)
{
    subscribe("/shop/orders/1", R"("updateLimit":2147483647)");
    subscription->initialUpdate();
    EXPECT_EQ(subscription->getIdleTime(), 2147483647U);
}

TEST_F(OnChangeSubscriptionObjectTest, AfterAFailedFirstLoadTheNextChangeIsSentAtOnce)
{
    subscribe();
    source.fail();
    subscription->initialUpdate();
    EXPECT_EQ(subscription->getIdleTime(), 0U);
    change(1);
    EXPECT_EQ(delivered(), Amounts{1});
}

TEST_F(OnChangeSubscriptionObjectTest, ACarriedNotificationSavesTheLoadAndHasItsOwnEvent)
{
    subscribeAndReadFirst("/shop/orders/1#mine");
    OpenSubscription neighbour(connection.proxy(), subscribeTo("/shop/orders/1"));
    ScriptedSource neighboursSource(R"({"id":"1","amount":5})");
    neighbour.registerDataSource(neighboursSource);
    clock.advance(100);
    const NotificationPtr result = subscription->subscribedDataChanged(neighbour.loadNotificationData());
    EXPECT_EQ(source.loads(), 1);
    EXPECT_EQ(result->getEvent().toString(), "/shop/orders/1#mine");
    const auto message = connection.nextMessage();
    EXPECT_EQ(message->getValue<std::string>("event"), "/shop/orders/1#mine");
    EXPECT_EQ(message->getObject("data")->getValue<int>("amount"), 5);
}

TEST_F(OnChangeSubscriptionObjectTest, ACarriedNotificationOfForeignOriginIsServedToo)
{
    subscribeAndReadFirst();
    clock.advance(100);
    NotificationPtr foreign = new WebSocketResponseObject;
    Poco::JSON::Object::Ptr data = new Poco::JSON::Object;
    data->set("amount", 5);
    foreign->setData(data);
    subscription->subscribedDataChanged(foreign);
    EXPECT_EQ(delivered(), Amounts{5});
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE) << "nothing is left to do";
}

TEST_F(OnChangeSubscriptionObjectTest, ACarriedNotificationIsComparedLikeALoadedOne)
{
    subscribeAndReadFirst();
    clock.advance(100);
    const NotificationPtr same = subscription->loadNotificationData();
    EXPECT_EQ(subscription->subscribedDataChanged(same), same) << "unsent, but for the next member to reuse";
    EXPECT_EQ(delivered(), Amounts{});
}

TEST_F(OnChangeSubscriptionObjectTest, ACarriedNotificationInsideTheLimitIsKept)
{
    subscribeAndReadFirst();
    setAmount(4);
    const NotificationPtr payload = subscription->loadNotificationData();
    EXPECT_EQ(subscription->subscribedDataChanged(payload), payload);
    EXPECT_EQ(delivered(), Amounts{});
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{4});
    EXPECT_EQ(source.loads(), 2) << "no load of its own";
}

TEST_F(OnChangeSubscriptionObjectTest, AFailedLoadOfTheReportingThreadIsLeftToTheWorker)
{
    subscribeAndReadFirst();
    clock.advance(100);
    source.fail();
    CapturedLog log(Message::PRIO_INFORMATION);
    EXPECT_TRUE(subscription->subscribedDataChanged(nullptr).isNull());
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "Failed to retrieve subscription data for subscription /shop/orders/1"),
              1U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, NO_SCHEDULER), 1U);
    setAmount(1);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{1});
}

TEST_F(OnChangeSubscriptionObjectTest, AFailedLoadOfTheWorkerDropsTheChangeOnceTheLimitHasPassed)
{
    subscribeAndReadFirst();
    change(1);
    clock.advance(100);
    source.fail();
    CapturedLog log(Message::PRIO_INFORMATION);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(log.entries().size(), 1U) << "the error of the load and nothing more";
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 1U);
    EXPECT_EQ(delivered(), Amounts{});
    attempt();
    EXPECT_EQ(log.count(Message::PRIO_WARNING, "tryToSendUpdate: no change pending."), 1U);
}

TEST_F(OnChangeSubscriptionObjectTest, AFailedLoadOfTheWorkerInsideTheLimitIsTriedAgain)
{
    subscribeAndReadFirst();
    change(1);
    source.fail();
    const CapturedLog log(Message::PRIO_INFORMATION);
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    setAmount(2);
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    EXPECT_EQ(source.loads(), 3);
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(OnChangeSubscriptionObjectTest, WithDebugLinesAFailedLoadOfTheWorkerRaises)
{
    subscribeAndReadFirst();
    change(1);
    clock.advance(100);
    source.fail();
    {
        const CapturedLog log(Message::PRIO_DEBUG);
        EXPECT_THROW(attempt(), Poco::NullPointerException);
    }
    setAmount(1);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE) << "the change is still pending";
    EXPECT_EQ(delivered(), Amounts{1});
}

TEST_F(OnChangeSubscriptionObjectTest, AChangeOfAMembersTypeRaisesAndTheNextOneComparesWithTheSameState)
{
    source.deliver(R"({"amount":0,"customer":{"id":"7"}})");
    subscribeAndReadFirst();
    clock.advance(100);
    source.deliver(R"({"amount":0,"customer":"7"})");
    EXPECT_THROW(subscription->subscribedDataChanged(nullptr), Poco::BadCastException);
    EXPECT_THROW(attempt(), Poco::BadCastException) << "still pending";
    EXPECT_EQ(delivered(), Amounts{});
    source.deliver(R"({"amount":0,"customer":{"id":"7"}})");
    subscription->subscribedDataChanged(nullptr);
    EXPECT_EQ(delivered(), Amounts{}) << "unchanged since the first notification";
    source.deliver(R"({"amount":2,"customer":{"id":"7"}})");
    subscription->subscribedDataChanged(nullptr);
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(OnChangeSubscriptionObjectTest, AnExceptionOfTheDataSourceGoesToTheCaller)
{
    subscribeAndReadFirst();
    clock.advance(100);
    source.onLoad([] { throw std::runtime_error("database gone"); });
    EXPECT_THROW(subscription->subscribedDataChanged(nullptr), std::runtime_error);
    const CapturedLog log;
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, "tryToSendUpdate: no change pending."), 1U)
        << "the load comes before the mark";
}

TEST_F(OnChangeSubscriptionObjectTest, AFailedWriteUsesTheBudgetLikeASuccessfulOne)
{
    subscribeAndReadFirst();
    clock.advance(100);
    connection.breakConnection();
    change(1);
    EXPECT_EQ(subscription->getLastNotificationData()->getDataAsJsonObject()->getValue<int>("amount"), 1);
    clock.advance(50);
    EXPECT_TRUE(change(2).isNull());
    EXPECT_EQ(subscription->getIdleTime(), 50U);
}

TEST_F(OnChangeSubscriptionObjectTest, NeitherThreadLoadsUnderTheLock)
{
    subscribeAndReadFirst();
    int loadsWithoutLock = 0;
    source.onLoad([&] { loadsWithoutLock += runsElsewhere([&] { subscription->getLastUpdate(); }); });
    clock.advance(100);
    change(1);
    EXPECT_EQ(loadsWithoutLock, 1);
    change(2);
    attempt();
    EXPECT_EQ(loadsWithoutLock, 2);
}

TEST_F(OnChangeSubscriptionObjectTest, AChangeWhileTheWorkerLoadsAheadIsLoadedAfresh)
{
    subscribeAndReadFirst();
    ChangingSource changing(*subscription);
    changing.amount = 1;
    subscription->subscribedDataChanged(nullptr);
    changing.changeMeanwhileTo = 2;
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(OnChangeSubscriptionObjectTest, AChangeWhileTheWorkerLoadsStaysPending)
{
    subscribeAndReadFirst();
    ChangingSource changing(*subscription);
    changing.amount = 1;
    subscription->subscribedDataChanged(nullptr);
    changing.changeMeanwhileTo = 2;
    changing.afterwards = [&] { clock.advance(100); };
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    EXPECT_EQ(delivered(), Amounts{1}) << "what was loaded may go out, but it does not serve the later change";
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    clock.advance(100);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(OnChangeSubscriptionObjectTest, AChangeWhileTheReportingThreadLoadsIsLeftToTheWorker)
{
    subscribeAndReadFirst("/shop/orders/1", R"("updateLimit":0)");
    ChangingSource changing(*subscription);
    changing.amount = 1;
    changing.changeMeanwhileTo = 2; // the other thread sends at once, so the first load has become an older state
    subscription->subscribedDataChanged(nullptr);
    EXPECT_EQ(delivered(), Amounts{2});
    changing.amount = 3;
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{3});
}

TEST_F(OnChangeSubscriptionObjectTest, AFailedLoadDoesNotServeAChangeThatCameMeanwhile)
{
    subscribeAndReadFirst();
    change(1);
    clock.advance(100);
    source.fail();
    source.onLoad(
        [&]
        {
            source.onLoad(nullptr);
            clock.advance(-50); // so that the other thread leaves it to the worker
            EXPECT_TRUE(runsElsewhere([&] { subscription->subscribedDataChanged(nullptr); }));
            clock.advance(50);
        });
    const CapturedLog log(Message::PRIO_INFORMATION);
    EXPECT_EQ(attempt(), SubscriptionObject::KEEP_SCHEDULED);
    setAmount(2);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{2});
}

TEST_F(OnChangeSubscriptionObjectTest, AStateThatIsOlderThanTheLastOneSentIsDroppedAndLoadedAgain)
{
    subscribeAndReadFirst("/shop/orders/1", R"("updateLimit":0)");
    setAmount(1);
    const NotificationPtr older = subscription->loadNotificationData();
    change(2);
    EXPECT_EQ(delivered(), Amounts{2});
    CapturedLog log;
    subscription->subscribedDataChanged(older);
    EXPECT_EQ(delivered(), Amounts{});
    EXPECT_EQ(log.count(Message::PRIO_WARNING, NO_SCHEDULER), 1U) << "the worker is asked";
    setAmount(3);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{3});
}

TEST_F(OnChangeSubscriptionObjectTest, OfTwoLoadsThatMeetTheLaterOneToArriveIsLoadedAgain)
{
    subscribeAndReadFirst("/shop/orders/1", R"("updateLimit":0)");
    // The outer load begins first and looks last; the inner one, begun later, carries the older state.
    NotificationPtr inner;
    source.onLoad(
        [&]
        {
            source.onLoad(nullptr);
            setAmount(1);
            inner = subscription->loadNotificationData();
            setAmount(2);
        });
    const NotificationPtr outer = subscription->loadNotificationData();
    subscription->subscribedDataChanged(outer);
    subscription->subscribedDataChanged(inner);
    EXPECT_EQ(delivered(), Amounts{2});
    setAmount(3);
    EXPECT_EQ(attempt(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(delivered(), Amounts{3});
}

TEST_F(OnChangeSubscriptionObjectTest, NeitherMutationByTheSourceNorItsTimingHidesAChange)
{
    struct KeepingSource: ISubscriptionDataSource
    {
        Poco::JSON::Object::Ptr kept = new Poco::JSON::Object;
        bool fetchData(const SubscriptionRequest&, WebSocketResponseObject& response) override
        {
            response.setData(kept);
            return true;
        }
    } keeping;
    keeping.kept->set("amount", 1);
    subscribe("/shop/orders/1", R"("updateLimit":0)");
    subscription->registerDataSource(keeping);
    subscription->initialUpdate();
    keeping.kept->set("amount", 2);
    subscription->subscribedDataChanged(nullptr);
    EXPECT_EQ(delivered(), (Amounts{1, 2}));
}

TEST_F(OnChangeSubscriptionObjectTest, ANewSchedulerIsNotAskedForAnything)
{
    subscribe();
    CapturedLog log;
    subscription->setScheduler(nullptr);
    EXPECT_EQ(log.entries().size(), 0U);
}

namespace
{

struct UrlRow
{
    const char* name;
    const char* event;
    bool namesAList;
};

std::ostream& operator<<(std::ostream& out, const UrlRow& row)
{
    return out << row.event;
}

class ComparerTest: public testing::TestWithParam<UrlRow>
{
};

} // namespace

TEST_P(ComparerTest, TheUrlDecidesHowDataIsCompared)
{
    LoopbackConnection connection;
    ScriptedSource source(R"([{"id":"1","amount":1}])");
    OnChangeSubscriptionObject subscription(connection.proxy(), subscribeTo(GetParam().event, R"("updateLimit":0)"));
    subscription.registerDataSource(source);
    subscription.initialUpdate();
    connection.nextMessage();
    source.deliver(R"([{"id":"1","amount":2}])");
    subscription.subscribedDataChanged(nullptr);
    EXPECT_EQ(connection.hasMessage(), !GetParam().namesAList) << "a list reacts to membership and order alone";
}

INSTANTIATE_TEST_SUITE_P(Urls, ComparerTest,
                         testing::Values(UrlRow{"Root", "/", true}, UrlRow{"Service", "/shop", true},
                                         UrlRow{"Resource", "/shop/orders", true},
                                         UrlRow{"Element", "/shop/orders/1", false},
                                         UrlRow{"SpecKey", "/shop/$spec", false},
                                         UrlRow{"TooDeep", "/shop/orders/1/2", false}),
                         [](const auto& row) { return row.param.name; });
