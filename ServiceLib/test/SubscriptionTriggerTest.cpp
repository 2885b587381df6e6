#include <SubscriptionHandling/SubscriptionTrigger.h>

#include "Eventually.h"
#include "LoopbackConnection.h"
#include "Requests.h"
#include "SubscriptionManager.h"
#include "TestTrigger.h"

#include <CapturedLog.h>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <thread>

using namespace Kesa::Service;
using namespace Kesa::Test;
using Kesa::Command::HttpRequest;
using Kesa::Command::UrlPath;
using testing::AllOf;
using testing::HasSubstr;

namespace
{

constexpr auto TRACE = Poco::Message::PRIO_TRACE;
constexpr auto ERROR = Poco::Message::PRIO_ERROR;

Poco::JSON::Object::Ptr json(const std::string& text)
{
    return Poco::JSON::Parser().parse(text).extract<Poco::JSON::Object::Ptr>();
}

/// A trigger of a shop, detached, with a manager that it may be attached to.
class SubscriptionTriggerTest: public testing::Test
{
protected:
    SubscriptionTriggerTest()
    {
        trigger.deliver("/shop/orders", R"([{"id":"1"}])");
        trigger.deliver("/shop/orders/1", R"({"amount":1})");
    }
    ~SubscriptionTriggerTest() override { trigger.deinitialise(); }

    /// Subscribes as a client's message would, first data included.
    SubscriptionObject::Ptr subscribe(LoopbackConnection& who, const std::string& event)
    {
        Kesa::Net::WebSocketProxy proxy = who.proxy();
        SubscriptionObject::Ptr subscription =
            manager.addSubscription(proxy, subscribeTo(event, R"(,"updateLimit":0)"));
        if (!subscription->isCanceled())
        {
            subscription->registerDataSource(trigger);
            subscription->initialUpdate();
            who.nextMessage();
        }
        return subscription;
    }
    /// The service's data changes; nobody is told.
    void setAmount(int amount) { trigger.deliver("/shop/orders/1", R"({"amount":)" + std::to_string(amount) + "}"); }
    /// The service says that the order has changed.
    bool reportOrder(const Poco::JSON::Object* changed = nullptr)
    {
        return trigger.changedElement(HttpRequest::POST, "shop", "orders", "1", changed);
    }
    bool checksNewSubscriptions()
    {
        const int before = trigger.checks();
        Kesa::Net::WebSocketProxy proxy = other.proxy();
        manager.addSubscription(proxy, subscribeTo("/shop"));
        manager.removeSubscription(proxy, unsubscribeFrom("/shop"));
        return trigger.checks() != before;
    }
    static int amountIn(LoopbackConnection& who)
    {
        return who.nextMessage()->getObject("data")->getValue<int>("amount");
    }

