#include "SubscriptionTree.h"

#include "StoreClient.h"

#include <CapturedLog.h>
#include <Websocket/WebsocketConnectionManager.h>

#include <gtest/gtest.h>

#include <memory>

namespace Kesa::Service
{
namespace
{

using Command::HttpRequest;
using Command::RequestBase;
using Command::UrlPath;
using Poco::Message;
using Test::CapturedLog;
using Test::Events;
using Test::eventsOf;
using Test::LoopbackConnection;
using Test::requestFor;
using Test::StoreClient;
using Test::SubscriptionPtr;
using Test::Subscriptions;

class SubscriptionTreeTest: public testing::Test
{
protected:
    bool add(const StoreClient& client, const std::string& event)
    {
        SubscriptionPtr subscription = client.subscriptionTo(event);
        return m_tree.add(client.connection(), requestFor(event), subscription);
    }
    void addAll(const StoreClient& client, const Events& events)
    {
        for (const std::string& event: events)
            ASSERT_TRUE(add(client, event)) << event;
    }
    /// What a removal took; nothing where it gave false.
    Events removedByUrl(const StoreClient& client, const std::string& url)
    {
        Subscriptions removed;
        const bool result = m_tree.remove(client.connection(), UrlPath(url), removed);
        EXPECT_EQ(result, !removed.empty());
        return eventsOf(removed);
    }
    Events removedAll(const StoreClient& client)
    {
        Subscriptions removed;
        const bool result = m_tree.remove(client.connection(), removed);
        EXPECT_EQ(result, !removed.empty());
        return eventsOf(removed);
    }
    Events sweptUnbooked(const StoreClient& client)
    {
        Subscriptions removed;
        m_tree.removeUnbooked(client.connection(), removed);
        return eventsOf(removed);
    }
    std::vector<Events> candidates(const std::string& url)
    {
        GroupedSubscriptionList::GroupedSubList found;
        EXPECT_TRUE(m_tree.searchSubscriptions(HttpRequest::POST, RequestBase(UrlPath(url)), found));
        return eventsOf(found);
    }
    uint32_t countOf(const StoreClient& client) { return m_tree.getSubscriptionCountPerWebsocket(client.connection()); }
    /// Whether the tree has a node for this service.
    bool hasServiceNode(const std::string& service)
    {
        const CapturedLog log;
        Subscriptions found;
        m_tree.getElementSubscriptionsPerWebsocket(UrlPath("/" + service + "/any"), m_client.connection(), found);
        return !log.contains(Message::PRIO_ERROR, "searchElementSubscriptionsPerWebsocketPerResource no service found");
    }

    SubscriptionTree m_tree;
    StoreClient m_client;
    StoreClient m_other;
};

TEST_F(SubscriptionTreeTest, IsEmptyAtFirst)
{
    EXPECT_EQ(m_tree.getSubscriptionCount(), 0U);
    EXPECT_EQ(countOf(m_client), 0U);
    EXPECT_EQ(candidates("/"), std::vector<Events>());
}

TEST_F(SubscriptionTreeTest, ItsEndIsTraced)
{
    const CapturedLog log;
    {
        const SubscriptionTree tree;
        EXPECT_EQ(log.count(Message::PRIO_TRACE), 0U);
    }
    EXPECT_TRUE(log.contains(Message::PRIO_TRACE, "dtor Subscription tree"));
}

TEST_F(SubscriptionTreeTest, CountsPerConnectionAndInAll)
{
    addAll(m_client, {"/shop", "/shop/orders", "/shop/orders/1"});
    addAll(m_other, {"/shop/orders/1"});
    EXPECT_EQ(countOf(m_client), 3U);
    EXPECT_EQ(countOf(m_other), 1U);
    EXPECT_EQ(m_tree.getSubscriptionCount(), 4U);
    EXPECT_EQ(countOf(StoreClient()), 0U);
}

TEST_F(SubscriptionTreeTest, RemovalByUrlTakesOneNodeOffTheConnection)
{
    addAll(m_client, {"/shop", "/shop/orders", "/shop/orders/1"});
    EXPECT_EQ(removedByUrl(m_client, "/shop/orders"), (Events{"/shop/orders"}));
    EXPECT_EQ(countOf(m_client), 2U);
    EXPECT_EQ(removedAll(m_client), (Events{"/shop", "/shop/orders/1"}));
    EXPECT_EQ(countOf(m_client), 0U);
}

TEST_F(SubscriptionTreeTest, RemovalByRequestTakesTheUrlFromTheRequest)
{
    addAll(m_client, {"/shop/orders?x=1", "/shop"});
    Subscriptions removed;
    EXPECT_TRUE(m_tree.remove(m_client.connection(), requestFor("/shop/orders?x=2"), removed));
    EXPECT_EQ(eventsOf(removed), (Events{"/shop/orders?x=1"}));
    EXPECT_EQ(countOf(m_client), 1U);
}

TEST_F(SubscriptionTreeTest, ARepeatedSubscriptionCountsTwiceAtOneNode)
{
    addAll(m_client, {"/shop/orders", "/shop/orders"});
    EXPECT_EQ(countOf(m_client), 2U);
    EXPECT_EQ(removedByUrl(m_client, "/shop/orders"), (Events{"/shop/orders", "/shop/orders"}));
    EXPECT_EQ(countOf(m_client), 0U);
    const CapturedLog log;
    EXPECT_EQ(removedAll(m_client), Events());
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "Websocket not found in websocket map!")) << "the entry is gone";
}

