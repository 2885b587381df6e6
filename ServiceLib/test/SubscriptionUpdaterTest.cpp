#include "SubscriptionUpdater.h"

#include "BusyPool.h"
#include "Delivery.h"
#include "LibraryCall.h"
#include "PeriodicSubscriptionObject.h"

#include <CapturedLog.h>

#include <Poco/Exception.h>

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <pthread.h>
#include <unistd.h>
#include <vector>

using namespace Kesa;
using namespace Kesa::Service;
using namespace Kesa::Test;
using Poco::Message;

namespace
{

/// A subscription that does what the test says.
class ScriptedSubscription: public SubscriptionObject
{
public:
    typedef Poco::SharedPtr<ScriptedSubscription> Ptr;

    ScriptedSubscription(): SubscriptionObject(noConnection(), subscribeTo("/shop", R"("updateLimit":0)")) {}
    ~ScriptedSubscription() override
    {
        if (onDestruction)
            onDestruction();
    }

    using SubscriptionObject::schedule;

    NotificationPtr subscribedDataChanged(const NotificationPtr& payload) override { return payload; }
    uint32_t getIdleTime() const override
    {
        ++idleTimeReadings;
        return idleTime;
    }
    PostUpdateAction tryToSendUpdate() override
    {
        const int number = ++attempts;
        return onAttempt ? onAttempt(number) : REMOVE_FROM_SCHEDULE;
    }

    std::function<PostUpdateAction(int attempt)> onAttempt;
    std::function<void()> onNewScheduler;
    std::function<void()> onDestruction;
    std::atomic<int> attempts{0};
    std::atomic<uint32_t> idleTime{0};
    std::atomic<bool> isDue{true};
    mutable std::atomic<int> idleTimeReadings{0};
    mutable std::atomic<int> newSchedulers{0};

protected:
    bool canSendNow() const override { return isDue; }
    void handleNewScheduler() const override
    {
        ++newSchedulers;
        if (const auto hook = onNewScheduler) // a copy, since it may take itself away
            hook();
    }
};

class SubscriptionUpdaterTest: public testing::Test
{
protected:
    ScriptedSubscription::Ptr subscribe()
    {
        ScriptedSubscription::Ptr result = new ScriptedSubscription;
        updater->add(result);
        return result;
    }

    void schedule(const ScriptedSubscription::Ptr& subscription) { updater->schedule(subscription.get()); }

    /// Keeps the worker in an attempt until the gate is opened, so that what is scheduled meanwhile makes one pass.
    ScriptedSubscription::Ptr holdWorker(Gate& gate)
    {
        ScriptedSubscription::Ptr holder = subscribe();
        holder->onAttempt = [&gate](int)
        {
            gate.pass();
            return SubscriptionObject::REMOVE_FROM_SCHEDULE;
        };
        schedule(holder);
        EXPECT_TRUE(gate.isReached());
        return holder;
    }

    /// Waits until the worker has made a pass after everything that was scheduled before.
    void finishPass()
    {
        ScriptedSubscription::Ptr last = subscribe();
        schedule(last);
        EXPECT_TRUE(eventually([&] { return last->attempts > 0; }));
    }

    std::unique_ptr<SubscriptionUpdater> updater = std::make_unique<SubscriptionUpdater>();
};

} // namespace

TEST_F(SubscriptionUpdaterTest, TheFirstScheduledSubscriptionStartsTheWorker)
{
    CapturedLog log;
    auto subscription = subscribe();
    EXPECT_EQ(log.entries().size(), 0U) << "registration is silent";
    schedule(subscription);
    EXPECT_TRUE(log.waitFor(Message::PRIO_TRACE, "check for update for 1 scheduled subscriptions (1 registered)"));
    EXPECT_TRUE(eventually([&] { return subscription->attempts == 1; }));
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "subscription scheduled"), 1U);
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "started processSchedule"), 1U);
}