    LoopbackConnection client;
    LoopbackConnection other;
    TestTrigger trigger; // outlives the manager, whose worker loads through it
    SubscriptionManager manager;
};

struct Method
{
    int type;
    const char* text;
};

class RequestTypes: public SubscriptionTriggerTest, public testing::WithParamInterface<Method>
{
};

TEST_P(RequestTypes, AppearUnderTheirNamesAndArePassedOn)
{
    trigger.initialise(manager);
    const auto type = static_cast<HttpRequest::RequestType>(GetParam().type);
    const std::string text = GetParam().text;
    CapturedLog log;
    EXPECT_TRUE(trigger.changedResourceCollection(type, "shop", "orders", nullptr));
    EXPECT_TRUE(log.contains(TRACE, "changedResourceCollection " + text + " on Resource: shop.orders"));
    EXPECT_TRUE(log.contains(TRACE, "updateSubscriptionsFromRequest for " + text + " @ http://[::1]:443/shop/orders"));
    EXPECT_TRUE(trigger.changedElement(type, "shop", "orders", "1", nullptr));
    EXPECT_TRUE(log.contains(TRACE, "changedElement " + text + " on Element: shop.orders.1"));
    EXPECT_TRUE(
        log.contains(TRACE, "updateSubscriptionsFromRequest for " + text + " @ http://[::1]:443/shop/orders/1"));
}

INSTANTIATE_TEST_SUITE_P(All, RequestTypes,
                         testing::Values(Method{0, "UNSUPPORTED"}, Method{1, "GET"}, Method{2, "HEAD"},
                                         Method{3, "POST"}, Method{4, "PUT"}, Method{5, "DELETE"},
                                         Method{6, "UNKNOWN type"}, Method{-1, "UNKNOWN type"}));

/// Each way to report a change of the order 1.
struct Report
{
    const char* name;
    bool (*call)(TestTrigger&, const Poco::JSON::Object::Ptr&);
};

const Report REPORTS[] = {
    {"byRequest", [](TestTrigger& trigger, const Poco::JSON::Object::Ptr& changed)
     { return trigger.byRequest(HttpRequest(HttpRequest::POST, Poco::URI("/shop/orders/1"), changed)); }},
    {"byDeleteRequest", [](TestTrigger& trigger, const Poco::JSON::Object::Ptr& changed)
     { return trigger.byDeleteRequest(HttpRequest(HttpRequest::POST, Poco::URI("/shop/orders/1")), changed.get()); }},
    {"manualTrigger", [](TestTrigger& trigger, const Poco::JSON::Object::Ptr& changed)
     { return trigger.manualTrigger(HttpRequest::POST, UrlPath("/shop/orders/1"), changed.get()); }},
    {"changedElement", [](TestTrigger& trigger, const Poco::JSON::Object::Ptr& changed)
     { return trigger.changedElement(HttpRequest::POST, "shop", "orders", "1", changed.get()); }}};

class Reports: public SubscriptionTriggerTest, public testing::WithParamInterface<Report>
{
};

TEST_P(Reports, ReachTheSubscriptionsOfTheUrl)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    setAmount(2);
    EXPECT_TRUE(GetParam().call(trigger, nullptr));
    EXPECT_EQ(amountIn(client), 2);
}

TEST_P(Reports, SayWhichMembersChanged)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1?$fields=amount");
    setAmount(2);
    EXPECT_TRUE(GetParam().call(trigger, json(R"({"note":"in a hurry"})")));
    EXPECT_FALSE(client.hasMessage()) << "nothing that it asked for has changed";
    EXPECT_TRUE(GetParam().call(trigger, json(R"({"amount":2})")));
    EXPECT_EQ(amountIn(client), 2);
}

TEST_P(Reports, SucceedWithoutAnySubscription)
{
    trigger.initialise(manager);
    EXPECT_TRUE(GetParam().call(trigger, nullptr));
    EXPECT_EQ(trigger.loads(), 0);
}

TEST_P(Reports, FailWithAnErrorWhileTheTriggerIsDetached)
{
    CapturedLog log;
    EXPECT_FALSE(GetParam().call(trigger, nullptr));
    EXPECT_EQ(log.count(ERROR, "SubscriptionManager not available."), 1U);
    trigger.initialise(manager);
    EXPECT_TRUE(GetParam().call(trigger, nullptr));
    trigger.deinitialise();
    EXPECT_FALSE(GetParam().call(trigger, nullptr));
    EXPECT_EQ(log.count(ERROR, "SubscriptionManager not available."), 2U);
}

INSTANTIATE_TEST_SUITE_P(All, Reports, testing::ValuesIn(REPORTS),
                         [](const auto& report) { return std::string(report.param.name); });

TEST_F(SubscriptionTriggerTest, AQueryInTheReportedUrlGivesNoCriteria)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1?$fields=amount");
    setAmount(2);
    // With criteria this would be the deletion of one field, which this subscription did not ask for.
    EXPECT_TRUE(
        trigger.byDeleteRequest(HttpRequest(HttpRequest::DELETE, Poco::URI("/shop/orders/1?$fields=note")), nullptr));
    EXPECT_EQ(amountIn(client), 2);
}

TEST_F(SubscriptionTriggerTest, AChangedResourceReachesItsSubscriptionsAndNotThoseOfItsElements)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders");
    subscribe(other, "/shop/orders/1");
    setAmount(2);
    trigger.deliver("/shop/orders", R"([{"id":"1"},{"id":"2"}])");
    EXPECT_TRUE(trigger.changedResourceCollection(HttpRequest::POST, "shop", "orders", nullptr));
    EXPECT_EQ(client.nextMessage()->getArray("data")->size(), 2U);
    EXPECT_FALSE(other.hasMessage());
}

