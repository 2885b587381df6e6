#include <SubscriptionHandling/SubscriptionEventFilter.h>

#include "LoopbackConnection.h"
#include "Requests.h"
#include "SubscriptionManager.h"

#include <CapturedLog.h>

#include <Poco/Delegate.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <future>
#include <stdexcept>

using namespace Kesa::Service;
using Kesa::Command::UrlPath;
using Kesa::Test::CapturedLog;
using Kesa::Test::LoopbackConnection;
using Kesa::Test::subscribeTo;
using Kesa::Test::unsubscribeFrom;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr auto WARNING = Poco::Message::PRIO_WARNING;

const UrlPath ORDERS("/shop/orders");

class Filter: public SubscriptionEventFilter
{
};

/// Listens under a name to additions and removals, and notes each call.
class Listener
{
public:
    typedef std::vector<std::string> Journal;

    Listener(std::string name, Journal& journal): m_name(std::move(name)), m_journal(journal) {}

    std::function<void()> whenCalled;
    const void* sender = this;

    Poco::Delegate<Listener, SubscriptionAddedEventPayload> additions() { return {this, &Listener::added}; }
    Poco::Delegate<Listener, SubscriptionRemovedEventPayload> removals() { return {this, &Listener::removed}; }

private:
    void added(const void* from, SubscriptionAddedEventPayload& payload)
    {
        sender = from;
        note("+", payload.subscription);
    }
    void removed(const void* from, SubscriptionRemovedEventPayload& payload)
    {
        sender = from;
        note("-", payload.subscription);
    }
    void note(const char* sign, const SubscriptionRequest& subscription)
    {
        m_journal.push_back(m_name + sign + subscription.getUri().toString());
        if (whenCalled)
            whenCalled();
    }

    const std::string m_name;
    Journal& m_journal;
};

/// A filter that listens to a manager, and one client.
class SubscriptionEventFilterTest: public testing::Test
{
protected:
    SubscriptionEventFilterTest() { filter.connect(manager); }
    ~SubscriptionEventFilterTest() override { filter.disconnect(manager); }

    void subscribe(const std::string& event)
    {
        Kesa::Net::WebSocketProxy proxy = client.proxy();
        ASSERT_FALSE(manager.addSubscription(proxy, subscribeTo(event))->isCanceled());
    }
    void unsubscribe(const std::string& event) { manager.removeSubscription(client.proxy(), unsubscribeFrom(event)); }

    Listener::Journal journal;
    Listener a{"a", journal};
    Listener b{"b", journal};
    Listener c{"c", journal};
    LoopbackConnection client;
    Filter filter;
    SubscriptionManager manager;
};

TEST_F(SubscriptionEventFilterTest, ANewFilterHasNoListeners)
{
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_FALSE(filter.removeEvent(ORDERS, a.additions()));
    EXPECT_FALSE(filter.removeEvent(ORDERS, a.removals()));
}

TEST_F(SubscriptionEventFilterTest, AListenerHearsOfTheSubscriptionsOfItsUrl)
{
    EXPECT_TRUE(filter.registerEvent(ORDERS, a.additions()));
    EXPECT_TRUE(filter.registerEvent(ORDERS, a.removals()));
    subscribe("/shop/orders");
    EXPECT_EQ(a.sender, nullptr);
    a.sender = this;
    unsubscribe("/shop/orders");
    EXPECT_EQ(a.sender, nullptr);
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders", "a-/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, AListenerOnAResourceHearsNothingOfElementsAndService)
{
    filter.registerEvent(ORDERS, a.additions());
    filter.registerEvent(ORDERS, a.removals());
    for (const char* other: {"/shop/orders/1", "/shop", "/", "/shop/customers"})
    {
        subscribe(other);
        unsubscribe(other);
    }
    EXPECT_THAT(journal, IsEmpty());
}

