#include "SubscriptionManager.h"

#include "Eventually.h"
#include "LoopbackConnection.h"
#include "Requests.h"
#include "TestTrigger.h"

#include <CapturedLog.h>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <future>
#include <memory>
#include <thread>

using namespace Kesa::Service;
using namespace Kesa::Test;
using Kesa::Command::HttpRequest;
using Kesa::Command::RequestBase;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr auto TRACE = Poco::Message::PRIO_TRACE;
constexpr auto DEBUG = Poco::Message::PRIO_DEBUG;
constexpr auto WARNING = Poco::Message::PRIO_WARNING;

const char* const AT_ONCE = R"(,"updateLimit":0)";

/// Notes what a manager fires, and does what the test wants meanwhile.
class EventRecorder
{
public:
    explicit EventRecorder(SubscriptionManager& manager): m_manager(manager)
    {
        m_manager.SubscriptionSubscribing += Poco::delegate(this, &EventRecorder::subscribing);
        m_manager.SubscriptionAdded += Poco::delegate(this, &EventRecorder::added);
        m_manager.SubscriptionRemoved += Poco::delegate(this, &EventRecorder::removed);
    }
    ~EventRecorder()
    {
        m_manager.SubscriptionSubscribing -= Poco::delegate(this, &EventRecorder::subscribing);
        m_manager.SubscriptionAdded -= Poco::delegate(this, &EventRecorder::added);
        m_manager.SubscriptionRemoved -= Poco::delegate(this, &EventRecorder::removed);
    }
    EventRecorder(const EventRecorder&) = delete;
    EventRecorder& operator=(const EventRecorder&) = delete;

    std::vector<std::string> journal;
    std::function<void(SubscriptionSubscribingEventPayload&)> onSubscribing;
    std::function<void()> onAdded;
    std::function<void()> onRemoved;

private:
    void subscribing(const void* sender, SubscriptionSubscribingEventPayload& payload)
    {
        note("subscribing ", sender, payload.request);
        if (onSubscribing)
            onSubscribing(payload);
    }
    void added(const void* sender, SubscriptionAddedEventPayload& payload)
    {
        note("added ", sender, payload.subscription);
        if (onAdded)
            onAdded();
    }
    void removed(const void* sender, SubscriptionRemovedEventPayload& payload)
    {
        note("removed ", sender, payload.subscription);
        if (onRemoved)
            onRemoved();
    }
    void note(const char* event, const void* sender, const SubscriptionRequest& request)
    {
        EXPECT_EQ(sender, &m_manager);
        journal.push_back(event + request.getUri().toString());
    }

    SubscriptionManager& m_manager;
};

/// A manager of a shop's subscriptions and two clients.
class SubscriptionManagerTest: public testing::Test
{
protected:
    SubscriptionManagerTest()
    {
        trigger.deliver("/shop/orders", R"([{"id":"1"}])");
        setAmount(1);
    }

    SubscriptionObject::Ptr add(const LoopbackConnection& by, const std::string& event,
                                const std::string& members = AT_ONCE)
    {
        Kesa::Net::WebSocketProxy proxy = by.proxy();
        return manager->addSubscription(proxy, subscribeTo(event, members));
    }
    /// The same with first data, which the client reads.
    SubscriptionObject::Ptr follow(LoopbackConnection& by, const std::string& event)
    {
        SubscriptionObject::Ptr subscription = add(by, event);
        subscription->registerDataSource(trigger);
        subscription->initialUpdate();
        by.nextMessage();
        return subscription;
    }
    int remove(const LoopbackConnection& by, const std::string& event)
    {
        return manager->removeSubscription(by.proxy(), unsubscribeFrom(event));
    }
    int removeAll(const LoopbackConnection& by) { return manager->removeAllSubscriptions(by.proxy()); }

    void setAmount(int amount)
    {
        trigger.deliver("/shop/orders/1", R"({"id":"1","amount":)" + std::to_string(amount) + "}");
    }
    void change(const std::string& url, HttpRequest::RequestType type = HttpRequest::POST)
    {
        manager->updateSubscriptionsFromRequest(type, RequestBase(Poco::URI(url)), nullptr);
    }
    static int amountIn(LoopbackConnection& by) { return by.nextMessage()->getObject("data")->getValue<int>("amount"); }