TEST_F(SubscriptionTriggerTest, TheChangedFormsWriteTheirTraceLineAlsoWhileDetached)
{
    CapturedLog log;
    EXPECT_FALSE(trigger.changedResourceCollection(HttpRequest::PUT, "shop", "orders", nullptr));
    EXPECT_FALSE(trigger.changedElement(HttpRequest::PUT, "shop", "orders", "1", nullptr));
    EXPECT_TRUE(log.contains(TRACE, "changedResourceCollection PUT on Resource: shop.orders"));
    EXPECT_TRUE(log.contains(TRACE, "changedElement PUT on Element: shop.orders.1"));
    EXPECT_EQ(log.count(ERROR, "SubscriptionManager not available."), 2U);
}

TEST_F(SubscriptionTriggerTest, ANameThatIsNoUrlRaises)
{
    trigger.initialise(manager);
    EXPECT_THROW(trigger.changedResourceCollection(HttpRequest::POST, "shop", "%zz", nullptr), Poco::SyntaxException);
    EXPECT_THROW(trigger.changedElement(HttpRequest::POST, "shop", "orders", "%", nullptr), Poco::SyntaxException);
}

TEST_F(SubscriptionTriggerTest, AnInvalidUrlGoesOnToTheManager)
{
    trigger.initialise(manager);
    CapturedLog log;
    EXPECT_TRUE(trigger.changedElement(HttpRequest::POST, "shop", "orders", "1/2", nullptr));
    EXPECT_TRUE(log.contains(TRACE, "updateSubscriptionsFromRequest for POST @ http://[::1]:443/shop/orders/1/2"));
}

TEST_F(SubscriptionTriggerTest, AnExceptionOfTheDataSourceGoesToTheReporter)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    trigger.onLoad([](const SubscriptionRequest&) { throw Poco::DataException("disk on fire"); });
    EXPECT_THROW(reportOrder(), Poco::DataException);
    trigger.onLoad(nullptr);
    setAmount(2);
    EXPECT_TRUE(reportOrder()) << "no lock was left behind";
    EXPECT_EQ(amountIn(client), 2);
}

TEST_F(SubscriptionTriggerTest, WhileAttachedItChecksNewSubscriptionsOnceEach)
{
    subscribe(client, "/shop/orders/1");
    EXPECT_EQ(trigger.checks(), 0);
    trigger.initialise(manager);
    trigger.initialise(manager); // ignored
    subscribe(client, "/shop/orders/1");
    EXPECT_EQ(trigger.checks(), 1);
    trigger.deinitialise();
    trigger.deinitialise(); // ignored
    subscribe(client, "/shop/orders/1");
    EXPECT_EQ(trigger.checks(), 1);
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    EXPECT_EQ(trigger.checks(), 2);
}

TEST_F(SubscriptionTriggerTest, ASecondManagerIsIgnored)
{
    SubscriptionManager second;
    trigger.initialise(manager);
    trigger.initialise(second);
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    second.addSubscription(proxy, subscribeTo("/shop/orders/1"));
    EXPECT_EQ(trigger.checks(), 0);
    subscribe(client, "/shop/orders/1");
    EXPECT_EQ(trigger.checks(), 1);
}

/// Counts the additions and removals that it hears of.
struct Counter
{
    void added(SubscriptionAddedEventPayload&) { ++additions; }
    void removed(SubscriptionRemovedEventPayload&) { ++removals; }

    Poco::Delegate<Counter, SubscriptionAddedEventPayload, false> onAdded() { return {this, &Counter::added}; }
    Poco::Delegate<Counter, SubscriptionRemovedEventPayload, false> onRemoved() { return {this, &Counter::removed}; }

    int additions = 0;
    int removals = 0;
};

