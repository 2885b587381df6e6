#include <WebsocketSubsystem.h>

#include "Eventually.h"
#include "LoopbackConnection.h"
#include "Replies.h"
#include "Requests.h"
#include "TestTrigger.h"

#include <ApplicationServices.h>
#include <CapturedLog.h>
#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>
#include <Websocket/WebsocketConnectionManager.h>

#include <Poco/Delegate.h>
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>
#include <memory>
#include <thread>

using namespace Kesa::Service;
using namespace Kesa::Test;
using Kesa::Command::HttpRequest;
using Kesa::Command::UrlPath;
using Kesa::Net::WebsocketConnectionManager;
using testing::IsEmpty;

namespace
{

constexpr auto TRACE = Poco::Message::PRIO_TRACE;
constexpr auto DEBUG = Poco::Message::PRIO_DEBUG;
constexpr auto INFO = Poco::Message::PRIO_INFORMATION;
constexpr auto ERROR = Poco::Message::PRIO_ERROR;
constexpr auto CRITICAL = Poco::Message::PRIO_CRITICAL;

typedef Poco::SharedPtr<ISubscriptionDelegateFactory> FactoryPtr;

SubscriptionTrigger::Ptr registeredTrigger()
{
    return ApplicationServices::getService<SubscriptionTrigger>();
}

WebsocketConnectionManager::Ptr registeredServer()
{
    return ApplicationServices::getService<WebsocketConnectionManager>();
}

/// Counts the removals that it hears of. Any thread.
struct RemovalCounter
{
    void removed(SubscriptionRemovedEventPayload&) { ++count; }
    Poco::Delegate<RemovalCounter, SubscriptionRemovedEventPayload, false> delegate()
    {
        return {this, &RemovalCounter::removed};
    }
    std::atomic<int> count{0};
};

/// A shop's websocket side, not initialised yet.
class WebsocketSubsystemTest: public testing::Test
{
protected:
    WebsocketSubsystemTest(): subsystem(WebsocketSubsystem::create(trigger, FactoryPtr()))
    {
        trigger->deliver("/shop/orders/1", R"({"amount":1})");
        trigger->registerEvent(UrlPath("/shop/orders/1"), removals.delegate());
    }
    ~WebsocketSubsystemTest() override
    {
        subsystem->uninitializeSystem();
        subsystem.reset();
        ApplicationServices::unregisterService<WebsocketConnectionManager>();
    }

    void subscribe(LoopbackConnection& by)
    {
        by.say(requestText("subscribe", "/shop/orders/1", R"(,"updateLimit":0)"));
        EXPECT_EQ(describe(*by.nextMessage()), "subscribe /shop/orders/1 ok");
        EXPECT_EQ(describe(*by.nextMessage()), "data /shop/orders/1");
    }
    bool reportOrder() { return trigger->changedElement(HttpRequest::POST, "shop", "orders", "1", nullptr); }

    RemovalCounter removals;
    Poco::SharedPtr<TestTrigger> trigger = new TestTrigger;
    LoopbackConnection client;
    std::unique_ptr<WebsocketSubsystem> subsystem;
};

TEST_F(WebsocketSubsystemTest, WithoutATriggerThereIsNone)
{
    CapturedLog log;
    EXPECT_EQ(WebsocketSubsystem::create(nullptr, new DefaultSubscriptionDelegateFactory(trigger.get())), nullptr);
    EXPECT_THAT(log.entries(), IsEmpty());
}

TEST_F(WebsocketSubsystemTest, WithoutAFactoryTheDefaultIsUsed)
{
    const std::string line = "Create WebsocketSubsystem with DefaultSubscriptionDelegateFactory";
    CapturedLog log;
    const std::unique_ptr<WebsocketSubsystem> withDefault(WebsocketSubsystem::create(trigger, FactoryPtr()));
    EXPECT_TRUE(log.contains(DEBUG, line));
    log.clear();
    const std::unique_ptr<WebsocketSubsystem> withOwn(
        WebsocketSubsystem::create(trigger, new DefaultSubscriptionDelegateFactory(trigger.get())));
    EXPECT_FALSE(log.contains(DEBUG, line));
    EXPECT_FALSE(withOwn->isInitialized());
}

TEST_F(WebsocketSubsystemTest, ItGoesThroughItsStatesOnce)
{
    EXPECT_FALSE(subsystem->isInitialized());
    EXPECT_TRUE(subsystem->initializeSystem());
    EXPECT_TRUE(subsystem->isInitialized());
    EXPECT_EQ(registeredTrigger().get(), trigger.get());
    EXPECT_FALSE(registeredServer().isNull());
    EXPECT_TRUE(reportOrder()) << "the trigger is attached";

    subsystem->uninitializeSystem();
    EXPECT_FALSE(subsystem->isInitialized());
    EXPECT_TRUE(registeredTrigger().isNull());
    EXPECT_TRUE(registeredServer().isNull());
    EXPECT_FALSE(reportOrder());

    CapturedLog log;
    EXPECT_FALSE(subsystem->initializeSystem());
    EXPECT_EQ(log.count(ERROR, "Subscription subsystem is disabled."), 1U);
    EXPECT_FALSE(subsystem->isInitialized());
    EXPECT_TRUE(registeredTrigger().isNull());
    EXPECT_FALSE(registeredServer().isNull()) << "stays until the owner removes it";
    EXPECT_FALSE(reportOrder());
}

TEST_F(WebsocketSubsystemTest, InitialisingTwiceChangesNothing)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    WebsocketConnectionManager::Ptr server = registeredServer();
    client.serveBy(*server);
    subscribe(client);
    EXPECT_TRUE(subsystem->initializeSystem());
    EXPECT_EQ(registeredServer(), server);
    trigger->deliver("/shop/orders/1", R"({"amount":2})");
    EXPECT_TRUE(reportOrder());
    EXPECT_EQ(client.nextMessage()->getObject("data")->getValue<int>("amount"), 2);
}