    LoopbackConnection client;
    LoopbackConnection other;
    TestTrigger trigger; // outlives the manager, whose worker loads through it
    std::unique_ptr<SubscriptionManager> manager = std::make_unique<SubscriptionManager>();
};

// What may be subscribed

struct Expansion
{
    const char* event;
    bool isValid;
};

class ExpansionLevels: public SubscriptionManagerTest, public testing::WithParamInterface<Expansion>
{
};

TEST_P(ExpansionLevels, AreBounded)
{
    EXPECT_EQ(manager->hasValidSubscriptionExpansionLevel(subscribeTo(GetParam().event)), GetParam().isValid);
    EventRecorder recorder(*manager);
    CapturedLog log(Poco::Message::PRIO_INFORMATION);
    const SubscriptionObject::Ptr subscription = add(client, GetParam().event);
    EXPECT_EQ(subscription->isCanceled(), !GetParam().isValid);
    if (GetParam().isValid)
        return;
    EXPECT_EQ(subscription->result().getSubscriptionError(),
              SubscriptionError::access_denied_or_token_invalid_or_expired);
    EXPECT_EQ(subscription->result().getErrorMsg(), "expansion level not valid.");
    EXPECT_THAT(recorder.journal, IsEmpty());
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_EQ(removeAll(client), 0);
}

INSTANTIATE_TEST_SUITE_P(
    All, ExpansionLevels,
    testing::Values(Expansion{"/", true}, Expansion{"/shop?$expand=0", true}, Expansion{"/shop/orders?$expand=0", true},
                    Expansion{"/?$expand=1", false}, Expansion{"/shop?$expand=1", false},
                    Expansion{"/shop/orders?$expand=1", false}, Expansion{"/shop/orders/1?$expand=1", true},
                    Expansion{"/shop/orders/1?$expand=3", true}, Expansion{"/shop/orders/1?$expand=4", false},
                    Expansion{"/shop/orders/1?$expand=4294967295", false}));

TEST_F(SubscriptionManagerTest, ACommandIsValidUnlessItsUrlIsInvalid)
{
    EXPECT_TRUE(manager->hasValidSubscriptionCommand(subscribeTo("/shop/orders/1")));
    EXPECT_TRUE(manager->hasValidSubscriptionCommand(subscribeTo("/shop/orders/$id")));
    EXPECT_FALSE(manager->hasValidSubscriptionCommand(subscribeTo("/shop/orders/1/2")));
}

TEST_F(SubscriptionManagerTest, AConnectionMayHave200Subscriptions)
{
    for (int i = 0; i < 199; ++i)
        ASSERT_FALSE(add(client, "/shop/orders/" + std::to_string(i))->isCanceled());
    EXPECT_FALSE(add(client, "/shop/orders")->isCanceled());
    EventRecorder recorder(*manager);
    CapturedLog log;
    const SubscriptionObject::Ptr refused = add(client, "/shop/orders");
    EXPECT_EQ(refused->result().getSubscriptionError(),
              SubscriptionError::maximum_number_of_event_subscriptions_reached);
    EXPECT_EQ(refused->result().getErrorMsg(), "N_EVENT_SUB_MAX limit reached");
    EXPECT_EQ(log.count(WARNING, "Subscription limit for websocket connection reached!"), 1U);
    EXPECT_THAT(recorder.journal, IsEmpty());
    EXPECT_FALSE(add(other, "/shop/orders")->isCanceled());
    EXPECT_EQ(remove(client, "/shop/orders"), 1);
    EXPECT_FALSE(add(client, "/shop/orders")->isCanceled());
}

TEST_F(SubscriptionManagerTest, AServiceMayHave1000Subscriptions)
{
    std::vector<std::unique_ptr<LoopbackConnection>> clients;
    for (int i = 0; i < 999; ++i)
    {
        if (i % 200 == 0)
            clients.push_back(std::make_unique<LoopbackConnection>());
        ASSERT_FALSE(add(*clients.back(), "/shop/orders/1")->isCanceled());
    }
    EXPECT_FALSE(add(*clients.back(), "/shop/orders/1")->isCanceled());
    EventRecorder recorder(*manager);
    CapturedLog log;
    for (const LoopbackConnection* by: {&client, clients.back().get()}) // the second has 200 of its own
    {
        const SubscriptionObject::Ptr refused = add(*by, "/shop/orders/1");
        EXPECT_EQ(refused->result().getSubscriptionError(),
                  SubscriptionError::maximum_number_of_event_subscriptions_reached);
        EXPECT_EQ(refused->result().getErrorMsg(), "N_EVENT_TOTAL_MAX limit reached");
    }
    EXPECT_EQ(log.count(WARNING, "Subscription limit for service reached!"), 2U);
    EXPECT_EQ(log.count(WARNING), 2U);
    EXPECT_THAT(recorder.journal, IsEmpty());
    EXPECT_EQ(removeAll(*clients.front()), 200);
    EXPECT_FALSE(add(client, "/shop/orders/1")->isCanceled());
}

