// What is left when a storm of changes and clients has passed, and how a service stops in the middle of one.

#include "Storm.h"

#include "Eventually.h"
#include "Replies.h"

#include <CapturedLog.h>
#include <ClientConnectionManager.h>

#include <Poco/ErrorHandler.h>
#include <gtest/gtest.h>

#include <map>

using namespace Kesa::Service;
using namespace Kesa::Test;
using Kesa::Command::UrlPath;
using Kesa::Net::ClientConnectionManager;
using Kesa::Net::WebsocketConnectionManager;

namespace
{

/// A client that stays through the storm and keeps what it was told last.
class Follower
{
public:
    /// Subscribes to each order and to the list.
    explicit Follower(const std::string& members)
    {
        m_connection.serveBy(*ApplicationServices::getService<WebsocketConnectionManager>());
        subscribe("/shop/orders", members);
        for (std::size_t order = 0; order < ShopTrigger::ORDERS; ++order)
            subscribe("/shop/orders/" + std::to_string(order), members);
    }
    static constexpr int SUBSCRIPTIONS = ShopTrigger::ORDERS + 1;

    void subscribe(const std::string& event, const std::string& members)
    {
        m_connection.say(requestText("subscribe", event, members));
        while (!take())
        {
        }
    }

    /// Reads until all that it was told equals the shop's state.
    void readUntilItKnows(const ShopTrigger& shop)
    {
        while (!knows(shop))
            take();
        m_connection.say(requestText("unsubscribe", "/nothing"));
        while (!take())
        {
        }
        EXPECT_TRUE(knows(shop)) << "nothing older came behind";
    }

    /// Reads until it was told of this amount of the order 0, or of a later one.
    void readUntilItHearsOf(int amount)
    {
        while (m_amounts["/shop/orders/0"] < amount)
            take();
    }

    /// Subscribes until it is refused; how often it was not.
    int subscribeToTheLimit()
    {
        int count = 0;
        do
        {
            m_connection.say(requestText("subscribe", "/shop/orders/0", R"(,"updateLimit":60000)"));
            while (!take())
            {
            }
        } while (m_lastCode == 0 && ++count < 1000);
        return count;
    }
    int lastCode() const { return m_lastCode; }

private:
    bool knows(const ShopTrigger& shop) const
    {
        bool all = m_ids == shop.ids();
        for (std::size_t order = 0; order < ShopTrigger::ORDERS; ++order)
        {
            const auto amount = m_amounts.find("/shop/orders/" + std::to_string(order));
            all = all && amount != m_amounts.end() && amount->second == shop.amount(order);
        }
        return all;
    }

    /// Reads one message; true if it answers one of its own.
    bool take()
    {
        const Poco::JSON::Object::Ptr message = m_connection.nextMessage();
        if (message->getValue<std::string>("type") != "data")
        {
            m_lastCode = message->optValue("code", 0);
            return true;
        }
        const std::string event = message->getValue<std::string>("event");
        if (message->isArray("data"))
        {
            m_ids.clear();
            for (const Poco::Dynamic::Var& element: *message->getArray("data"))
                m_ids.insert(element.extract<Poco::JSON::Object::Ptr>()->getValue<std::string>("id"));
            return false;
        }
        const int amount = message->getObject("data")->getValue<int>("amount");
        EXPECT_GE(amount, m_amounts[event]) << "an older state after a newer one";
        m_amounts[event] = amount;
        return false;
    }

    LoopbackConnection m_connection;
    std::map<std::string, int> m_amounts; ///< by event
    std::set<std::string> m_ids;
    int m_lastCode = 0; ///< of the last answer; 0 for an acknowledgement
};

/// Counts what comes and goes. Any thread.
struct Census
{
    void added(SubscriptionAddedEventPayload&) { ++additions; }
    void removed(SubscriptionRemovedEventPayload&) { ++removals; }

    void watch(ShopTrigger& shop)
    {
        shop.registerEvent(UrlPath("/shop/orders"), addedDelegate());
        shop.registerEvent(UrlPath("/shop/orders"), removedDelegate());
        for (const char* id: {"0", "1", "2", "3", "extra"})
        {
            const UrlPath url(std::string("/shop/orders/") + id);
            shop.registerEvent(url, addedDelegate());
            shop.registerEvent(url, removedDelegate());
        }
    }
    Poco::Delegate<Census, SubscriptionAddedEventPayload, false> addedDelegate() { return {this, &Census::added}; }
    Poco::Delegate<Census, SubscriptionRemovedEventPayload, false> removedDelegate()
    {
        return {this, &Census::removed};
    }

    std::atomic<int> additions{0};
    std::atomic<int> removals{0};
};

class StormTest: public testing::Test
{
protected:
    ~StormTest() override
    {
        service.shutdown();
        ApplicationServices::unregisterService<ClientConnectionManager>();
    }

    static void expectNothingLeft(const Storm& storm)
    {
        int held = 0;
        eventually(
            [&]
            {
                held = 0;
                for (const auto& connection: storm.gone())
                    held += connection->handles() - 1;
                return held == 0;
            });
        EXPECT_EQ(held, 0) << "handles of closed connections, in tree, updater, maps or subscriptions";
    }

    /// A client that comes now is served.
    void expectService()
    {
        Follower client(R"(,"updateLimit":0)");
        EXPECT_TRUE(service.trigger->raise(0));
        client.readUntilItHearsOf(service.trigger->amount(0));
    }