TEST_F(SubscriptionTreeTest, ARootSubscriptionIsBookedOnTheRoot)
{
    addAll(m_client, {"/"});
    EXPECT_EQ(countOf(m_client), 1U);
    EXPECT_EQ(removedByUrl(m_client, "/"), (Events{"/"}));
    EXPECT_EQ(countOf(m_client), 0U);
    addAll(m_client, {"/"});
    EXPECT_EQ(removedAll(m_client), (Events{"/"}));
    EXPECT_EQ(candidates("/"), std::vector<Events>());
}

TEST_F(SubscriptionTreeTest, RemovalByUrlOfSomethingUnknownSaysNothing)
{
    addAll(m_client, {"/shop/orders"});
    const CapturedLog log;
    EXPECT_EQ(removedByUrl(m_client, "/shop"), Events());
    EXPECT_EQ(removedByUrl(m_client, "/shop/orders/1"), Events());
    EXPECT_EQ(removedByUrl(m_other, "/shop/orders"), Events());
    EXPECT_TRUE(log.entries().empty());
    EXPECT_EQ(countOf(m_client), 1U);
}

TEST_F(SubscriptionTreeTest, RemovalOfAnUnknownConnectionIsADebugLine)
{
    addAll(m_client, {"/shop"});
    const CapturedLog log;
    EXPECT_EQ(removedAll(m_other), Events());
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "Websocket not found in websocket map!"));
    EXPECT_EQ(log.entries().size(), 1U);
    EXPECT_EQ(m_tree.getSubscriptionCount(), 1U);
}

TEST_F(SubscriptionTreeTest, RemovalOfAConnectionTakesItsNodesInOrderOfFirstUse)
{
    addAll(m_client, {"/shop/orders/2", "/shop", "/shop/orders/1", "/shop?x=1", "/shop/orders/2"});
    addAll(m_other, {"/shop"});
    EXPECT_EQ(removedAll(m_client),
              (Events{"/shop/orders/2", "/shop/orders/2", "/shop", "/shop?x=1", "/shop/orders/1"}));
    EXPECT_EQ(m_tree.getSubscriptionCount(), 1U);
    EXPECT_EQ(candidates("/shop"), (std::vector<Events>{{"/shop"}}));
}

TEST_F(SubscriptionTreeTest, RemovalOfAConnectionOnlyAppends)
{
    addAll(m_client, {"/shop"});
    Subscriptions removed{m_other.subscriptionTo("/before")};
    EXPECT_TRUE(m_tree.remove(m_client.connection(), removed));
    EXPECT_EQ(eventsOf(removed), (Events{"/before", "/shop"}));
}

TEST_F(SubscriptionTreeTest, RemovalHandsItsShareToTheCaller)
{
    SubscriptionPtr subscription = m_client.subscriptionTo("/shop/orders/1");
    ASSERT_TRUE(m_tree.add(m_client.connection(), requestFor("/shop/orders/1"), subscription));
    removedAll(m_client);
    EXPECT_EQ(subscription.referenceCount(), 1);
}

TEST_F(SubscriptionTreeTest, ARefusedAddChangesNoCount)
{
    addAll(m_client, {"/shop"});
    EXPECT_FALSE(add(m_client, "/shop/orders/1/parts"));
    EXPECT_FALSE(add(m_client, "/shop/orders/$id"));
    EXPECT_FALSE(add(m_other, "/shop/$spec"));
    EXPECT_EQ(countOf(m_client), 1U);
    EXPECT_EQ(m_tree.getSubscriptionCount(), 1U);
    const CapturedLog log;
    EXPECT_EQ(removedAll(m_other), Events());
    EXPECT_TRUE(log.contains(Message::PRIO_DEBUG, "Websocket not found in websocket map!"));
}