TEST_F(SubscriptionUpdaterTest, RegistrationAloneStartsNothing)
{
    CapturedLog log;
    auto subscription = subscribe();
    updater.reset();
    EXPECT_FALSE(log.contains(Message::PRIO_TRACE, "started processSchedule"));
    EXPECT_EQ(subscription->attempts, 0);
}

TEST(SubscriptionUpdaterDeathTest, NamesTheThreadOfTheFirstWorkerOfTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe"; // a process of its own, where no worker has run yet
    EXPECT_EXIT(
        {
            const CapturedLog log;
            SubscriptionUpdater updater;
            std::promise<std::string> name;
            ScriptedSubscription::Ptr subscription = new ScriptedSubscription;
            subscription->onAttempt = [&](int)
            {
                char text[16] = "";
                pthread_getname_np(pthread_self(), text, sizeof text);
                name.set_value(text);
                return SubscriptionObject::REMOVE_FROM_SCHEDULE;
            };
            updater.add(subscription);
            updater.schedule(subscription.get());
            const bool isNamed = name.get_future().get() == "SubscrUpdt";
            _exit(isNamed && log.containsPart(Message::PRIO_TRACE, "SubscriptionUpdater::processSchedule") ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(SubscriptionUpdaterTest, AnEmptyPointerIsNotRegistered)
{
    CapturedLog log;
    updater->add(nullptr);
    EXPECT_EQ(log.entries().size(), 0U);
}

TEST_F(SubscriptionUpdaterTest, ARepeatedRegistrationKeepsTheEntry)
{
    auto subscription = subscribe();
    const int shares = subscription.referenceCount();
    updater->add(subscription);
    EXPECT_EQ(subscription.referenceCount(), shares);
    EXPECT_EQ(subscription->newSchedulers, 2);
}

TEST_F(SubscriptionUpdaterTest, TwoRequestsBeforeTheWorkerWakesAreOneAttempt)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto subscription = subscribe();
    CapturedLog log;
    schedule(subscription);
    schedule(subscription);
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "subscription scheduled"), 1U);
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "subscription already scheduled"), 1U);
    gate.open();
    finishPass();
    EXPECT_EQ(subscription->attempts, 1);
}

TEST_F(SubscriptionUpdaterTest, EntriesAreServedInTheOrderOfTheirRequests)
{
    Gate gate;
    auto holder = holdWorker(gate);
    std::vector<int> served;
    std::vector<ScriptedSubscription::Ptr> subscriptions;
    for (int i = 0; i < 5; ++i)
    {
        subscriptions.push_back(subscribe());
        subscriptions.back()->onAttempt = [&served, i](int)
        {
            served.push_back(i);
            return SubscriptionObject::REMOVE_FROM_SCHEDULE;
        };
    }
    for (const int i: {3, 0, 4, 1, 3, 2})
        schedule(subscriptions[static_cast<std::size_t>(i)]);
    gate.open();
    finishPass();
    EXPECT_EQ(served, (std::vector<int>{3, 0, 4, 1, 2}));
}

TEST_F(SubscriptionUpdaterTest, OneRemovedWhileQueuedIsSkippedWithoutAMessage)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto subscription = subscribe();
    schedule(subscription);
    updater->remove(subscription);
    CapturedLog log;
    gate.open();
    EXPECT_TRUE(log.waitFor(Message::PRIO_TRACE, "check for update for 1 scheduled subscriptions (1 registered)"));
    log.clear();
    updater.reset();
    EXPECT_EQ(subscription->attempts, 0);
    EXPECT_EQ(log.count(Message::PRIO_DEBUG), 0U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING), 0U);
}