TEST_F(SubscriptionEventFilterTest, QueryAndFragmentOfASubscriptionDoNotMatter)
{
    filter.registerEvent(UrlPath("/shop/orders?$fields=id"), a.additions());
    subscribe("/shop/orders?$sortby=name#f");
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders?$sortby=name#f"));
}

TEST_F(SubscriptionEventFilterTest, ListenersOfOneUrlAreCalledInTheOrderOfTheirRegistration)
{
    for (Listener* listener: {&c, &a, &b})
    {
        filter.registerEvent(ORDERS, listener->additions());
        filter.registerEvent(ORDERS, listener->removals());
    }
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("c+/shop/orders", "a+/shop/orders", "b+/shop/orders", "c-/shop/orders",
                                     "a-/shop/orders", "b-/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, OneListenerMayListenToSeveralUrls)
{
    EXPECT_TRUE(filter.registerEvent(ORDERS, a.additions()));
    EXPECT_TRUE(filter.registerEvent(UrlPath("/shop/orders/1"), a.additions()));
    subscribe("/shop/orders");
    subscribe("/shop/orders/1");
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders", "a+/shop/orders/1"));
}

TEST_F(SubscriptionEventFilterTest, TheFilterKeepsACloneOfTheDelegate)
{
    {
        auto given = a.additions();
        filter.registerEvent(ORDERS, given);
        given.disable();
    }
    subscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, ARemovedListenerIsNotCalledAndOthersAre)
{
    for (Listener* listener: {&a, &b})
    {
        filter.registerEvent(ORDERS, listener->additions());
        filter.registerEvent(ORDERS, listener->removals());
    }
    EXPECT_TRUE(filter.removeEvent(ORDERS, a.additions()));
    EXPECT_TRUE(filter.removeEvent(ORDERS, b.removals()));
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("b+/shop/orders", "a-/shop/orders"));
    EXPECT_FALSE(filter.removeEvent(ORDERS, a.additions()));
}

TEST_F(SubscriptionEventFilterTest, RemovingWhatWasNeverRegisteredLogsNothing)
{
    filter.registerEvent(ORDERS, a.additions());
    CapturedLog log;
    EXPECT_FALSE(filter.removeEvent(ORDERS, b.additions()));
    EXPECT_FALSE(filter.removeEvent(ORDERS, a.removals()));
    EXPECT_FALSE(filter.removeEvent(UrlPath("/shop"), a.additions()));
    EXPECT_FALSE(filter.removeEvent(UrlPath(), a.additions()));
    EXPECT_THAT(log.entries(), IsEmpty());
}

/// What registerEvent says, for each of the two kinds.
struct Kind
{
    const char* name;
    bool (*enlist)(Filter&, const UrlPath&, Listener&);
    bool (*dismiss)(Filter&, const UrlPath&, Listener&);
};

class SubscriptionEventFilterKinds: public SubscriptionEventFilterTest, public testing::WithParamInterface<Kind>
{
protected:
    void subscribeAndLeave()
    {
        subscribe("/shop/orders");
        unsubscribe("/shop/orders");
    }
};

TEST_P(SubscriptionEventFilterKinds, ASecondRegistrationIsRefusedWithAWarning)
{
    EXPECT_TRUE(GetParam().enlist(filter, ORDERS, a));
    {
        CapturedLog log;
        EXPECT_FALSE(GetParam().enlist(filter, UrlPath("/shop/orders#f"), a));
        EXPECT_TRUE(log.contains(WARNING, std::string("duplicate event-filter registration of ") + GetParam().name +
                                              " for URI: \"/shop/orders#f\""));
        EXPECT_EQ(log.entries().size(), 1U);
    }
    subscribeAndLeave();
    EXPECT_EQ(journal.size(), 1U);
    EXPECT_TRUE(GetParam().dismiss(filter, ORDERS, a));
    EXPECT_FALSE(GetParam().dismiss(filter, ORDERS, a));
}

TEST_P(SubscriptionEventFilterKinds, AnInvalidUrlIsRefusedWithAWarning)
{
    const UrlPath invalid("/shop/orders/1/2");
    {
        CapturedLog log;
        EXPECT_FALSE(GetParam().enlist(filter, invalid, a));
        EXPECT_TRUE(log.contains(WARNING, std::string("can't register event-filter of ") + GetParam().name +
                                              " for invalid URI: \"/shop/orders/1/2\""));
        EXPECT_EQ(log.entries().size(), 1U);
    }
    EXPECT_FALSE(GetParam().dismiss(filter, invalid, a));
}

INSTANTIATE_TEST_SUITE_P(Kinds, SubscriptionEventFilterKinds,
                         testing::Values(Kind{"addition",
                                              [](Filter& filter, const UrlPath& url, Listener& listener)
                                              { return filter.registerEvent(url, listener.additions()); },
                                              [](Filter& filter, const UrlPath& url, Listener& listener)
                                              { return filter.removeEvent(url, listener.additions()); }},
                                         Kind{"removal",
                                              [](Filter& filter, const UrlPath& url, Listener& listener)
                                              { return filter.registerEvent(url, listener.removals()); },
                                              [](Filter& filter, const UrlPath& url, Listener& listener)
                                              { return filter.removeEvent(url, listener.removals()); }}),
                         [](const auto& kind) { return std::string(kind.param.name); });

TEST_F(SubscriptionEventFilterTest, ARemovalListenerMayRemoveItself)
{
    filter.registerEvent(ORDERS, a.removals());
    filter.registerEvent(ORDERS, b.removals());
    a.whenCalled = [this] { EXPECT_TRUE(filter.removeEvent(ORDERS, a.removals())); };
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a-/shop/orders", "b-/shop/orders"));
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a-/shop/orders", "b-/shop/orders", "b-/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, AListenerThatARemovalListenerAddsIsCalledInTheSamePass)
{
    filter.registerEvent(ORDERS, a.removals());
    a.whenCalled = [this] { EXPECT_TRUE(filter.registerEvent(ORDERS, b.removals())); };
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a-/shop/orders", "b-/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, TheSameHoldsForAListenerThatOthersFollow)
{
    filter.registerEvent(ORDERS, a.removals());
    filter.registerEvent(ORDERS, c.removals());
    filter.registerEvent(UrlPath("/shop/orders/1"), c.removals());
    a.whenCalled = [this] { EXPECT_TRUE(filter.registerEvent(ORDERS, b.removals())); };
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a-/shop/orders", "c-/shop/orders", "b-/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, ARemovalListenerMayMoveItselfToTheEnd)
{
    filter.registerEvent(ORDERS, a.removals());
    a.whenCalled = [this]
    {
        EXPECT_TRUE(filter.removeEvent(ORDERS, a.removals()));
        EXPECT_TRUE(filter.registerEvent(ORDERS, a.removals()));
    };
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a-/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, AnAdditionListenerMayAddAndRemoveRemovalListeners)
{
    filter.registerEvent(ORDERS, a.additions());
    filter.registerEvent(ORDERS, c.removals());
    a.whenCalled = [this]
    {
        EXPECT_TRUE(filter.registerEvent(ORDERS, b.removals()));
        EXPECT_TRUE(filter.removeEvent(ORDERS, c.removals()));
    };
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders", "b-/shop/orders"));
}

TEST_F(SubscriptionEventFilterTest, AnExceptionSkipsTheRemainingListenersAndFreesTheLock)
{
    for (Listener* listener: {&a, &b})
    {
        filter.registerEvent(ORDERS, listener->additions());
        filter.registerEvent(ORDERS, listener->removals());
    }
    a.whenCalled = [] { throw std::runtime_error("out of order"); };
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    EXPECT_THROW(manager.addSubscription(proxy, subscribeTo("/shop/orders")), std::runtime_error);
    EXPECT_THROW(unsubscribe("/shop/orders"), std::runtime_error);
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders", "a-/shop/orders"));
    EXPECT_TRUE(filter.removeEvent(ORDERS, a.additions()));
    EXPECT_TRUE(filter.removeEvent(ORDERS, a.removals()));
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders", "a-/shop/orders", "b+/shop/orders", "b-/shop/orders"));
}

/// Holds up a listener until it is told otherwise.
class Barrier
{
public:
    /// What the listener does.
    void arrive()
    {
        m_arrived.set_value();
        m_mayGoOn.get_future().wait();
    }
    void waitForArrival() { m_arrived.get_future().wait(); }
    void open() { m_mayGoOn.set_value(); }

private:
    std::promise<void> m_arrived;
    std::promise<void> m_mayGoOn;
};

bool isPending(const std::future<void>& action)
{
    return action.wait_for(std::chrono::milliseconds(20)) == std::future_status::timeout;
}

TEST_F(SubscriptionEventFilterTest, ChangesOfAdditionListenersWaitForARunningOne)
{
    Barrier barrier;
    filter.registerEvent(ORDERS, a.additions());
    a.whenCalled = [&] { barrier.arrive(); };
    const std::future<void> subscribing = std::async(std::launch::async, [this] { subscribe("/shop/orders"); });
    barrier.waitForArrival();
    const std::future<void> registering =
        std::async(std::launch::async, [this] { EXPECT_TRUE(filter.registerEvent(ORDERS, b.additions())); });
    const std::future<void> removing =
        std::async(std::launch::async, [this] { EXPECT_TRUE(filter.removeEvent(ORDERS, a.additions())); });
    EXPECT_TRUE(isPending(registering));
    EXPECT_TRUE(isPending(removing));
    EXPECT_TRUE(filter.registerEvent(ORDERS, b.removals())) << "the other kind has a lock of its own";
    barrier.open();
}

TEST_F(SubscriptionEventFilterTest, ChangesOfRemovalListenersWaitForARunningOne)
{
    Barrier barrier;
    subscribe("/shop/orders");
    filter.registerEvent(ORDERS, a.removals());
    a.whenCalled = [&] { barrier.arrive(); };
    const std::future<void> unsubscribing = std::async(std::launch::async, [this] { unsubscribe("/shop/orders"); });
    barrier.waitForArrival();
    const std::future<void> registering =
        std::async(std::launch::async, [this] { EXPECT_TRUE(filter.registerEvent(ORDERS, b.removals())); });
    EXPECT_TRUE(isPending(registering));
    EXPECT_TRUE(filter.registerEvent(ORDERS, b.additions())) << "the other kind has a lock of its own";
    barrier.open();
}

TEST_F(SubscriptionEventFilterTest, DisconnectWaitsForARunningListener)
{
    Barrier barrier;
    filter.registerEvent(ORDERS, a.additions());
    a.whenCalled = [&] { barrier.arrive(); };
    const std::future<void> subscribing = std::async(std::launch::async, [this] { subscribe("/shop/orders"); });
    barrier.waitForArrival();
    const std::future<void> disconnecting = std::async(std::launch::async, [this] { filter.disconnect(manager); });
    EXPECT_TRUE(isPending(disconnecting));
    barrier.open();
    disconnecting.wait();
    filter.connect(manager);
}

TEST_F(SubscriptionEventFilterTest, AfterDisconnectNothingIsHeardAndTheListenersStay)
{
    filter.registerEvent(ORDERS, a.additions());
    filter.registerEvent(ORDERS, a.removals());
    filter.disconnect(manager);
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, IsEmpty());
    filter.connect(manager);
    subscribe("/shop/orders");
    unsubscribe("/shop/orders");
    EXPECT_THAT(journal, ElementsAre("a+/shop/orders", "a-/shop/orders"));
}

} // namespace