TEST_F(SubscriptionTreeTest, ARefusedAddLeavesNoNodesBehind)
{
    for (int i = 0; i < 3; ++i)
    {
        const std::string service = "shop" + std::to_string(i);
        EXPECT_FALSE(add(m_client, "/" + service + "/orders/$id"));
        EXPECT_FALSE(hasServiceNode(service));
    }
    addAll(m_client, {"/shop0"});
    EXPECT_FALSE(add(m_client, "/shop0/$rights"));
    EXPECT_EQ(candidates("/shop0"), (std::vector<Events>{{"/shop0"}}));
}

TEST_F(SubscriptionTreeTest, RemovalOfAConnectionLeavesNoEmptyNodesBehind)
{
    addAll(m_client, {"/shop/orders/1", "/bakery/rolls/1"});
    addAll(m_other, {"/bakery/rolls"});
    removedAll(m_client);
    EXPECT_FALSE(hasServiceNode("shop"));
    EXPECT_TRUE(hasServiceNode("bakery"));
    EXPECT_EQ(candidates("/bakery/rolls/1"), (std::vector<Events>{{"/bakery/rolls"}}));
}

TEST_F(SubscriptionTreeTest, RemovalByUrlLosesSightOfAnotherFragmentAtTheNode)
{
    addAll(m_client, {"/shop/orders", "/shop/orders#f"});
    EXPECT_EQ(removedByUrl(m_client, "/shop/orders#f"), (Events{"/shop/orders#f"}));
    EXPECT_EQ(countOf(m_client), 1U);
    EXPECT_EQ(candidates("/shop/orders"), (std::vector<Events>{{"/shop/orders"}})) << "the survivor";
    EXPECT_EQ(removedAll(m_client), Events()) << "no node is booked any more";
    EXPECT_EQ(countOf(m_client), 0U);
    EXPECT_EQ(candidates("/shop/orders"), (std::vector<Events>{{"/shop/orders"}}));
}

TEST_F(SubscriptionTreeTest, RemovalOfASurvivorLeavesTheCountTooHigh)
{
    addAll(m_client, {"/shop/orders", "/shop/orders#f"});
    removedByUrl(m_client, "/shop/orders#f");
    const CapturedLog log;
    EXPECT_EQ(removedByUrl(m_client, "/shop/orders"), (Events{"/shop/orders"}));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
    EXPECT_EQ(countOf(m_client), 1U);
    EXPECT_EQ(m_tree.getSubscriptionCount(), 1U);
    EXPECT_EQ(candidates("/shop/orders"), std::vector<Events>());
}

TEST_F(SubscriptionTreeTest, SurvivorsOfAClosedConnectionAreSweptAndTheirNodesPruned)
{
    addAll(m_client, {"/shop/orders", "/shop/orders#f", "/shop/orders#g", "/bakery", "/bakery#f"});
    removedByUrl(m_client, "/shop/orders#f");
    removedByUrl(m_client, "/bakery");
    EXPECT_EQ(removedAll(m_client), Events());
    EXPECT_EQ(sweptUnbooked(m_client), (Events{"/shop/orders", "/shop/orders#g", "/bakery#f"}));
    EXPECT_EQ(candidates("/shop/orders"), std::vector<Events>());
    EXPECT_FALSE(hasServiceNode("shop"));
    EXPECT_FALSE(hasServiceNode("bakery"));
    EXPECT_EQ(sweptUnbooked(m_client), Events());
}

TEST_F(SubscriptionTreeTest, TheSweepLeavesOtherConnectionsAlone)
{
    addAll(m_client, {"/shop", "/shop#f"});
    addAll(m_other, {"/shop", "/shop#f"});
    removedByUrl(m_client, "/shop");
    removedByUrl(m_other, "/shop");
    EXPECT_EQ(sweptUnbooked(m_client), (Events{"/shop#f"}));
    EXPECT_EQ(candidates("/shop"), (std::vector<Events>{{"/shop#f"}}));
    EXPECT_EQ(sweptUnbooked(m_other), (Events{"/shop#f"}));
}

TEST_F(SubscriptionTreeTest, TheSweepFindsNothingOfAConnectionWhoseSurvivorsWereRemovedOrBookedAgain)
{
    addAll(m_client, {"/shop", "/shop#f"});
    removedByUrl(m_client, "/shop");
    removedByUrl(m_client, "/shop#f");
    EXPECT_EQ(sweptUnbooked(m_client), Events());
    addAll(m_other, {"/shop", "/shop#f"});
    removedByUrl(m_other, "/shop");
    addAll(m_other, {"/shop#g"});
    EXPECT_EQ(removedAll(m_other), (Events{"/shop#f", "/shop#g"})) << "the node is booked again";
    EXPECT_EQ(sweptUnbooked(m_other), Events());
}