// The events around a subscription's life

TEST_F(SubscriptionManagerTest, ASubscriptionIsAnnouncedWhenItComesAndWhenItGoes)
{
    EventRecorder recorder(*manager);
    recorder.onSubscribing = [&](SubscriptionSubscribingEventPayload&)
    { EXPECT_EQ(remove(client, "/shop/orders"), 0) << "not in the tree yet"; };
    CapturedLog log;
    recorder.onAdded = [&] { EXPECT_TRUE(log.contains(TRACE, "add subscription to tree")); };
    recorder.onRemoved = [&] { EXPECT_TRUE(log.contains(TRACE, "SubscriptionUpdater::remove")); };
    const SubscriptionObject::Ptr subscription = add(client, "/shop/orders#f");
    EXPECT_FALSE(subscription->isCanceled());
    EXPECT_EQ(remove(client, "/shop/orders#f"), 1);
    EXPECT_THAT(recorder.journal,
                ElementsAre("subscribing /shop/orders#f", "added /shop/orders#f", "removed /shop/orders#f"));
    EXPECT_EQ(subscription.referenceCount(), 1) << "tree and updater have let go";
    EXPECT_FALSE(client.hasMessage()) << "the manager itself sends nothing";
}

TEST_F(SubscriptionManagerTest, AListenerMayRefuseASubscription)
{
    EventRecorder recorder(*manager);
    recorder.onSubscribing = [](SubscriptionSubscribingEventPayload& payload)
    { payload.cancelSubscribing(SubscriptionError::event_name_unknown, "no such event"); };
    const SubscriptionObject::Ptr refused = add(client, "/shop/orders");
    EXPECT_EQ(refused->result().getSubscriptionError(), SubscriptionError::event_name_unknown);
    EXPECT_EQ(refused->result().getErrorMsg(), "no such event");
    EXPECT_THAT(recorder.journal, ElementsAre("subscribing /shop/orders"));
    EXPECT_EQ(remove(client, "/shop/orders"), 0);
    EXPECT_EQ(refused.referenceCount(), 1);
}

TEST_F(SubscriptionManagerTest, AUrlWithoutAPlaceInTheTreeIsRefused)
{
    EventRecorder recorder(*manager);
    for (const char* event: {"/shop/orders/$id", "/shop/$spec", "/shop/orders/1/2"})
    {
        const SubscriptionObject::Ptr refused = add(client, event);
        EXPECT_EQ(refused->result().getSubscriptionError(), SubscriptionError::syntax_error) << event;
        EXPECT_EQ(refused->result().getErrorMsg(), "Subscription can not be added") << event;
        EXPECT_EQ(refused.referenceCount(), 1) << event;
    }
    EXPECT_THAT(recorder.journal, ElementsAre("subscribing /shop/orders/%24id", "subscribing /shop/%24spec",
                                              "subscribing /shop/orders/1/2"));
}

TEST_F(SubscriptionManagerTest, ARepeatedSubscribeGivesAFurtherSubscription)
{
    const SubscriptionObject::Ptr first = add(client, "/shop/orders");
    const SubscriptionObject::Ptr second = add(client, "/shop/orders");
    EXPECT_NE(first, second);
    EXPECT_EQ(remove(client, "/shop/orders"), 2);
}

TEST_F(SubscriptionManagerTest, AnIntervalMakesASubscriptionPeriodic)
{
    const SubscriptionObject::Ptr subscription = add(client, "/shop/orders/1", R"(,"interval":1000)");
    EXPECT_EQ(subscription->getInterval(), 1000);
    EXPECT_EQ(remove(client, "/shop/orders/1"), 1);
}