TEST_F(SubscriptionUpdaterTest, OneThatIsKeptWithNothingToWaitForIsTriedAgainAtOnce)
{
    // A wait of a millisecond between the passes would make each round take 900 ms at least.
    bool hasBeenFast = false;
    for (int round = 0; round < 10 && !hasBeenFast; ++round)
    {
        const auto begin = std::chrono::steady_clock::now();
        auto subscription = subscribe();
        subscription->onAttempt = [](int attempt)
        { return attempt < 900 ? SubscriptionObject::KEEP_SCHEDULED : SubscriptionObject::REMOVE_FROM_SCHEDULE; };
        schedule(subscription);
        EXPECT_TRUE(eventually([&] { return subscription->attempts == 900; }));
        hasBeenFast = std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(800);
        updater = std::make_unique<SubscriptionUpdater>();
    }
    EXPECT_TRUE(hasBeenFast);
}

TEST_F(SubscriptionUpdaterTest, AThousandPassesThatSentNothingSlowTheWorkerDown)
{
    auto subscription = subscribe();
    subscription->onAttempt = [](int) { return SubscriptionObject::KEEP_SCHEDULED; };
    schedule(subscription);
    EXPECT_TRUE(eventually([&] { return subscription->attempts > 1001; }));
    const int before = subscription->attempts;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(eventually([&] { return subscription->attempts >= before + 100; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(98));
}

TEST_F(SubscriptionUpdaterTest, EvenWithRequestsInARowTheWorkerSlowsDown)
{
    auto subscription = subscribe();
    subscription->onAttempt = [&](int)
    {
        subscription->schedule();
        return SubscriptionObject::REMOVE_FROM_SCHEDULE;
    };
    schedule(subscription);
    EXPECT_TRUE(eventually([&] { return subscription->attempts > 1001; }));
    const int before = subscription->attempts;
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(eventually([&] { return subscription->attempts >= before + 100; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(98));
    updater->remove(subscription);
    finishPass();
}

TEST_F(SubscriptionUpdaterTest, LessThanAMillisecondLeftIsWaitedForAsOne)
{
    auto subscription = subscribe();
    subscription->isDue = false;
    subscription->onAttempt = [](int attempt)
    { return attempt < 200 ? SubscriptionObject::KEEP_SCHEDULED : SubscriptionObject::REMOVE_FROM_SCHEDULE; };
    const auto begin = std::chrono::steady_clock::now();
    schedule(subscription);
    EXPECT_TRUE(eventually([&] { return subscription->attempts == 200; }));
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(190));
}

TEST_F(SubscriptionUpdaterTest, TheSmallestIdleTimeOfAPassDecidesTheWait)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto patient = subscribe();
    auto hasty = subscribe();
    auto leaving = subscribe();
    const auto keep = [](int) { return SubscriptionObject::KEEP_SCHEDULED; };
    patient->onAttempt = keep;
    hasty->onAttempt = keep;
    patient->idleTime = 60000;
    hasty->idleTime = 30;
    schedule(patient);
    schedule(hasty);
    schedule(leaving);
    const auto begin = std::chrono::steady_clock::now();
    gate.open();
    EXPECT_TRUE(eventually([&] { return hasty->attempts >= 4 && patient->attempts >= 4; }))
        << "a pass visits each entry";
    const auto duration = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(duration, std::chrono::milliseconds(85));
    EXPECT_EQ(leaving->attempts, 1);
}

TEST_F(SubscriptionUpdaterTest, NoWaitIsLongerThanFiveSeconds)
{
    auto subscription = subscribe();
    subscription->idleTime = 60000;
    subscription->onAttempt = [](int) { return SubscriptionObject::KEEP_SCHEDULED; };
    schedule(subscription);
    EXPECT_TRUE(eventually([&] { return subscription->attempts == 1; }));
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_TRUE(eventually([&] { return subscription->attempts > 1; }));
    const auto waited = std::chrono::steady_clock::now() - begin;
    EXPECT_GE(waited, std::chrono::milliseconds(4900));
}

TEST_F(SubscriptionUpdaterTest, TheIdleTimeIsReadAgainWhereItIsTheSmallestSoFar)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto first = subscribe();
    auto second = subscribe();
    const auto keepOnce = [](int attempt)
    { return attempt == 1 ? SubscriptionObject::KEEP_SCHEDULED : SubscriptionObject::REMOVE_FROM_SCHEDULE; };
    first->onAttempt = keepOnce;
    second->onAttempt = keepOnce;
    first->idleTime = 40;
    second->idleTime = 41;
    schedule(first);
    schedule(second);
    gate.open();
    EXPECT_TRUE(eventually([&] { return first->attempts == 2 && second->attempts == 2; }));
    EXPECT_EQ(first->idleTimeReadings, 2);
    EXPECT_EQ(second->idleTimeReadings, 1);
}

TEST_F(SubscriptionUpdaterTest, ARequestEndsTheWaitAtOnce)
{
    auto patient = subscribe();
    patient->idleTime = 60000;
    patient->onAttempt = [](int attempt)
    { return attempt < 3 ? SubscriptionObject::KEEP_SCHEDULED : SubscriptionObject::REMOVE_FROM_SCHEDULE; };
    const auto begin = std::chrono::steady_clock::now();
    schedule(patient);
    EXPECT_TRUE(eventually([&] { return patient->attempts == 1; }));
    finishPass();
    finishPass();
    EXPECT_TRUE(eventually([&] { return patient->attempts == 3; }));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(4900));
}