TEST_F(WebsocketSubsystemTest, UninitialisingBeforehandDoesNothing)
{
    CapturedLog log;
    subsystem->uninitializeSystem();
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_TRUE(log.contains(TRACE, "uninitializeSystem"));
    EXPECT_TRUE(subsystem->initializeSystem()) << "the trigger is still there";
}

TEST_F(WebsocketSubsystemTest, AConnectionManagerOfTheApplicationIsUsedAndLeavesTheLocator)
{
    WebsocketConnectionManager::Ptr server = new WebsocketConnectionManager;
    ApplicationServices::registerService<WebsocketConnectionManager>(server);
    ASSERT_TRUE(subsystem->initializeSystem());
    EXPECT_EQ(registeredServer(), server);
    client.serveBy(*server);
    subscribe(client);
    LoopbackConnection silent;
    silent.serveBy(*server);

    subsystem->uninitializeSystem();
    EXPECT_TRUE(registeredServer().isNull());
    EXPECT_TRUE(server->DataReceived.empty());
    EXPECT_TRUE(server->ConnectionClosed.empty());
    EXPECT_EQ(server->connectionCount(), 2U) << "its connections are the application's affair";
}

TEST_F(WebsocketSubsystemTest, ASecondOneInTheProcessIsRefused)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    WebsocketConnectionManager::Ptr server = registeredServer();
    const std::unique_ptr<WebsocketSubsystem> second(WebsocketSubsystem::create(new TestTrigger, FactoryPtr()));
    try
    {
        second->initializeSystem();
        FAIL() << "nothing was raised";
    }
    catch (const Poco::AssertionViolationException& exc)
    {
        EXPECT_EQ(exc.message(), "SubscriptionTrigger is already registered");
    }
    EXPECT_FALSE(second->isInitialized());
    EXPECT_EQ(registeredTrigger().get(), trigger.get());
    EXPECT_EQ(registeredServer(), server);
    client.serveBy(*server);
    subscribe(client);
}

TEST_F(WebsocketSubsystemTest, SubscriptionsGetTheirDataFromTheFactorysSource)
{
    TestTrigger source;
    source.deliver("/shop/orders/1", R"({"amount":7})");
    subsystem.reset(WebsocketSubsystem::create(trigger, new DefaultSubscriptionDelegateFactory(&source)));
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    client.say(requestText("subscribe", "/shop/orders/1"));
    client.nextMessage();
    EXPECT_EQ(client.nextMessage()->getObject("data")->getValue<int>("amount"), 7);
    EXPECT_EQ(trigger->loads(), 0);
    subsystem->uninitializeSystem();
    subsystem.reset(WebsocketSubsystem::create(trigger, FactoryPtr())); // the worker loads through the source no more
}

// Connections

TEST_F(WebsocketSubsystemTest, AMessageGoesAllTheWayAndBack)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    subscribe(client);
    trigger->deliver("/shop/orders/1", R"({"amount":2})");
    reportOrder();
    EXPECT_EQ(client.nextMessage()->getObject("data")->getValue<int>("amount"), 2);
    client.say(requestText("unsubscribe", "/shop/orders/1") + "  " + requestText("dance", "/shop"));
    EXPECT_EQ(describe(*client.nextMessage()), "unsubscribe /shop/orders/1 ok");
    EXPECT_EQ(describe(*client.nextMessage()), "error /shop error 400") << "two objects in one block are two messages";
    EXPECT_EQ(removals.count, 1);
}