TEST_F(SubscriptionManagerTest, RemovingWhatIsNotThereFiresNothing)
{
    add(other, "/shop/orders");
    EventRecorder recorder(*manager);
    CapturedLog log;
    EXPECT_EQ(remove(client, "/shop/orders"), 0);
    EXPECT_TRUE(log.contains(DEBUG, "removeSubscription: no subscriptions found for connection to " +
                                        client.proxy().peerAddress().toString()));
    EXPECT_EQ(removeAll(client), 0);
    EXPECT_THAT(recorder.journal, IsEmpty());
}

TEST_F(SubscriptionManagerTest, AnUnsubscribeTakesAllQueriesOfAPath)
{
    add(client, "/shop/orders?$sortby=a");
    add(client, "/shop/orders?$sortby=b");
    add(client, "/shop/orders#f");
    add(other, "/shop/orders");
    EventRecorder recorder(*manager);
    EXPECT_EQ(remove(client, "/shop/orders"), 2);
    EXPECT_THAT(recorder.journal, ElementsAre("removed /shop/orders?$sortby=a", "removed /shop/orders?$sortby=b"));
}

TEST_F(SubscriptionManagerTest, AllOfAConnectionGoAtOnce)
{
    add(client, "/");
    add(client, "/shop/orders");
    add(client, "/shop/orders/1");
    add(other, "/shop/orders/1");
    EventRecorder recorder(*manager);
    EXPECT_EQ(removeAll(client), 3);
    EXPECT_THAT(recorder.journal, ElementsAre("removed /", "removed /shop/orders", "removed /shop/orders/1"));
    EXPECT_EQ(removeAll(client), 0);
    EXPECT_EQ(removeAll(other), 1);
}

TEST_F(SubscriptionManagerTest, ANeighbourOfARemovedFragmentGoesWithItsConnection)
{
    const int handles = client.handles();
    {
        const SubscriptionObject::Ptr survivor = add(client, "/shop/orders");
        add(client, "/shop/orders#f");
        EXPECT_EQ(remove(client, "/shop/orders#f"), 1);
        EventRecorder recorder(*manager);
        EXPECT_EQ(removeAll(client), 1);
        EXPECT_THAT(recorder.journal, ElementsAre("removed /shop/orders"));
        EXPECT_EQ(survivor.referenceCount(), 1);
    }
    EXPECT_EQ(client.handles(), handles);
}

TEST_F(SubscriptionManagerTest, AnExceptionOfAnAdditionListenerLeavesTheSubscription)
{
    EventRecorder recorder(*manager);
    recorder.onAdded = [] { throw Poco::DataException("listener"); };
    EXPECT_THROW(add(client, "/shop/orders"), Poco::DataException);
    EXPECT_EQ(remove(client, "/shop/orders"), 1);
    EXPECT_THAT(recorder.journal,
                ElementsAre("subscribing /shop/orders", "added /shop/orders", "removed /shop/orders"));
}

TEST_F(SubscriptionManagerTest, AnExceptionOfAVetoRefusesWithoutATrace)
{
    EventRecorder recorder(*manager);
    recorder.onSubscribing = [](SubscriptionSubscribingEventPayload&) { throw Poco::DataException("veto"); };
    EXPECT_THROW(add(client, "/shop/orders"), Poco::DataException);
    EXPECT_EQ(remove(client, "/shop/orders"), 0);
}

TEST_F(SubscriptionManagerTest, AfterAnExceptionOfARemovalListenerNothingIsSentToThoseThatAreGone)
{
    for (const bool closes: {false, true})
    {
        EventRecorder recorder(*manager);
        std::vector<SubscriptionObject::Ptr> gone;
        for (int i = 0; i < 3; ++i)
            gone.push_back(follow(client, "/shop/orders/1"));
        recorder.journal.clear();
        recorder.onRemoved = [] { throw Poco::DataException("listener"); };
        if (closes)
            EXPECT_THROW(removeAll(client), Poco::DataException);
        else
            EXPECT_THROW(remove(client, "/shop/orders/1"), Poco::DataException);
        EXPECT_THAT(recorder.journal, ElementsAre("removed /shop/orders/1"));
        for (const SubscriptionObject::Ptr& subscription: gone)
            EXPECT_EQ(subscription.referenceCount(), 1) << "neither tree nor updater holds it";
        EXPECT_EQ(removeAll(client), 0);
    }
}