    CapturedLog log{Poco::Message::PRIO_CRITICAL}; // keeps the storm's many lines off the screen
    Census census; // outlives the service, whose close thread may still report the last clients' removals
    ShopService service;
};

TEST_F(StormTest, EverySurvivorKnowsTheLastStateAndNothingElseIsLeft)
{
    ASSERT_TRUE(service.startup());
    census.watch(*service.trigger);
    std::vector<std::unique_ptr<Follower>> survivors;
    for (const char* members: {R"(,"updateLimit":0)", R"(,"updateLimit":5)", R"(,"interval":20)", ""})
        survivors.push_back(std::make_unique<Follower>(members));
    Storm storm(service.trigger, {});
    storm.waitForEnd();
    EXPECT_EQ(storm.changes(), 900);
    EXPECT_EQ(storm.failedChanges(), 0);
    EXPECT_EQ(storm.failedClients(), 0);

    for (const auto& survivor: survivors)
        survivor->readUntilItKnows(*service.trigger);
    expectNothingLeft(storm);
    EXPECT_EQ(census.additions - census.removals, 4 * Follower::SUBSCRIPTIONS);
    EXPECT_GT(census.removals, 50) << "the storm was one";
    EXPECT_EQ(survivors[1]->subscribeToTheLimit(), 200 - Follower::SUBSCRIPTIONS);
    EXPECT_EQ(survivors[1]->lastCode(), 503);
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(StormTest, TheSameHoldsWithAutoSubscriptions)
{
    ASSERT_TRUE(service.startup());
    census.watch(*service.trigger);
    Follower survivor(R"(,"updateLimit":0)");
    Storm::Force force;
    force.autosubscribes = true;
    force.changes = 100;
    force.clients = 10;
    Storm storm(service.trigger, force);
    storm.waitForEnd();
    EXPECT_EQ(storm.failedClients(), 0);
    expectNothingLeft(storm);
    // A client that goes while its elements are derived may have cost others a change; the next one makes up for it.
    for (std::size_t order = 0; order < ShopTrigger::ORDERS; ++order)
        EXPECT_TRUE(service.trigger->raise(order));
    EXPECT_TRUE(service.trigger->toggleExtra());
    survivor.readUntilItKnows(*service.trigger);
    EXPECT_EQ(census.additions - census.removals, Follower::SUBSCRIPTIONS);
    EXPECT_TRUE(log.entries().empty());
}

// Stopping in the middle

class StopUnderLoadTest: public StormTest
{
protected:
    static Storm::Force untilTheStop()
    {
        Storm::Force force;
        force.changes = 1000000;
        force.clients = 1000000;
        force.mayStop = true;
        return force;
    }
    static void waitUntilItRages(const Storm& storm)
    {
        EXPECT_TRUE(eventually([&] { return storm.changes() > 100; }));
    }
};

TEST_F(StopUnderLoadTest, AServiceStopsAndStartsAgainWithAFreshTrigger)
{
    for (int round = 0; round < 2; ++round)
    {
        ASSERT_TRUE(service.startup());
        const Poco::SharedPtr<ShopTrigger> trigger = service.trigger;
        Storm storm(trigger, untilTheStop());
        waitUntilItRages(storm);
        EXPECT_TRUE(service.shutdown());
        EXPECT_FALSE(service.trigger->raise(0));
        EXPECT_TRUE(ApplicationServices::getService<WebsocketConnectionManager>().isNull());
        storm.waitForEnd();
        expectNothingLeft(storm);
    }
    ASSERT_TRUE(service.startup());
    expectService();
}

TEST_F(StopUnderLoadTest, AStopThatFailsLeavesEverythingUp)
{
    ASSERT_TRUE(service.startup());
    Storm storm(service.trigger, untilTheStop());
    waitUntilItRages(storm);
    service.stops = false;
    EXPECT_FALSE(service.shutdown());
    expectService();
    service.stops = true;
    EXPECT_TRUE(service.shutdown());
    storm.waitForEnd();
    expectNothingLeft(storm);
}

TEST_F(StopUnderLoadTest, AStartThatFailsUnderLoadIsUndone)
{
    Poco::ErrorHandler own; // so that the failed start does not give up one of its own
    Poco::ErrorHandler::set(&own);
    std::unique_ptr<Storm> storm;
    service.starts = false;
    service.whenStarting = [&]
    {
        storm = std::make_unique<Storm>(service.trigger, untilTheStop());
        waitUntilItRages(*storm);
        expectService();
    };
    EXPECT_FALSE(service.startup());
    EXPECT_FALSE(service.trigger->raise(0));
    storm->waitForEnd();
    expectNothingLeft(*storm);
    service.whenStarting = nullptr;
    service.starts = true;
    ASSERT_TRUE(service.startup());
    expectService();
}

TEST_F(StopUnderLoadTest, ASlowDataSourceDelaysTheStopAndNoMore)
{
    ASSERT_TRUE(service.startup());
    service.trigger->beSlow(std::chrono::milliseconds(20));
    Storm storm(service.trigger, untilTheStop());
    EXPECT_TRUE(eventually([&] { return storm.changes() > 10; }));
    EXPECT_TRUE(service.shutdown());
    storm.waitForEnd();
    expectNothingLeft(storm);
}

} // namespace