TEST_F(SubscriptionUpdaterTest, OneThatIsKeptGoesBackIntoTheQueue)
{
    CapturedLog log;
    auto subscription = subscribe();
    subscription->onAttempt = [](int attempt)
    { return attempt == 1 ? SubscriptionObject::KEEP_SCHEDULED : SubscriptionObject::REMOVE_FROM_SCHEDULE; };
    schedule(subscription);
    EXPECT_TRUE(eventually([&] { return subscription->attempts == 2; }));
    EXPECT_EQ(log.count(Message::PRIO_DEBUG, "re-schedule subscription"), 1U);
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "subscription scheduled"), 2U);
}

TEST_F(SubscriptionUpdaterTest, AnyOtherAnswerLeavesTheQueueAndTheNextEntryIsServed)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto odd = subscribe();
    odd->onAttempt = [](int) { return static_cast<SubscriptionObject::PostUpdateAction>(7); };
    schedule(odd);
    gate.open();
    finishPass();
    finishPass();
    EXPECT_EQ(odd->attempts, 1);
}

TEST_F(SubscriptionUpdaterTest, AnUnregisteredSubscriptionIsNotQueuedButWakesTheWorker)
{
    finishPass();
    ScriptedSubscription::Ptr stranger = new ScriptedSubscription;
    CapturedLog log;
    schedule(stranger);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, "addToSchedule: subscription not registered."), 1U);
    EXPECT_TRUE(log.waitFor(Message::PRIO_TRACE, "check for update for 0 scheduled subscriptions (1 registered)"));
    EXPECT_EQ(stranger->attempts, 0);
}

TEST_F(SubscriptionUpdaterTest, RemovalTakesTheSchedulerAway)
{
    auto subscription = subscribe();
    CapturedLog log;
    updater->remove(subscription);
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "SubscriptionUpdater::remove"), 1U);
    EXPECT_EQ(subscription->newSchedulers, 2);
    subscription->schedule();
    EXPECT_EQ(
        log.count(Message::PRIO_WARNING, "schedule: scheduler not set, subscription object is not fully initialised"),
        1U);
    log.clear();
    updater->remove(subscription);
    EXPECT_EQ(log.entries().size(), 2U);
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "SubscriptionUpdater::remove"), 1U);
    EXPECT_EQ(log.count(Message::PRIO_DEBUG, "SubscriptionUpdater::remove: subscription not found"), 1U);
    EXPECT_EQ(subscription->newSchedulers, 2);
}

TEST_F(SubscriptionUpdaterTest, ClearTakesTheSchedulerOfAll)
{
    auto first = subscribe();
    auto second = subscribe();
    CapturedLog log;
    updater->clear();
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "SubscriptionUpdater::clear"), 1U);
    EXPECT_EQ(first->newSchedulers, 2);
    EXPECT_EQ(second->newSchedulers, 2);
    EXPECT_EQ(first.referenceCount(), 1);
    schedule(first);
    EXPECT_EQ(log.count(Message::PRIO_WARNING, "addToSchedule: subscription not registered."), 1U);
}