TEST_F(SubscriptionTriggerTest, ItsListenersHearOnlyWhileItIsAttached)
{
    Counter counter;
    trigger.registerEvent(UrlPath("/shop/orders/1"), counter.onAdded());
    trigger.registerEvent(UrlPath("/shop/orders/1"), counter.onRemoved());
    trigger.initialise(manager);
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    EXPECT_EQ(counter.additions, 1);
    manager.removeSubscription(client.proxy(), unsubscribeFrom("/shop/orders/1"));
    EXPECT_EQ(counter.removals, 1);
    trigger.deinitialise();
    subscribe(client, "/shop/orders/1");
    EXPECT_EQ(counter.additions, 1);
}

TEST_F(SubscriptionTriggerTest, AVetoRefusesTheSubscription)
{
    trigger.initialise(manager);
    trigger.onCheck([](SubscriptionSubscribingEventPayload& payload)
                    { payload.cancelSubscribing(SubscriptionError::event_name_unknown, "no such order"); });
    const SubscriptionObject::Ptr refused = subscribe(client, "/shop/orders/1");
    EXPECT_EQ(refused->result().getSubscriptionError(), SubscriptionError::event_name_unknown);
    EXPECT_EQ(refused->result().getErrorMsg(), "no such order");
}

TEST_F(SubscriptionTriggerTest, ItsDestructorDetachesIt)
{
    {
        TestTrigger passing;
        passing.initialise(manager);
    }
    Kesa::Net::WebSocketProxy proxy = client.proxy();
    EXPECT_FALSE(manager.addSubscription(proxy, subscribeTo("/shop/orders/1"))->isCanceled());
}

TEST_F(SubscriptionTriggerTest, SendUpdateMakesTheSubscriptionLoadItsData)
{
    SubscriptionObject::Ptr subscription = subscribe(client, "/shop/orders/1");
    setAmount(2);
    SubscriptionObject* pointer = subscription.get();
    trigger.sendUpdate(pointer);
    EXPECT_EQ(amountIn(client), 2);
    EXPECT_EQ(trigger.loads(), 2);
}

TEST_F(SubscriptionTriggerTest, SendUpdateWithoutASubscriptionDoesNothing)
{
    SubscriptionObject* none = nullptr;
    trigger.sendUpdate(none);
    EXPECT_EQ(trigger.loads(), 0);
}

// Changes that are reported from inside a callback of the library

TEST_F(SubscriptionTriggerTest, ADataSourceMayReportChanges)
{
    trigger.initialise(manager);
    trigger.deliver("/shop/customers/7", R"({"amount":70})");
    subscribe(other, "/shop/customers/7");
    subscribe(client, "/shop/orders/1");
    trigger.onLoad(
        [&](const SubscriptionRequest& request)
        {
            if (request.getUri().getPath() != "/shop/orders/1")
                return;
            trigger.deliver("/shop/customers/7", R"({"amount":71})");
            EXPECT_TRUE(trigger.changedElement(HttpRequest::POST, "shop", "customers", "7", nullptr));
            EXPECT_FALSE(other.hasMessage()) << "the library's locks are still held";
        });
    setAmount(2);
    EXPECT_TRUE(reportOrder());
    EXPECT_EQ(amountIn(client), 2);
    EXPECT_EQ(amountIn(other), 71);
}

TEST_F(SubscriptionTriggerTest, AVetoMayReportChanges)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    trigger.onCheck(
        [&](SubscriptionSubscribingEventPayload&)
        {
            setAmount(2);
            EXPECT_TRUE(reportOrder());
            EXPECT_FALSE(client.hasMessage());
        });
    subscribe(other, "/shop/orders");
    EXPECT_EQ(amountIn(client), 2);
}

/// Reports a change of the order 1 whenever it hears of a subscription.
struct Reporter
{
    void added(SubscriptionAddedEventPayload&) { report(); }
    void removed(SubscriptionRemovedEventPayload&) { report(); }
    std::function<void()> report;
};