TEST_F(SubscriptionManagerTest, SubscriptionsThatStandWhenTheManagerGoesEndSilently)
{
    const SubscriptionObject::Ptr onChange = add(client, "/shop/orders");
    const SubscriptionObject::Ptr periodic = add(client, "/shop/orders/1", R"(,"interval":1)");
    int removals = 0;
    struct Listener
    {
        void removed(SubscriptionRemovedEventPayload&) { ++*count; }
        int* count;
    } listener{&removals};
    manager->SubscriptionRemoved +=
        Poco::Delegate<Listener, SubscriptionRemovedEventPayload, false>(&listener, &Listener::removed);
    manager.reset();
    EXPECT_EQ(removals, 0);
    EXPECT_EQ(onChange.referenceCount(), 1);
    EXPECT_EQ(periodic.referenceCount(), 1);
}

// Changes

TEST_F(SubscriptionManagerTest, AGroupIsMatchedOnceAndLoadsOnce)
{
    LoopbackConnection third;
    for (LoopbackConnection* by: {&client, &other, &third})
        follow(*by, "/shop/orders/1");
    const int loads = trigger.loads();
    setAmount(2);
    CapturedLog log;
    change("/shop/orders/1");
    EXPECT_EQ(log.count(TRACE, "updateSubscriptionsFromRequest for POST @ /shop/orders/1"), 1U);
    EXPECT_EQ(log.count(TRACE, "subscriptionApplies testing /shop/orders/1"), 1U);
    EXPECT_EQ(log.count(TRACE, "handleAutoSubscribe"), 3U) << "once for each member";
    EXPECT_EQ(trigger.loads(), loads + 1);
    for (LoopbackConnection* by: {&client, &other, &third})
        EXPECT_EQ(amountIn(*by), 2);
}

TEST_F(SubscriptionManagerTest, EachQueryIsAGroupOfItsOwn)
{
    follow(client, "/shop/orders/1?$fields=amount");
    follow(other, "/shop/orders/1");
    const int loads = trigger.loads();
    setAmount(2);
    CapturedLog log;
    change("/shop/orders/1");
    EXPECT_TRUE(log.contains(TRACE, "subscriptionApplies testing /shop/orders/1?$fields=amount"));
    EXPECT_TRUE(log.contains(TRACE, "subscriptionApplies testing /shop/orders/1"));
    EXPECT_EQ(trigger.loads(), loads + 2);
    EXPECT_EQ(amountIn(client), 2);
    EXPECT_EQ(amountIn(other), 2);
}

TEST_F(SubscriptionManagerTest, AChangeThatConcernsNobodyLoadsAndSendsNothing)
{
    follow(client, "/shop/orders/1");
    EventRecorder recorder(*manager);
    const int loads = trigger.loads();
    setAmount(2);
    change("/shop/customers/1");
    change("/shop/orders/2");
    change("/shop/orders/1", HttpRequest::GET);
    EXPECT_EQ(trigger.loads(), loads);
    EXPECT_FALSE(client.hasMessage());
    EXPECT_THAT(recorder.journal, IsEmpty());
}

TEST_F(SubscriptionManagerTest, AnExceptionEndsTheChangeForTheGroupsThatFollow)
{
    follow(client, "/shop/orders/1?$fields=amount"); // the second group
    follow(other, "/shop/orders/1");
    const auto failing = [](const SubscriptionRequest& request)
    {
        if (!request.hasAnyCriteria())
            throw Poco::DataException("disk on fire");
    };
    trigger.onLoad(failing);
    setAmount(2);
    EXPECT_THROW(change("/shop/orders/1"), Poco::DataException);
    EXPECT_FALSE(client.hasMessage());
    EXPECT_FALSE(other.hasMessage());
    trigger.onLoad(nullptr);
    change("/shop/orders/1"); // the mutex is free again
    EXPECT_EQ(amountIn(client), 2);
    EXPECT_EQ(amountIn(other), 2);
}

TEST_F(SubscriptionManagerTest, SubscribingDoesNotWaitForAChange)
{
    follow(client, "/shop/orders/1");
    bool isDone = false;
    trigger.onLoad(
        [&](const SubscriptionRequest&)
        {
            auto round = std::async(std::launch::async,
                                    [&]
                                    {
                                        add(other, "/shop/orders/1");
                                        remove(other, "/shop/orders/1");
                                        removeAll(other);
                                    });
            isDone = round.wait_for(std::chrono::seconds(20)) == std::future_status::ready;
        });
    setAmount(2);
    change("/shop/orders/1");
    EXPECT_TRUE(isDone);
    EXPECT_EQ(amountIn(client), 2);
}