TEST_F(SubscriptionUpdaterTest, NewSchedulersAreToldWithoutItsLock)
{
    ScriptedSubscription::Ptr subscription = new ScriptedSubscription;
    int timesFree = 0;
    subscription->onNewScheduler = [&] { timesFree += runsElsewhere([&] { updater->schedule(nullptr); }); };
    updater->add(subscription);
    updater->remove(subscription);
    updater->add(subscription);
    updater->clear();
    EXPECT_EQ(timesFree, 4);
}

TEST_F(SubscriptionUpdaterTest, OneThatGoesWhileItIsRegisteredEndsWithoutAScheduler)
{
    ScriptedSubscription::Ptr subscription = new ScriptedSubscription;
    subscription->onNewScheduler = [&]
    {
        subscription->onNewScheduler = nullptr;
        updater->clear(); // the entry goes before its scheduler is set
        subscription->setScheduler(updater.get());
    };
    updater->add(subscription);
    CapturedLog log;
    subscription->schedule();
    EXPECT_TRUE(log.contains(Message::PRIO_WARNING,
                             "schedule: scheduler not set, subscription object is not fully initialised"));
}

TEST_F(SubscriptionUpdaterTest, AttemptsRunWithoutItsLockAndInsideTheLibrary)
{
    auto other = subscribe();
    auto subscription = subscribe();
    std::atomic<bool> isFree{false};
    std::atomic<bool> isInside{false};
    subscription->onAttempt = [&](int)
    {
        isInside = LibraryCall::isInside();
        isFree = runsElsewhere([&] { schedule(other); });
        return SubscriptionObject::REMOVE_FROM_SCHEDULE;
    };
    schedule(subscription);
    EXPECT_TRUE(eventually([&] { return other->attempts == 1; }));
    EXPECT_TRUE(isFree);
    EXPECT_TRUE(isInside);
}

TEST_F(SubscriptionUpdaterTest, WhatAnAttemptPutsOffRunsWhenItIsOver)
{
    auto subscription = subscribe();
    std::atomic<bool> ran{false};
    subscription->onAttempt = [&](int attempt)
    {
        if (attempt == 1)
        {
            LibraryCall::defer([&] { ran = true; });
            return SubscriptionObject::KEEP_SCHEDULED;
        }
        EXPECT_TRUE(ran);
        return SubscriptionObject::REMOVE_FROM_SCHEDULE;
    };
    schedule(subscription);
    EXPECT_TRUE(eventually([&] { return subscription->attempts == 2; }));
}

TEST_F(SubscriptionUpdaterTest, ARunningAttemptKeepsItsSubscriptionAlive)
{
    std::atomic<bool> isGone{false};
    std::atomic<bool> wasGoneDuringTheAttempt{true};
    CapturedLog log;
    ScriptedSubscription::Ptr subscription = subscribe();
    Gate gate;
    subscription->onDestruction = [&] { isGone = true; };
    subscription->onAttempt = [&](int)
    {
        gate.pass();
        wasGoneDuringTheAttempt = isGone.load();
        return SubscriptionObject::KEEP_SCHEDULED;
    };
    schedule(subscription);
    EXPECT_TRUE(gate.isReached());
    updater->remove(subscription);
    subscription = nullptr;
    gate.open();
    EXPECT_TRUE(eventually([&] { return isGone.load(); }));
    EXPECT_FALSE(wasGoneDuringTheAttempt);
    EXPECT_TRUE(log.contains(Message::PRIO_WARNING, "addToSchedule: subscription not registered."))
        << "it was kept, but nobody knows it any more";
}