TEST_F(SubscriptionTriggerTest, ListenersMayReportChanges)
{
    trigger.initialise(manager);
    int amount = 1;
    Reporter reporter;
    reporter.report = [&]
    {
        setAmount(++amount);
        EXPECT_TRUE(reportOrder());
        EXPECT_FALSE(client.hasMessage());
    };
    trigger.registerEvent(UrlPath("/shop/orders"),
                          Poco::Delegate<Reporter, SubscriptionAddedEventPayload, false>(&reporter, &Reporter::added));
    trigger.registerEvent(UrlPath("/shop/orders"), Poco::Delegate<Reporter, SubscriptionRemovedEventPayload, false>(
                                                       &reporter, &Reporter::removed));
    subscribe(client, "/shop/orders/1");
    subscribe(other, "/shop/orders");
    EXPECT_EQ(amountIn(client), 2);
    manager.removeSubscription(other.proxy(), unsubscribeFrom("/shop/orders"));
    EXPECT_EQ(amountIn(client), 3);
}

TEST_F(SubscriptionTriggerTest, AChangeFromInsideACallbackIsCopied)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1?$q=apple");
    const Poco::JSON::Object::Ptr changed = json(R"({"item":{"name":"apple"}})");
    trigger.onCheck(
        [&](SubscriptionSubscribingEventPayload&)
        {
            setAmount(2);
            reportOrder(changed.get());
            changed->getObject("item")->set("name", "pear");
        });
    subscribe(other, "/shop/orders");
    ASSERT_TRUE(client.hasMessage()) << "what was reported matched when it was reported";
    EXPECT_EQ(amountIn(client), 2);
}

TEST_F(SubscriptionTriggerTest, AFailureOfADeferredChangeIsLogged)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    trigger.onCheck([&](SubscriptionSubscribingEventPayload&) { reportOrder(); });
    trigger.onLoad(
        [](const SubscriptionRequest& request)
        {
            if (request.getUri().getPath() == "/shop/orders/1")
                throw Poco::DataException("disk on fire");
        });
    CapturedLog log;
    EXPECT_FALSE(subscribe(other, "/shop/orders")->isCanceled());
    EXPECT_TRUE(log.containsPart(ERROR, "A change that was reported from inside a callback failed: "));
    EXPECT_TRUE(log.containsPart(ERROR, "disk on fire"));
}

TEST_F(SubscriptionTriggerTest, ADataSourceThatReportsItsOwnLoadsComesToAnEnd)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    trigger.onLoad([&](const SubscriptionRequest&) { reportOrder(); });
    CapturedLog log(Poco::Message::PRIO_ERROR);
    EXPECT_TRUE(reportOrder());
    EXPECT_TRUE(log.containsPart(ERROR, "callbacks reported more than 1000 changes while one was served"));
}

// Detaching while changes are reported

TEST_F(SubscriptionTriggerTest, DetachingWaitsForAChangeThatIsBeingHandedOver)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    std::promise<void> mayEnd;
    std::promise<void> loading;
    trigger.onLoad(
        [&](const SubscriptionRequest&)
        {
            trigger.onLoad(nullptr);
            loading.set_value();
            mayEnd.get_future().wait();
        });
    std::thread reporter([&] { EXPECT_TRUE(reportOrder()); });
    loading.get_future().wait();
    std::atomic<bool> isDetached{false};
    std::thread stopper(
        [&]
        {
            trigger.deinitialise();
            isDetached = true;
        });
    EXPECT_TRUE(eventually([&] { return !checksNewSubscriptions(); })) << "it has begun to detach";
    EXPECT_FALSE(isDetached);
    mayEnd.set_value();
    reporter.join();
    stopper.join();
    EXPECT_TRUE(isDetached);
}

TEST_F(SubscriptionTriggerTest, DetachingGetsThroughASteadyStreamOfChanges)
{
    trigger.initialise(manager);
    subscribe(client, "/shop/orders/1");
    std::atomic<int> reports{0};
    std::vector<std::thread> reporters;
    for (int i = 0; i < 4; ++i)
        reporters.emplace_back(
            [&]
            {
                while (reportOrder())
                    ++reports;
            });
    EXPECT_TRUE(eventually([&] { return reports > 100; }));
    trigger.deinitialise(); // the reporters end when it has detached
    for (std::thread& reporter: reporters)
        reporter.join();
}

} // namespace