TEST_F(SubscriptionManagerTest, ChangesAreProcessedOneAtATime)
{
    follow(client, "/shop/orders/1");
    static thread_local bool isReporter = false; // the worker may load beside them
    std::atomic<int> inside{0};
    std::atomic<int> most{0};
    trigger.onLoad(
        [&](const SubscriptionRequest&)
        {
            if (!isReporter)
                return;
            most = std::max<int>(most, ++inside);
            std::this_thread::yield();
            --inside;
        });
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [this]
            {
                isReporter = true;
                for (int round = 0; round < 50; ++round)
                    change("/shop/orders/1");
            });
    for (std::thread& thread: threads)
        thread.join();
    EXPECT_EQ(most, 1);
}

TEST_F(SubscriptionManagerTest, AMemberThatIsRemovedDuringAChangeStillGetsIt)
{
    follow(client, "/shop/orders/1");
    SubscriptionObject::Ptr leaving = follow(other, "/shop/orders/1");
    trigger.onLoad([&](const SubscriptionRequest&) { EXPECT_EQ(removeAll(other), 1); });
    setAmount(2);
    change("/shop/orders/1");
    EXPECT_EQ(amountIn(client), 2);
    EXPECT_EQ(amountIn(other), 2);
    EXPECT_EQ(leaving.referenceCount(), 1);
}

// Connections that end

/// The same clients on a connection manager, so that they can end.
class EndingConnections: public SubscriptionManagerTest
{
protected:
    EndingConnections() { client.serveBy(server); }

    void end()
    {
        client.leave();
        ASSERT_TRUE(eventually([this] { return client.proxy().hasEnded(); }));
    }

    Kesa::Net::WebsocketConnectionManager server;
};

TEST_F(EndingConnections, AnEndedConnectionIsRefused)
{
    const Kesa::Net::WebSocketProxy proxy = client.proxy();
    end();
    EventRecorder recorder(*manager);
    const SubscriptionObject::Ptr refused = add(client, "/shop/orders");
    EXPECT_EQ(refused->result().getSubscriptionError(), SubscriptionError::syntax_error);
    EXPECT_THAT(recorder.journal, ElementsAre("subscribing /shop/orders"));
    EXPECT_EQ(removeAll(client), 0);
}

TEST_F(EndingConnections, AConnectionThatEndsDuringTheVetoIsRefused)
{
    EventRecorder recorder(*manager);
    recorder.onSubscribing = [&](SubscriptionSubscribingEventPayload&)
    {
        end();
        EXPECT_EQ(removeAll(client), 0); // the sweep comes too early
    };
    EXPECT_TRUE(add(client, "/shop/orders")->isCanceled());
    EXPECT_THAT(recorder.journal, ElementsAre("subscribing /shop/orders"));
    EXPECT_EQ(removeAll(client), 0);
}

TEST_F(EndingConnections, AConnectionThatEndsWhileItsSubscriptionIsAnnouncedLeavesNothing)
{
    SubscriptionObject::Ptr subscription;
    EventRecorder recorder(*manager);
    recorder.onAdded = [&]
    {
        end();
        EXPECT_EQ(std::async(std::launch::async, [&] { return removeAll(client); }).get(), 1);
        EXPECT_THAT(recorder.journal, ElementsAre("subscribing /shop/orders", "added /shop/orders"));
    };
    subscription = add(client, "/shop/orders");
    EXPECT_THAT(recorder.journal,
                ElementsAre("subscribing /shop/orders", "added /shop/orders", "removed /shop/orders"));
    EXPECT_EQ(subscription.referenceCount(), 1) << "neither tree nor updater holds it";
}

TEST_F(EndingConnections, TheSameHoldsWhenAListenerRaises)
{
    EventRecorder recorder(*manager);
    recorder.onAdded = [&]
    {
        EXPECT_EQ(removeAll(client), 1);
        throw Poco::DataException("listener");
    };
    const int handles = client.handles();
    EXPECT_THROW(add(client, "/shop/orders"), Poco::DataException);
    EXPECT_THAT(recorder.journal,
                ElementsAre("subscribing /shop/orders", "added /shop/orders", "removed /shop/orders"));
    EXPECT_EQ(client.handles(), handles) << "nothing holds the connection";
}

} // namespace