TEST_F(SubscriptionUpdaterTest, AnExceptionOfPocoIsLoggedAndTheSubscriptionWaitsForItsNextRequest)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto failing = subscribe();
    auto next = subscribe();
    failing->onAttempt = [](int attempt)
    {
        if (attempt == 1)
            throw Poco::TimeoutException("database");
        return SubscriptionObject::REMOVE_FROM_SCHEDULE;
    };
    schedule(failing);
    schedule(next);
    CapturedLog log;
    gate.open();
    finishPass();
    EXPECT_EQ(log.count(Message::PRIO_ERROR, "SubscriptionUpdater::processSchedule: Caught 'Timeout: database' while "
                                             "call of update subscription"),
              1U);
    EXPECT_EQ(next->attempts, 1) << "the pass goes on";
    finishPass();
    EXPECT_EQ(failing->attempts, 1);
    schedule(failing);
    finishPass();
    EXPECT_EQ(failing->attempts, 2) << "it is still registered";
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "stopped processSchedule"), 0U);
}

namespace
{

struct FatalRow
{
    const char* name;
    void (*raise)();
    const char* text;
};

std::ostream& operator<<(std::ostream& out, const FatalRow& row)
{
    return out << row.name;
}

class FatalExceptionTest: public SubscriptionUpdaterTest, public testing::WithParamInterface<FatalRow>
{
};

} // namespace

TEST_P(FatalExceptionTest, EndsTheWorkerAndTheNextRequestStartsANewOne)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto failing = subscribe();
    auto behind = subscribe();
    failing->onAttempt = [](int attempt)
    {
        if (attempt == 1)
            GetParam().raise();
        return SubscriptionObject::REMOVE_FROM_SCHEDULE;
    };
    schedule(failing);
    schedule(behind);
    CapturedLog log;
    gate.open();
    EXPECT_TRUE(log.waitFor(Message::PRIO_TRACE, "stopped processSchedule"));
    EXPECT_EQ(
        log.count(Message::PRIO_ERROR, std::string("SubscriptionUpdater::processSchedule caught ") + GetParam().text),
        1U);
    schedule(failing);
    EXPECT_TRUE(eventually([&] { return failing->attempts == 2; }));
    EXPECT_EQ(log.count(Message::PRIO_TRACE, "started processSchedule"), 1U);
    finishPass();
    EXPECT_EQ(behind->attempts, 0) << "the rest of the pass is lost";
}

INSTANTIATE_TEST_SUITE_P(Exceptions, FatalExceptionTest,
                         testing::Values(FatalRow{"Standard", [] { throw std::runtime_error("disk full"); },
                                                  "disk full"},
                                         FatalRow{"Unknown", [] { throw 7; }, "UNKNOWN exception"}),
                         [](const auto& row) { return row.param.name; });

TEST_F(SubscriptionUpdaterTest, WhatWasQueuedWhileTheWorkerFailedIsNotForgotten)
{
    auto other = subscribe();
    auto failing = subscribe();
    failing->onAttempt = [&](int) -> SubscriptionObject::PostUpdateAction
    {
        schedule(other); // the worker still runs, so this does not start another one
        throw std::runtime_error("disk full");
    };
    schedule(failing);
    EXPECT_TRUE(eventually([&] { return other->attempts == 1; }));
}

TEST_F(SubscriptionUpdaterTest, WithoutAThreadTheEntryStaysAndTheNextRequestTriesAgain)
{
    auto subscription = subscribe();
    auto other = subscribe();
    {
        const BusyPool busy;
        CapturedLog log;
        EXPECT_NO_THROW(schedule(subscription));
        EXPECT_EQ(log.count(Message::PRIO_ERROR), 1U);
        EXPECT_TRUE(log.containsPart(Message::PRIO_ERROR, "SubscriptionUpdater: cannot start its worker"));
        EXPECT_NO_THROW(schedule(subscription));
        EXPECT_EQ(log.count(Message::PRIO_ERROR), 2U);
    }
    EXPECT_EQ(subscription->attempts, 0);
    schedule(other);
    EXPECT_TRUE(eventually([&] { return subscription->attempts == 1 && other->attempts == 1; }));
}

