#include <GenericServiceBootstrap.h>

#include "LoopbackConnection.h"
#include "Replies.h"
#include "Requests.h"
#include "TestTrigger.h"

#include <ApplicationServices.h>
#include <CapturedLog.h>
#include <ClientConnectionManager.h>
#include <SimpleErrorHandler.h>
#include <Time/Timestamp.h>
#include <Websocket/WebsocketConnectionManager.h>

#include <Poco/Delegate.h>
#include <Poco/ErrorHandler.h>
#include <Poco/Exception.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <memory>

using namespace Kesa::Service;
using namespace Kesa::Test;
using Kesa::Command::HttpRequest;
using Kesa::Net::ClientConnectionManager;
using Kesa::Net::WebsocketConnectionManager;
using testing::ElementsAre;
using testing::IsEmpty;

namespace
{

constexpr auto ERROR = Poco::Message::PRIO_ERROR;
constexpr auto CRITICAL = Poco::Message::PRIO_CRITICAL;

typedef std::vector<std::string> Journal;

template <class T>
Poco::SharedPtr<T> registered()
{
    return ApplicationServices::getService<T>();
}

/// POCO's own handler, which only handlers may see.
struct DefaultHandler: Poco::ErrorHandler
{
    static Poco::ErrorHandler* get() { return defaultHandler(); }
};

bool hasDefaultHandler()
{
    return Poco::ErrorHandler::get() == DefaultHandler::get();
}

bool hasSimpleHandler()
{
    return dynamic_cast<Kesa::Util::SimpleErrorHandler*>(Poco::ErrorHandler::get()) != nullptr;
}

/// A service that does what the test says and notes what it is asked for.
class TestService: public GenericServiceBootstrap
{
public:
    explicit TestService(Journal& journal): m_journal(journal) {}
    ~TestService() override
    {
        stops = true;
        whenStopping = nullptr;
        shutdown();
    }

    bool starts = true;
    bool stops = true;
    bool hasTrigger = true;
    ClientConnectionManager::Ptr clients = new ClientConnectionManager;
    Poco::SharedPtr<TestTrigger> trigger; ///< the one that was supplied last
    std::function<void()> whenStarting;
    std::function<void()> whenStopping;

    ClientConnectionManager::Ptr defaultClients() { return GenericServiceBootstrap::createClientConnectionManager(); }

protected:
    bool startupImpl() override
    {
        m_journal.push_back("startupImpl");
        if (whenStarting)
            whenStarting();
        return starts;
    }
    bool shutdownImpl() override
    {
        m_journal.push_back("shutdownImpl");
        if (whenStopping)
            whenStopping();
        return stops;
    }
    SubscriptionTrigger::Ptr createSubscriptionInterface() override
    {
        m_journal.push_back("createSubscriptionInterface");
        trigger = hasTrigger ? new TestTrigger : nullptr;
        return trigger;
    }
    Poco::SharedPtr<ClientConnectionManager> createClientConnectionManager() override
    {
        m_journal.push_back("createClientConnectionManager");
        return clients;
    }

private:
    Journal& m_journal;
};

/// A service, not started yet, and a listener of its notifications.
class GenericServiceBootstrapTest: public testing::Test
{
protected:
    GenericServiceBootstrapTest() { listen(); }
    ~GenericServiceBootstrapTest() override
    {
        service.reset();
        ApplicationServices::unregisterService<ClientConnectionManager>();
        ApplicationServices::unregisterService<SubscriptionTrigger>();
        Poco::ErrorHandler::set(DefaultHandler::get());
    }