TEST_F(WebsocketSubsystemTest, AClosedConnectionLosesItsSubscriptions)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    const int handles = client.handles();
    client.serveBy(*registeredServer());
    subscribe(client);
    subscribe(client);
    LoopbackConnection staying;
    staying.serveBy(*registeredServer());
    subscribe(staying);
    const std::string address = client.proxy().address().toString();
    CapturedLog log(INFO);
    client.leave();
    EXPECT_TRUE(log.waitFor(INFO, "Closed websocket connection:" + address));
    EXPECT_TRUE(eventually([this] { return removals.count == 2; }));
    EXPECT_TRUE(eventually([&] { return client.handles() == handles; })) << "nothing holds the connection any more";
    trigger->deliver("/shop/orders/1", R"({"amount":2})");
    reportOrder();
    EXPECT_EQ(staying.nextMessage()->getObject("data")->getValue<int>("amount"), 2);
}

TEST_F(WebsocketSubsystemTest, AClosedConnectionWithoutSubscriptionsIsLoggedAlone)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    const std::string address = client.proxy().address().toString();
    CapturedLog log(INFO);
    client.leave();
    EXPECT_TRUE(log.waitFor(INFO, "Closed websocket connection:" + address));
    subsystem->uninitializeSystem(); // the handler has ended
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(removals.count, 0);
}

// Stopping

TEST_F(WebsocketSubsystemTest, AfterTheStopNobodyAnswersAndSubscriptionsEndSilently)
{
    WebsocketConnectionManager::Ptr server = new WebsocketConnectionManager;
    ApplicationServices::registerService<WebsocketConnectionManager>(server);
    ASSERT_TRUE(subsystem->initializeSystem());
    const int handles = client.handles();
    client.serveBy(*server);
    subscribe(client);
    subsystem->uninitializeSystem();
    client.say(requestText("unsubscribe", "/shop/orders/1"));
    subsystem.reset(WebsocketSubsystem::create(trigger, FactoryPtr()));
    server->stop(); // it has handled the message
    EXPECT_EQ(removals.count, 0);
    EXPECT_TRUE(eventually([&] { return client.handles() == handles; }));
}

TEST_F(WebsocketSubsystemTest, TheStopClosesTheConnectionsOfItsOwnConnectionManager)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    subscribe(client);
    const Kesa::Net::WebSocketProxy proxy = client.proxy();
    subsystem->uninitializeSystem();
    EXPECT_TRUE(proxy.hasEnded());
}

TEST_F(WebsocketSubsystemTest, NothingKeepsTheTriggerAfterTheEnd)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    subscribe(client);
    subsystem->uninitializeSystem();
    subsystem.reset(WebsocketSubsystem::create(new TestTrigger, FactoryPtr()));
    EXPECT_EQ(trigger.referenceCount(), 1);
}

TEST_F(WebsocketSubsystemTest, TheTriggerLivesUntilTheLastSubscriptionCannotLoadAnyMore)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    client.say(requestText("subscribe", "/shop/orders/1", R"(,"interval":1)"));
    client.nextMessage();
    client.nextMessage();
    TestTrigger* const plain = trigger.get();
    trigger = new TestTrigger; // the service lets go of the first
    subsystem->uninitializeSystem();
    EXPECT_GE(plain->loads(), 1) << "still there, for the worker";
}

TEST_F(WebsocketSubsystemTest, TheStopWaitsForARunningHandler)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    std::promise<void> loading;
    std::promise<void> mayEnd;
    trigger->onLoad(
        [&](const SubscriptionRequest&)
        {
            trigger->onLoad(nullptr);
            loading.set_value();
            mayEnd.get_future().wait();
        });
    client.say(requestText("subscribe", "/shop/orders/1"));
    loading.get_future().wait();
    CapturedLog log;
    std::atomic<bool> isStopped{false};
    std::thread stopper(
        [&]
        {
            subsystem->uninitializeSystem();
            isStopped = true;
        });
    EXPECT_TRUE(log.waitFor(TRACE, "uninitializeSystem"));
    EXPECT_FALSE(isStopped);
    mayEnd.set_value();
    stopper.join();
    EXPECT_EQ(describe(*client.nextMessage()), "subscribe /shop/orders/1 ok");
    EXPECT_EQ(describe(*client.nextMessage()), "data /shop/orders/1") << "the message was handled to its end";
}

/// True if the stop is refused with a Critical line.
bool isStopRefused(WebsocketSubsystem& subsystem)
{
    CapturedLog log(CRITICAL);
    try
    {
        subsystem.uninitializeSystem();
        return false;
    }
    catch (const Poco::IllegalStateException&)
    {
        return log.containsPart(CRITICAL, "WebsocketSubsystem::uninitializeSystem: refused inside a callback");
    }
}

TEST_F(WebsocketSubsystemTest, AStopFromInsideACallbackIsRefused)
{
    ASSERT_TRUE(subsystem->initializeSystem());
    client.serveBy(*registeredServer());
    std::atomic<int> refusals{0};
    trigger->onLoad([&](const SubscriptionRequest&) { refusals += isStopRefused(*subsystem); });
    subscribe(client); // on a thread of the connection layer
    EXPECT_EQ(refusals, 1);
    reportOrder(); // on a thread of the service
    EXPECT_EQ(refusals, 2);
    EXPECT_TRUE(subsystem->isInitialized());
}

} // namespace