TEST_F(SubscriptionUpdaterTest, ShuttingDownRefusesWhatComes)
{
    Gate gate;
    auto holder = holdWorker(gate);
    auto registered = subscribe();
    ScriptedSubscription::Ptr late = new ScriptedSubscription;
    SubscriptionUpdater* const dying = updater.get();
    CapturedLog log;
    std::thread destroyer([&] { updater.reset(); });
    EXPECT_TRUE(log.waitFor(Message::PRIO_TRACE, "SubscriptionUpdater::dtor"));
    const std::string refusal = "addToSchedule: SubscriptionUpdater is shutting down.";
    EXPECT_TRUE(eventually(
        [&]
        {
            dying->schedule(registered.get());
            return log.contains(Message::PRIO_DEBUG, refusal);
        }));
    log.clear();
    dying->add(late);
    dying->schedule(late.get());
    EXPECT_EQ(log.count(Message::PRIO_DEBUG, refusal), 1U);
    EXPECT_EQ(log.count(Message::PRIO_WARNING), 0U);
    EXPECT_EQ(late->newSchedulers, 0);
    gate.open();
    destroyer.join();
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, "stopped processSchedule"));
    EXPECT_EQ(late->attempts, 0);
}

TEST_F(SubscriptionUpdaterTest, ItsDestructorReleasesItsSharesAndTellsNobody)
{
    auto subscription = subscribe();
    finishPass();
    updater.reset();
    EXPECT_EQ(subscription.referenceCount(), 1);
    EXPECT_EQ(subscription->newSchedulers, 1);
}

namespace
{

/// Counts the visits of the worker.
class CountedPeriodic: public PeriodicSubscriptionObject
{
public:
    using PeriodicSubscriptionObject::PeriodicSubscriptionObject;

    PostUpdateAction tryToSendUpdate() override
    {
        ++visits;
        return PeriodicSubscriptionObject::tryToSendUpdate();
    }

    std::atomic<int> visits{0};
};

/// Real periodic subscriptions under the worker; the clock stands still unless the test moves it.
class PeriodicDeliveryTest: public SubscriptionUpdaterTest
{
protected:
    Poco::SharedPtr<CountedPeriodic> subscribePeriodically(const std::string& event = "/shop/orders/1")
    {
        Poco::SharedPtr<CountedPeriodic> result =
            new CountedPeriodic(connection.proxy(), subscribeTo(event, R"("interval":1000)"));
        updater->add(result);
        result->registerDataSource(source);
        result->initialUpdate();
        connection.nextMessage();
        return result;
    }

    TestClock clock;
    LoopbackConnection connection;
    ScriptedSource source{R"({"amount":0})"};
};

} // namespace

TEST_F(PeriodicDeliveryTest, TicksWithoutAnyRequest)
{
    auto subscription = subscribePeriodically();
    for (int tick = 0; tick < 3; ++tick)
    {
        clock.advance(1000);
        finishPass(); // only wakes the worker, whose wait knows nothing of this clock
        EXPECT_EQ(connection.nextMessage()->getObject("data")->getValue<int>("amount"), 0);
        finishPass();
        EXPECT_FALSE(connection.hasMessage());
    }
}

TEST_F(PeriodicDeliveryTest, OneThatIsNotDueCostsNoVisits)
{
    auto subscription = subscribePeriodically();
    finishPass();
    finishPass();
    const int before = subscription->visits;
    for (int i = 0; i < 50; ++i)
        finishPass();
    EXPECT_EQ(subscription->visits, before);
    clock.advance(999);
    finishPass();
    EXPECT_EQ(subscription->visits, before);
    clock.advance(1);
    finishPass();
    EXPECT_EQ(subscription->visits, before + 1);
    EXPECT_TRUE(connection.hasMessage());
}

