#include "SubscriptionSurveillance.h"

#include "BusyPool.h"
#include "Delivery.h"
#include "OnChangeSubscriptionObject.h"

#include <CapturedLog.h>

#include <Poco/Exception.h>
#include <Poco/ThreadPool.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Poco::Message;

namespace
{

typedef void (SubscriptionSurveillance::*TimerCallback)(Poco::Timer&);
typedef Poco::Timer SubscriptionSurveillance::*Timer;

TimerCallback timerCallback();
Timer timer();

/// The explicit instantiation below may name what is private, so that a test need not wait for the real timer.
template <TimerCallback callback, Timer member>
struct OpenSurveillance
{
    friend TimerCallback timerCallback() { return callback; }
    friend Timer timer() { return member; }
};

template struct OpenSurveillance<&SubscriptionSurveillance::handleSurveillanceTimer,
                                 &SubscriptionSurveillance::m_timer>;

int busyPoolThreads()
{
    return Poco::ThreadPool::defaultPool().used();
}

/// A surveillance of its own, with one subscription that has an update limit of 100 ms.
class SubscriptionSurveillanceTest: public testing::Test
{
protected:
    void tick()
    {
        Poco::Timer unused;
        (surveillance.*timerCallback())(unused);
    }

    void tell(SubscriptionSurveillance::EventType event) { surveillance.update(&subscription, event); }

    void load(long milliseconds)
    {
        tell(SubscriptionSurveillance::START_LOADING_DATA);
        clock.advance(milliseconds);
        tell(SubscriptionSurveillance::FINISHED_LOADING_DATA);
    }

    /// A change that is served after so many milliseconds.
    void serve(long milliseconds)
    {
        tell(SubscriptionSurveillance::TRIGGERED);
        clock.advance(milliseconds);
        tell(SubscriptionSurveillance::SENDING_UPDATE);
        tell(SubscriptionSurveillance::FINISHED);
    }

    std::string peer() { return connection.proxy().peerAddress().toString(); }

    static std::string maxima(int globalLoad, int globalTotal, int load, int total)
    {
        return "SubscriptionSurveillance - max durations (ms):  global - loading " + std::to_string(globalLoad) +
               ", total " + std::to_string(globalTotal) + "; recent - loading " + std::to_string(load) + ", total " +
               std::to_string(total);
    }

    static std::string slowLoad(int milliseconds)
    {
        return "SubscriptionSurveillance - high loading time: " + std::to_string(milliseconds) +
               " ms for /shop/orders/1";
    }

    static std::string slowTotal(int milliseconds)
    {
        return "SubscriptionSurveillance - high total time: " + std::to_string(milliseconds) +
               " ms for /shop/orders/1(update limit: 100 ms)";
    }

    TestClock clock;
    LoopbackConnection connection;
    OnChangeSubscriptionObject subscription{connection.proxy(), subscribeTo("/shop/orders/1", R"("updateLimit":100)")};
    SubscriptionSurveillance surveillance;
    CapturedLog log;
};

} // namespace

TEST_F(SubscriptionSurveillanceTest, ItsValuesAreFixed)
{
    EXPECT_EQ(SubscriptionSurveillance::TRIGGERED, 0);
    EXPECT_EQ(SubscriptionSurveillance::START_LOADING_DATA, 1);
    EXPECT_EQ(SubscriptionSurveillance::FINISHED_LOADING_DATA, 2);
    EXPECT_EQ(SubscriptionSurveillance::SENDING_UPDATE, 3);
    EXPECT_EQ(SubscriptionSurveillance::FINISHED, 4);
    const long interval = SubscriptionSurveillance::SURVEILLANCE_INTERVAL_MS;
    EXPECT_EQ(interval, 10000);
}

TEST_F(SubscriptionSurveillanceTest, ALoadOfMoreThan500MsIsReported)
{
    surveillance.add(&subscription);
    load(500);
    EXPECT_EQ(log.entries().size(), 0U);
    load(501);
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, slowLoad(501)), 1U);
}

TEST_F(SubscriptionSurveillanceTest, ALoadBelowTheRecentMaximumIsNotReported)
{
    surveillance.add(&subscription);
    load(800);
    log.clear();
    load(700);
    load(800);
    EXPECT_EQ(log.entries().size(), 0U);
    load(801);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, slowLoad(801)), 1U);
}