TEST_F(SubscriptionTreeTest, RemovalByUrlOfAConnectionThatIsNotBookedIsAnError)
{
    addAll(m_client, {"/shop", "/shop#f"});
    removedByUrl(m_client, "/shop");
    removedAll(m_client);
    const CapturedLog log;
    EXPECT_EQ(removedByUrl(m_client, "/shop#f"), (Events{"/shop#f"}));
    EXPECT_TRUE(log.contains(Message::PRIO_ERROR, "Websocket not found in websocket map!"));
    EXPECT_EQ(m_tree.getSubscriptionCount(), 0U);
}

TEST_F(SubscriptionTreeTest, ClearEmptiesTheTreeAndKeepsTheCounts)
{
    addAll(m_client, {"/", "/shop/orders"});
    addAll(m_other, {"/shop"});
    m_tree.clear();
    EXPECT_EQ(candidates("/"), std::vector<Events>());
    EXPECT_EQ(candidates("/shop/orders"), std::vector<Events>());
    EXPECT_EQ(m_tree.getSubscriptionCount(), 3U);
    EXPECT_EQ(countOf(m_client), 2U);
}

TEST_F(SubscriptionTreeTest, TheLastNodeDecidesTheResultOfTheRemovalOfAConnection)
{
    addAll(m_client, {"/shop/orders", "/"});
    addAll(m_other, {"/", "/shop/orders"});
    m_tree.clear(); // takes the root's own, while the nodes below stay booked with theirs
    Subscriptions removed;
    EXPECT_FALSE(m_tree.remove(m_client.connection(), removed));
    EXPECT_EQ(eventsOf(removed), (Events{"/shop/orders"}));
    EXPECT_TRUE(m_tree.remove(m_other.connection(), removed));
    EXPECT_EQ(eventsOf(removed), (Events{"/shop/orders", "/shop/orders"}));
}

TEST_F(SubscriptionTreeTest, GivesTheElementSubscriptionsOfAConnection)
{
    addAll(m_client, {"/shop/orders/2", "/shop/orders/1", "/shop/orders"});
    addAll(m_other, {"/shop/orders/3"});
    Subscriptions found;
    EXPECT_TRUE(m_tree.getElementSubscriptionsPerWebsocket(UrlPath("/shop/orders"), m_client.connection(), found));
    EXPECT_EQ(eventsOf(found), (Events{"/shop/orders/1", "/shop/orders/2"}));
    const CapturedLog log;
    EXPECT_FALSE(m_tree.getElementSubscriptionsPerWebsocket(UrlPath("/shop/bills"), m_client.connection(), found));
    EXPECT_TRUE(
        log.contains(Message::PRIO_ERROR, "searchElementSubscriptionsPerWebsocketPerResource no resource found"));
    EXPECT_TRUE(found.empty());
}

TEST_F(SubscriptionTreeTest, ASearchGivesSharesThatOutliveARemoval)
{
    addAll(m_client, {"/shop"});
    GroupedSubscriptionList::GroupedSubList found;
    EXPECT_TRUE(m_tree.searchSubscriptions(HttpRequest::POST, RequestBase(UrlPath("/shop")), found));
    removedAll(m_client);
    EXPECT_EQ(eventsOf(found), (std::vector<Events>{{"/shop"}}));
}

TEST_F(SubscriptionTreeTest, RefusesAConnectionThatHasEnded)
{
    auto manager = std::make_unique<Net::WebsocketConnectionManager>();
    const LoopbackConnection loopback;
    const Poco::SharedPtr<Poco::Net::WebSocket> socket = loopback.proxy().webSocket;
    manager->addConnection(socket);
    const Net::WebSocketProxy served(socket, manager.get());
    SubscriptionPtr subscription = SubscriptionObject::Create(served, requestFor("/shop"));
    ASSERT_TRUE(m_tree.add(served, requestFor("/shop"), subscription));
    manager.reset();
    ASSERT_TRUE(served.hasEnded());

    const CapturedLog log;
    EXPECT_FALSE(m_tree.add(served, requestFor("/shop/orders"), subscription));
    EXPECT_EQ(log.count(Message::PRIO_ERROR), 0U);
    EXPECT_EQ(m_tree.getSubscriptionCountPerWebsocket(served), 1U);
    EXPECT_EQ(candidates("/shop/orders"), (std::vector<Events>{{"/shop"}}));
}

TEST_F(SubscriptionTreeTest, TakesAConnectionThatNobodyServes)
{
    EXPECT_FALSE(m_client.connection().hasEnded());
    EXPECT_TRUE(add(m_client, "/shop"));
}

} // namespace
} // namespace Kesa::Service