    void listen()
    {
        auto notifications = registered<ServiceNotifications>();
        notifications->ServiceStartup += Poco::delegate(this, &GenericServiceBootstrapTest::started);
        notifications->ServiceShutdown += Poco::delegate(this, &GenericServiceBootstrapTest::stopping);
    }
    void started(const void* sender)
    {
        EXPECT_EQ(sender, sameService);
        journal.push_back("ServiceStartup");
        if (whenStarted)
            whenStarted();
    }
    void stopping(const void* sender)
    {
        EXPECT_EQ(sender, sameService);
        journal.push_back("ServiceShutdown");
        if (whenStopping)
            whenStopping();
    }
    bool isUp()
    {
        return !registered<WebsocketConnectionManager>().isNull() && !registered<SubscriptionTrigger>().isNull();
    }
    bool isDown()
    {
        return registered<WebsocketConnectionManager>().isNull() && registered<SubscriptionTrigger>().isNull();
    }

    Journal journal;
    std::function<void()> whenStarted;
    std::function<void()> whenStopping;
    std::unique_ptr<TestService> service = std::make_unique<TestService>(journal);
    const void* const sameService = service.get(); ///< also while it is being destroyed
};

TEST_F(GenericServiceBootstrapTest, ItsNotificationsAreRegisteredForItsWholeLife)
{
    const auto notifications = registered<ServiceNotifications>();
    EXPECT_FALSE(notifications.isNull());
    service->startup();
    service->shutdown();
    EXPECT_EQ(registered<ServiceNotifications>(), notifications);
    service.reset();
    EXPECT_TRUE(registered<ServiceNotifications>().isNull());
}

TEST_F(GenericServiceBootstrapTest, ItsConstructionIsTheOriginOfTime)
{
    const Poco::Timestamp before;
    Journal other;
    TestService later(other);
    const Kesa::Timestamp::timestamp_t now = Kesa::Timestamp::createTimestamp();
    EXPECT_GE(now, 0);
    EXPECT_LE(now, before.elapsed());
}

TEST_F(GenericServiceBootstrapTest, TheDefaultConnectionManagerImposesNoRulesOfItsOwn)
{
    const ClientConnectionManager::Ptr made = service->defaultClients();
    const ClientConnectionManager& clients = *made;
    EXPECT_EQ(typeid(clients), typeid(ClientConnectionManager));
}

// Starting

TEST_F(GenericServiceBootstrapTest, StartsInAFixedOrder)
{
    EXPECT_TRUE(hasDefaultHandler());
    service->whenStarting = [this]
    {
        EXPECT_EQ(registered<ClientConnectionManager>(), service->clients);
        EXPECT_TRUE(isUp()) << "the websocket side is up before the service's own start";
        EXPECT_TRUE(hasSimpleHandler());
    };
    EXPECT_TRUE(service->startup());
    EXPECT_THAT(journal, ElementsAre("createClientConnectionManager", "createSubscriptionInterface", "startupImpl",
                                     "ServiceStartup"));
    EXPECT_EQ(registered<SubscriptionTrigger>().get(), service->trigger.get());
}

TEST_F(GenericServiceBootstrapTest, ListenersOfTheStartRunBeforeItCountsAsStarted)
{
    whenStarted = [this]
    {
        EXPECT_TRUE(isUp());
        EXPECT_TRUE(service->shutdown()) << "nothing to stop yet";
        EXPECT_TRUE(isUp());
    };
    EXPECT_TRUE(service->startup());
    EXPECT_EQ(journal.back(), "ServiceStartup");
}

TEST_F(GenericServiceBootstrapTest, AConnectionManagerOfTheApplicationIsKept)
{
    const ClientConnectionManager::Ptr own = new ClientConnectionManager;
    ApplicationServices::registerService<ClientConnectionManager>(own);
    EXPECT_TRUE(service->startup());
    EXPECT_THAT(journal, ElementsAre("createSubscriptionInterface", "startupImpl", "ServiceStartup"));
    EXPECT_EQ(registered<ClientConnectionManager>(), own);
    EXPECT_TRUE(service->shutdown());
    EXPECT_TRUE(registered<ClientConnectionManager>().isNull()) << "removed, whoever made it";
}

TEST_F(GenericServiceBootstrapTest, WithoutAConnectionManagerTheStartGoesOn)
{
    service->clients = nullptr;
    EXPECT_TRUE(service->startup());
    EXPECT_TRUE(registered<ClientConnectionManager>().isNull());
}

TEST_F(GenericServiceBootstrapTest, WithoutATriggerTheStartRaises)
{
    service->hasTrigger = false;
    CapturedLog log(CRITICAL);
    try
    {
        service->startup();
        FAIL() << "nothing was raised";
    }
    catch (const Poco::AssertionViolationException& exc)
    {
        EXPECT_EQ(exc.message(), "No subscription interface provided");
    }
    EXPECT_TRUE(log.contains(CRITICAL, "Unable to start service without SubscriptionInterface"));
    EXPECT_THAT(journal, ElementsAre("createClientConnectionManager", "createSubscriptionInterface"));
    EXPECT_EQ(registered<ClientConnectionManager>(), service->clients) << "nothing is undone";
    EXPECT_TRUE(isDown());
    service->hasTrigger = true;
    EXPECT_TRUE(service->startup());
}

TEST_F(GenericServiceBootstrapTest, ASecondTriggerInTheProcessMakesTheStartRaise)
{
    ApplicationServices::registerService<SubscriptionTrigger>(new TestTrigger);
    try
    {
        service->startup();
        FAIL() << "nothing was raised";
    }
    catch (const Poco::AssertionViolationException& exc)
    {
        EXPECT_EQ(exc.message(), "SubscriptionTrigger is already registered");
    }
    EXPECT_THAT(journal, ElementsAre("createClientConnectionManager", "createSubscriptionInterface"));
    ApplicationServices::unregisterService<SubscriptionTrigger>();
    EXPECT_TRUE(service->startup());
    EXPECT_THAT(journal, ElementsAre("createClientConnectionManager", "createSubscriptionInterface", "startupImpl",
                                     "ServiceStartup"))
        << "what was made for the first attempt is used";
}

TEST_F(GenericServiceBootstrapTest, AStartThatFailsIsUndone)
{
    service->starts = false;
    CapturedLog log(ERROR);
    EXPECT_FALSE(service->startup());
    EXPECT_THAT(journal, ElementsAre("createClientConnectionManager", "createSubscriptionInterface", "startupImpl",
                                     "shutdownImpl"));
    EXPECT_EQ(log.count(ERROR, "Service startup failed"), 1U);
    EXPECT_TRUE(isDown());
    EXPECT_TRUE(hasDefaultHandler());
    EXPECT_EQ(registered<ClientConnectionManager>(), service->clients) << "stays registered";
    EXPECT_EQ(service->trigger.referenceCount(), 1);

    journal.clear();
    EXPECT_TRUE(service->shutdown());
    EXPECT_THAT(journal, IsEmpty()) << "a failed service is not started";
}

TEST_F(GenericServiceBootstrapTest, TheResultOfTheStopAfterAFailedStartIsIgnored)
{
    service->starts = false;
    service->stops = false;
    CapturedLog log(ERROR);
    EXPECT_FALSE(service->startup());
    EXPECT_TRUE(isDown());
    EXPECT_EQ(log.entries().size(), 1U);
}

TEST_F(GenericServiceBootstrapTest, AfterAFailedStartItCanBeStartedAfresh)
{
    // Each failed start gives up its handler, so they are kept here for ever.
    static std::vector<Poco::ErrorHandler*>& handlers = *new std::vector<Poco::ErrorHandler*>;
    service->whenStarting = [] { handlers.push_back(Poco::ErrorHandler::get()); };
    service->starts = false;
    EXPECT_FALSE(service->startup());
    Poco::SharedPtr<TestTrigger> first = service->trigger;
    service->starts = true;
    EXPECT_TRUE(service->startup());
    EXPECT_NE(service->trigger, first);
    EXPECT_FALSE(first->changedElement(HttpRequest::POST, "a", "b", "c", nullptr));
    EXPECT_TRUE(service->trigger->changedElement(HttpRequest::POST, "a", "b", "c", nullptr));
    EXPECT_NE(handlers[0], handlers[1]);
    EXPECT_EQ(Poco::ErrorHandler::get(), handlers[1]);
}

TEST_F(GenericServiceBootstrapTest, StartingARunningServiceRunsItsOwnStartAgain)
{
    EXPECT_TRUE(service->startup());
    const auto server = registered<WebsocketConnectionManager>();
    journal.clear();
    EXPECT_TRUE(service->startup());
    EXPECT_THAT(journal, ElementsAre("startupImpl", "ServiceStartup"));
    EXPECT_EQ(registered<WebsocketConnectionManager>(), server);
}

TEST_F(GenericServiceBootstrapTest, AnExceptionOfTheServicesOwnStartGoesToTheCaller)
{
    service->whenStarting = [] { throw Poco::DataException("no disk"); };
    EXPECT_THROW(service->startup(), Poco::DataException);
    EXPECT_TRUE(isUp()) << "nothing is undone";
    service->whenStarting = nullptr;
    EXPECT_TRUE(service->startup());
}

// Stopping

TEST_F(GenericServiceBootstrapTest, StoppingBeforeTheStartDoesNothing)
{
    EXPECT_TRUE(service->shutdown());
    EXPECT_THAT(journal, IsEmpty());
}

TEST_F(GenericServiceBootstrapTest, StopsInAFixedOrder)
{
    service->startup();
    journal.clear();
    whenStopping = [this] { EXPECT_TRUE(isUp()) << "listeners run while the service is complete"; };
    service->whenStopping = [this] { EXPECT_TRUE(isUp()); };
    EXPECT_TRUE(service->shutdown());
    EXPECT_THAT(journal, ElementsAre("ServiceShutdown", "shutdownImpl"));
    EXPECT_TRUE(isDown());
    EXPECT_TRUE(registered<ClientConnectionManager>().isNull());
    EXPECT_EQ(service->trigger.referenceCount(), 1);
    journal.clear();
    EXPECT_TRUE(service->shutdown());
    EXPECT_THAT(journal, IsEmpty());
}

TEST_F(GenericServiceBootstrapTest, AStopThatFailsCanBeTriedAgain)
{
    service->startup();
    journal.clear();
    service->stops = false;
    CapturedLog log(ERROR);
    EXPECT_FALSE(service->shutdown());
    EXPECT_EQ(log.count(ERROR, "Service shutdown failed"), 1U);
    EXPECT_TRUE(isUp());
    EXPECT_FALSE(registered<ClientConnectionManager>().isNull());
    EXPECT_TRUE(service->trigger->changedElement(HttpRequest::POST, "a", "b", "c", nullptr));
    service->stops = true;
    EXPECT_TRUE(service->shutdown());
    EXPECT_THAT(journal, ElementsAre("ServiceShutdown", "shutdownImpl", "ServiceShutdown", "shutdownImpl"));
    EXPECT_TRUE(isDown());
}

TEST_F(GenericServiceBootstrapTest, AnExceptionOfTheServicesOwnStopGoesToTheCaller)
{
    service->startup();
    service->whenStopping = [] { throw Poco::DataException("no disk"); };
    EXPECT_THROW(service->shutdown(), Poco::DataException);
    EXPECT_TRUE(isUp());
}

TEST_F(GenericServiceBootstrapTest, AfterTheStopItCanBeStartedWithAFreshTrigger)
{
    service->startup();
    const Poco::SharedPtr<TestTrigger> first = service->trigger;
    service->shutdown();
    journal.clear();
    EXPECT_TRUE(service->startup());
    EXPECT_THAT(journal, ElementsAre("createClientConnectionManager", "createSubscriptionInterface", "startupImpl",
                                     "ServiceStartup"));
    EXPECT_NE(service->trigger, first);
    service->trigger->deliver("/shop/orders", "[]");
    LoopbackConnection client;
    client.serveBy(*registered<WebsocketConnectionManager>());
    client.say(requestText("subscribe", "/shop/orders"));
    EXPECT_EQ(describe(*client.nextMessage()), "subscribe /shop/orders ok");
    EXPECT_EQ(describe(*client.nextMessage()), "data /shop/orders");
}

TEST_F(GenericServiceBootstrapTest, AStopFromInsideACallbackIsRefused)
{
    service->startup();
    service->trigger->deliver("/shop/orders", "[]");
    std::atomic<int> refusals{0};
    service->trigger->onLoad(
        [&](const SubscriptionRequest&)
        {
            CapturedLog log(CRITICAL);
            EXPECT_THROW(service->shutdown(), Poco::IllegalStateException);
            refusals += log.containsPart(CRITICAL, "GenericServiceBootstrap::shutdown: refused inside a callback");
        });
    LoopbackConnection client;
    client.serveBy(*registered<WebsocketConnectionManager>());
    client.say(requestText("subscribe", "/shop/orders", R"(,"updateLimit":0)"));
    client.nextMessage();
    client.nextMessage();
    EXPECT_EQ(refusals, 1) << "on a thread of the connection layer";
    service->trigger->changedResourceCollection(HttpRequest::POST, "shop", "orders", nullptr);
    EXPECT_EQ(refusals, 2) << "on a thread of the service";
    journal.clear();
    EXPECT_TRUE(service->shutdown());
    EXPECT_THAT(journal, ElementsAre("ServiceShutdown", "shutdownImpl")) << "no listener had heard of a stop";
}

// The error handler

TEST_F(GenericServiceBootstrapTest, ItsErrorHandlerStaysUntilItsEnd)
{
    service->startup();
    const Poco::ErrorHandler* const own = Poco::ErrorHandler::get();
    EXPECT_TRUE(hasSimpleHandler());
    service->shutdown();
    EXPECT_EQ(Poco::ErrorHandler::get(), own);
    service->startup();
    EXPECT_EQ(Poco::ErrorHandler::get(), own);
    service.reset();
    EXPECT_TRUE(hasDefaultHandler());
}

TEST_F(GenericServiceBootstrapTest, AnErrorHandlerOfTheApplicationIsLeftAlone)
{
    Poco::ErrorHandler own;
    Poco::ErrorHandler::set(&own);
    service->startup();
    EXPECT_EQ(Poco::ErrorHandler::get(), &own);
    service->shutdown();
    service.reset();
    EXPECT_EQ(Poco::ErrorHandler::get(), &own);
    Poco::ErrorHandler::set(DefaultHandler::get());
}

TEST_F(GenericServiceBootstrapTest, AHandlerThatTheApplicationInstalledLaterStays)
{
    service->startup();
    Poco::ErrorHandler own;
    Poco::ErrorHandler::set(&own);
    service->shutdown();
    service.reset();
    EXPECT_EQ(Poco::ErrorHandler::get(), &own);
    Poco::ErrorHandler::set(DefaultHandler::get());
}

TEST_F(GenericServiceBootstrapTest, AFailedStartPutsTheDefaultHandlerBackWhoeverHadInstalledAnother)
{
    Poco::ErrorHandler own;
    Poco::ErrorHandler::set(&own);
    service->starts = false;
    EXPECT_FALSE(service->startup());
    EXPECT_TRUE(hasDefaultHandler());
}

// The end

/// Leaves its stop to its base, which can no longer reach it.
class ForgetfulService: public GenericServiceBootstrap
{
protected:
    bool startupImpl() override { return true; }
    bool shutdownImpl() override { return true; }
    SubscriptionTrigger::Ptr createSubscriptionInterface() override { return new TestTrigger; }
};

TEST(GenericServiceBootstrapDeathTest, AServiceThatIsStillUpWhenItGoesEndsTheProcess)
{
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_DEATH({ EXPECT_TRUE(ForgetfulService().startup()); }, "pure virtual");
    ForgetfulService stopped;
    EXPECT_TRUE(stopped.startup());
    EXPECT_TRUE(stopped.shutdown());
}

} // namespace