TEST_F(SubscriptionSurveillanceTest, ATotalOfMoreThanTheLimitAnd500MsIsReported)
{
    surveillance.add(&subscription);
    serve(600);
    EXPECT_EQ(log.entries().size(), 0U);
    serve(601);
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, slowTotal(601)), 1U);
    serve(601);
    EXPECT_EQ(log.entries().size(), 1U) << "no new maximum";
}

TEST_F(SubscriptionSurveillanceTest, ATotalBelowALongLimitIsNeverReported)
{
    OnChangeSubscriptionObject slow(connection.proxy(), subscribeTo("/shop", R"("updateLimit":2147483647)"));
    surveillance.add(&slow);
    surveillance.update(&slow, SubscriptionSurveillance::TRIGGERED);
    clock.advance(3600000);
    surveillance.update(&slow, SubscriptionSurveillance::SENDING_UPDATE);
    EXPECT_EQ(log.entries().size(), 0U);
    surveillance.remove(&slow);
}

TEST_F(SubscriptionSurveillanceTest, TwoChangesBeforeASendMeasureFromTheFirst)
{
    surveillance.add(&subscription);
    tell(SubscriptionSurveillance::TRIGGERED);
    clock.advance(400);
    serve(300);
    EXPECT_TRUE(log.contains(Message::PRIO_WARNING, slowTotal(700)));
}

TEST_F(SubscriptionSurveillanceTest, AServedChangeDoesNotCountForTheNext)
{
    surveillance.add(&subscription);
    serve(400);
    clock.advance(5000);
    serve(500);
    EXPECT_EQ(log.entries().size(), 0U);
}

TEST_F(SubscriptionSurveillanceTest, TimesAreInWholeMilliseconds)
{
    surveillance.add(&subscription);
    tell(SubscriptionSurveillance::START_LOADING_DATA);
    clock.advanceMicroseconds(500999);
    tell(SubscriptionSurveillance::FINISHED_LOADING_DATA);
    EXPECT_EQ(log.entries().size(), 0U);
    tick();
    EXPECT_TRUE(log.contains(Message::PRIO_NOTICE, maxima(500, 0, 500, 0) + " ()"));
}

TEST_F(SubscriptionSurveillanceTest, UpdatesOfOneThatIsNotWatchedDoNothing)
{
    serve(5000);
    load(5000);
    surveillance.update(nullptr, SubscriptionSurveillance::TRIGGERED);
    surveillance.add(nullptr);
    surveillance.remove(nullptr);
    tick();
    EXPECT_EQ(log.entries().size(), 0U);
}

TEST_F(SubscriptionSurveillanceTest, NoticesAreSixTicksApartWithTraceLinesBetween)
{
    surveillance.add(&subscription);
    load(20);
    serve(30);
    tick();
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(Message::PRIO_NOTICE, maxima(20, 30, 20, 30) + " (" + peer() + " /shop/orders/1)"));
    log.clear();
    load(10);
    for (int between = 0; between < 5; ++between)
        tick();
    EXPECT_EQ(log.entries().size(), 5U);
    EXPECT_EQ(log.count(Message::PRIO_TRACE, maxima(20, 30, 10, 0)), 5U) << "what was recent stays so between";
    log.clear();
    tick();
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(Message::PRIO_NOTICE, maxima(20, 30, 10, 0) + " ()"));
}

TEST_F(SubscriptionSurveillanceTest, ANoticeForgetsTheRecentMaxima)
{
    surveillance.add(&subscription);
    load(800);
    tick();
    log.clear();
    load(600);
    EXPECT_TRUE(log.contains(Message::PRIO_WARNING, slowLoad(600))) << "a new recent maximum";
    tick();
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, maxima(800, 0, 600, 0)));
}

TEST_F(SubscriptionSurveillanceTest, TicksCountAlsoWhileNobodyIsWatched)
{
    tick();
    surveillance.add(&subscription);
    for (int between = 0; between < 5; ++between)
        tick();
    EXPECT_EQ(log.count(Message::PRIO_TRACE), 5U);
    EXPECT_EQ(log.count(Message::PRIO_NOTICE), 0U);
    tick();
    EXPECT_EQ(log.count(Message::PRIO_NOTICE), 1U);
}

TEST_F(SubscriptionSurveillanceTest, TheLastOneThatLeavesResetsAllMaxima)
{
    OnChangeSubscriptionObject other(connection.proxy(), subscribeTo("/shop/orders/2", R"("updateLimit":100)"));
    surveillance.add(&subscription);
    surveillance.add(&other);
    load(40);
    serve(50);
    tick();
    load(20);
    surveillance.remove(&subscription);
    log.clear();
    tick();
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, maxima(40, 50, 20, 0)));
    surveillance.remove(&other);
    surveillance.add(&other);
    log.clear();
    tick();
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, maxima(0, 0, 0, 0))) << "the count of ticks goes on";
}