TEST_F(PeriodicDeliveryTest, EachVisitIsLoggedWhereDebugLinesAreWanted)
{
    auto subscription = subscribePeriodically();
    finishPass();
    finishPass();
    CapturedLog log(Message::PRIO_DEBUG);
    const int before = subscription->visits;
    for (int i = 0; i < 5; ++i)
        finishPass();
    EXPECT_GE(subscription->visits, before + 5);
    EXPECT_TRUE(eventually([&] { return log.count(Message::PRIO_DEBUG, "re-schedule subscription") >= 5; }));
}

TEST_F(PeriodicDeliveryTest, AfterRemovalNothingIsSent)
{
    auto subscription = subscribePeriodically();
    finishPass();
    finishPass();
    updater->remove(subscription);
    EXPECT_EQ(subscription.referenceCount(), 1) << "nothing of it is left in the updater";
    const int before = subscription->visits;
    clock.advance(10000);
    finishPass();
    EXPECT_EQ(subscription->visits, before);
    EXPECT_FALSE(connection.hasMessage());
}

TEST_F(PeriodicDeliveryTest, WhatIsRemovedLeavesTheQueueAlsoWhereItWasNotDue)
{
    const auto queuedAfter = [&](const std::function<void()>& removal)
    {
        auto subscription = subscribePeriodically();
        finishPass();
        finishPass();
        removal();
        updater->remove(subscription);
        const CapturedLog log; // with this level the next pass takes all that is queued
        finishPass();
        for (const auto& entry: log.entries())
        {
            if (entry.text.find("check for update for ") == 0)
                return entry.text.substr(0, entry.text.find(" ("));
        }
        return std::string("no pass");
    };
    EXPECT_EQ(queuedAfter([] {}), "check for update for 1 scheduled subscriptions");
    EXPECT_EQ(queuedAfter([&] { updater->clear(); }), "check for update for 1 scheduled subscriptions");
}

TEST_F(PeriodicDeliveryTest, OneThatIsRegisteredAnewTicksAgain)
{
    auto subscription = subscribePeriodically();
    finishPass();
    updater->remove(subscription);
    finishPass();
    updater->add(subscription);
    clock.advance(1000);
    finishPass();
    EXPECT_TRUE(connection.hasMessage());
    updater->clear();
    updater->add(subscription);
    connection.nextMessage();
    clock.advance(1000);
    finishPass();
    EXPECT_TRUE(connection.hasMessage());
}

TEST_F(PeriodicDeliveryTest, TicksGoOnAfterTheWorkerHasEndedOnAnException)
{
    auto subscription = subscribePeriodically();
    finishPass();
    finishPass();
    auto failing = subscribe();
    failing->onAttempt = [](int) -> SubscriptionObject::PostUpdateAction { throw 7; };
    schedule(failing);
    EXPECT_TRUE(eventually([&] { return failing->attempts == 1; }));
    clock.advance(1000);
    finishPass();
    EXPECT_TRUE(connection.hasMessage());
}

TEST_F(PeriodicDeliveryTest, BeforeTheFirstNotificationTheWorkerTriesUntilThereIsOne)
{
    Poco::SharedPtr<CountedPeriodic> subscription =
        new CountedPeriodic(connection.proxy(), subscribeTo("/shop/orders/1", R"("interval":1000)"));
    updater->add(subscription);
    EXPECT_TRUE(eventually([&] { return subscription->visits >= 20; }));
    subscription->registerDataSource(source);
    subscription->initialUpdate();
    connection.nextMessage();
    EXPECT_FALSE(connection.hasMessage()) << "the first notification counts as a tick";
}

TEST(PeriodicDelivery, TicksInRealTime)
{
    LoopbackConnection connection;
    ScriptedSource source(R"({"amount":0})");
    SubscriptionUpdater updater;
    auto subscription = SubscriptionObject::Create(connection.proxy(), subscribeTo("/shop", R"("interval":40)"));
    updater.add(subscription);
    subscription->registerDataSource(source);
    const auto begin = std::chrono::steady_clock::now();
    subscription->initialUpdate();
    for (int message = 0; message < 5; ++message)
        connection.nextMessage();
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(159));
}