TEST_F(SubscriptionSurveillanceTest, AnEntryThatExistsStays)
{
    surveillance.add(&subscription);
    tell(SubscriptionSurveillance::TRIGGERED);
    clock.advance(400);
    surveillance.add(&subscription);
    serve(300);
    EXPECT_TRUE(log.contains(Message::PRIO_WARNING, slowTotal(700)));
}

TEST_F(SubscriptionSurveillanceTest, ALoadThatAnotherThreadHasFinishedIsNotMeasured)
{
    surveillance.add(&subscription);
    tell(SubscriptionSurveillance::START_LOADING_DATA);
    tell(SubscriptionSurveillance::TRIGGERED);
    tell(SubscriptionSurveillance::FINISHED);
    tell(SubscriptionSurveillance::FINISHED_LOADING_DATA);
    tell(SubscriptionSurveillance::SENDING_UPDATE);
    EXPECT_EQ(log.entries().size(), 0U);
}

TEST_F(SubscriptionSurveillanceTest, TheTimerRunsWhileSomebodyIsWatched)
{
    const int before = busyPoolThreads();
    surveillance.add(&subscription);
    EXPECT_EQ(busyPoolThreads(), before + 1);
    surveillance.add(&subscription);
    EXPECT_EQ(busyPoolThreads(), before + 1);
    surveillance.remove(&subscription);
    EXPECT_TRUE(eventually([&] { return busyPoolThreads() == before; }));
    surveillance.add(&subscription);
    EXPECT_EQ(busyPoolThreads(), before + 1) << "it starts again";
    EXPECT_EQ((surveillance.*timer()).getStartInterval(), 10000);
    EXPECT_EQ((surveillance.*timer()).getPeriodicInterval(), 10000) << "and not for one tick only";
    surveillance.remove(&subscription);
}

TEST_F(SubscriptionSurveillanceTest, TheLastOneMayLeaveInTheMomentOfATick)
{
    (surveillance.*timer()).setStartInterval(0);
    for (int i = 0; i < 2000; ++i)
    {
        surveillance.add(&subscription);
        const auto leaves = std::chrono::steady_clock::now() + std::chrono::microseconds(i % 100);
        while (std::chrono::steady_clock::now() < leaves) // a tick takes some time to begin
            std::this_thread::yield();
        surveillance.remove(&subscription);
    }
    surveillance.add(&subscription);
    EXPECT_TRUE(eventually([&] { return log.entries().size() > 0; })) << "ticks there were";
    surveillance.remove(&subscription);
}

TEST_F(SubscriptionSurveillanceTest, ItsDestructorStopsTheTimer)
{
    const int before = busyPoolThreads();
    auto shortLived = std::make_unique<SubscriptionSurveillance>();
    shortLived->add(&subscription);
    shortLived.reset();
    EXPECT_TRUE(eventually([&] { return busyPoolThreads() == before; }));
}

TEST_F(SubscriptionSurveillanceTest, WithoutAThreadTheNextSubscriptionTriesAgain)
{
    {
        const BusyPool busy;
        EXPECT_NO_THROW(surveillance.add(&subscription));
        EXPECT_EQ(log.count(Message::PRIO_ERROR), 1U);
        EXPECT_TRUE(log.containsPart(Message::PRIO_ERROR, "SubscriptionSurveillance - cannot start its timer: "));
    }
    const int before = busyPoolThreads();
    surveillance.add(&subscription);
    EXPECT_EQ(busyPoolThreads(), before + 1);
    surveillance.remove(&subscription);
}

TEST_F(SubscriptionSurveillanceTest, ItsTimerTicksAfterTenSeconds)
{
    surveillance.add(&subscription);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(log.waitFor(Message::PRIO_NOTICE, maxima(0, 0, 0, 0) + " ()", std::chrono::seconds(30)));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(9900));
}

TEST_F(SubscriptionSurveillanceTest, SubscriptionsMayComeAndGoWhileItTicks)
{
    std::atomic<bool> ends{false};
    std::thread ticker(
        [&]
        {
            while (!ends)
                tick();
        });
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back(
            [&]
            {
                OnChangeSubscriptionObject mine(connection.proxy(), subscribeTo("/shop", R"("updateLimit":0)"));
                for (int i = 0; i < 100; ++i)
                {
                    surveillance.add(&mine);
                    surveillance.update(&mine, SubscriptionSurveillance::TRIGGERED);
                    surveillance.update(&mine, SubscriptionSurveillance::SENDING_UPDATE);
                    surveillance.remove(&mine);
                }
            });
    }
    for (std::thread& thread: threads)
        thread.join();
    ends = true;
    ticker.join();
    const int before = busyPoolThreads();
    surveillance.add(&subscription);
    EXPECT_EQ(busyPoolThreads(), before + 1) << "all have left, so the timer had stopped";
    surveillance.remove(&subscription);
}

namespace
{

/// The surveillance of the process, as the subscriptions use it. Other tests must have left nothing in it.
class WatchdogTest: public testing::Test
{
protected:
    WatchdogTest() { subscription.registerDataSource(source); }

    TestClock clock;
    LoopbackConnection connection;
    ScriptedSource source{R"({"amount":0})"};
    OnChangeSubscriptionObject subscription{connection.proxy(), subscribeTo("/shop/orders/1", R"("updateLimit":100)")};
};

} // namespace

TEST_F(WatchdogTest, SeesASlowLoadOfTheReportingThread)
{
    subscription.initialUpdate();
    clock.advance(100);
    source.onLoad([&] { clock.advance(501); });
    CapturedLog log;
    subscription.subscribedDataChanged(nullptr);
    EXPECT_TRUE(
        log.contains(Message::PRIO_WARNING, "SubscriptionSurveillance - high loading time: 501 ms for /shop/orders/1"));
}

TEST_F(WatchdogTest, CountsAChangeThatIsSkippedAsUnchanged)
{
    subscription.initialUpdate();
    const CapturedLog log;
    subscription.subscribedDataChanged(nullptr);
    clock.advance(700);
    subscription.tryToSendUpdate();
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, "sendUpdate: data is unchanged - skip update"));
    EXPECT_TRUE(
        log.contains(Message::PRIO_WARNING,
                     "SubscriptionSurveillance - high total time: 700 ms for /shop/orders/1(update limit: 100 ms)"));
}

TEST_F(WatchdogTest, AChangeThatASendHasMissedIsMeasuredFromThatSend)
{
    subscription.initialUpdate();
    subscription.subscribedDataChanged(nullptr);
    source.deliver(R"({"amount":1})");
    source.onLoad(
        [&]
        {
            source.onLoad(nullptr);
            EXPECT_TRUE(runsElsewhere([&] { subscription.subscribedDataChanged(nullptr); }));
            clock.advance(300);
        });
    EXPECT_EQ(subscription.tryToSendUpdate(), SubscriptionObject::KEEP_SCHEDULED);
    source.deliver(R"({"amount":2})");
    clock.advance(550);
    const CapturedLog log;
    EXPECT_EQ(subscription.tryToSendUpdate(), SubscriptionObject::REMOVE_FROM_SCHEDULE);
    EXPECT_EQ(log.count(Message::PRIO_WARNING), 0U) << "550 ms and not 850 ms";
}

TEST_F(WatchdogTest, ALoadThatRaisesEndsItsChange)
{
    subscription.initialUpdate();
    clock.advance(100);
    source.onLoad([] { throw Poco::TimeoutException("database"); });
    EXPECT_THROW(subscription.subscribedDataChanged(nullptr), Poco::TimeoutException);
    source.onLoad(nullptr);
    clock.advance(5000);
    const CapturedLog log;
    subscription.subscribedDataChanged(nullptr);
    EXPECT_EQ(log.count(Message::PRIO_WARNING), 0U) << "the next change is measured from its own beginning";
}

TEST_F(WatchdogTest, AComparisonThatRaisesDoesNotEndItsChange)
{
    source.deliver(R"({"customer":{"id":"7"}})");
    subscription.initialUpdate();
    clock.advance(100);
    source.deliver(R"({"customer":7})");
    EXPECT_THROW(subscription.subscribedDataChanged(nullptr), Poco::BadCastException);
    source.deliver(R"({"customer":{"id":"7"}})");
    clock.advance(5000);
    const CapturedLog log;
    subscription.subscribedDataChanged(nullptr);
    EXPECT_TRUE(log.containsPart(Message::PRIO_WARNING, "SubscriptionSurveillance - high total time: 5000 ms"));
}
