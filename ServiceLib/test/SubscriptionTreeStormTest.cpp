#include "SubscriptionTree.h"

#include "StoreClient.h"

#include <CapturedLog.h>
#include <Websocket/WebsocketConnectionManager.h>

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

namespace Kesa::Service
{
namespace
{

using Command::HttpRequest;
using Command::RequestBase;
using Command::UrlPath;
using Test::CapturedLog;
using Test::LoopbackConnection;
using Test::requestFor;
using Test::StoreClient;
using Test::SubscriptionPtr;
using Test::Subscriptions;

const std::array<std::string, 6> EVENTS = {"/",         "/shop",          "/shop/orders",
                                           "/bakery#f", "/shop/orders/1", "/shop/orders/2?x=1"};

std::size_t subscriptionsFoundAt(SubscriptionTree& tree, const std::string& url)
{
    GroupedSubscriptionList::GroupedSubList groups;
    tree.searchSubscriptions(HttpRequest::POST, RequestBase(UrlPath(url)), groups);
    std::size_t found = 0;
    for (const Subscriptions& group: groups)
        found += group.size();
    return found;
}

bool subscribe(SubscriptionTree& tree, const Net::WebSocketProxy& connection, const std::string& event)
{
    const Command::WebSocketRequestObject request = requestFor(event);
    SubscriptionPtr subscription = SubscriptionObject::Create(connection, request);
    return tree.add(connection, request, subscription);
}

/// Subscribes and leaves again, over and over; ends with one subscription to each event.
void comeAndGo(SubscriptionTree& tree, const Net::WebSocketProxy& connection, int rounds)
{
    for (int round = 0; round < rounds; ++round)
    {
        for (const std::string& event: EVENTS)
            ASSERT_TRUE(subscribe(tree, connection, event));
        Subscriptions removed;
        ASSERT_TRUE(tree.remove(connection, UrlPath(EVENTS[4]), removed));
        ASSERT_EQ(removed.size(), 1U);
        ASSERT_EQ(tree.getSubscriptionCountPerWebsocket(connection), EVENTS.size() - 1);
        ASSERT_TRUE(tree.remove(connection, removed));
        ASSERT_EQ(removed.size(), EVENTS.size());
        ASSERT_EQ(tree.getSubscriptionCountPerWebsocket(connection), 0U);
    }
    for (const std::string& event: EVENTS)
        ASSERT_TRUE(subscribe(tree, connection, event));
}

TEST(SubscriptionTreeStormTest, CountsAndCandidatesAreRightAfterManyThreadsCameAndWent)
{
    constexpr std::size_t clientCount = 6;
    SubscriptionTree tree;
    std::vector<std::unique_ptr<StoreClient>> clients;
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < clientCount; ++i)
        clients.push_back(std::make_unique<StoreClient>());

    std::atomic<bool> done{false};
    const CapturedLog log(Poco::Message::PRIO_CRITICAL); // now and then the reader finds no such resource
    std::thread reader(
        [&]
        {
            Subscriptions elements;
            while (!done)
            {
                EXPECT_LE(subscriptionsFoundAt(tree, "/shop/orders/1"), 2 * clientCount);
                EXPECT_LE(tree.getSubscriptionCount(), EVENTS.size() * clientCount);
                tree.getElementSubscriptionsPerWebsocket(UrlPath("/shop/orders"), clients[0]->connection(), elements);
                EXPECT_LE(elements.size(), 2U);
            }
        });
    for (const auto& client: clients)
        threads.emplace_back([&tree, &client] { comeAndGo(tree, client->connection(), 200); });
    for (std::thread& thread: threads)
        thread.join();
    done = true;
    reader.join();

    EXPECT_EQ(tree.getSubscriptionCount(), EVENTS.size() * clientCount);
    EXPECT_EQ(subscriptionsFoundAt(tree, "/shop/orders/1"), 2 * clientCount);
    for (const auto& client: clients)
    {
        Subscriptions removed;
        EXPECT_TRUE(tree.remove(client->connection(), removed));
        EXPECT_EQ(removed.size(), EVENTS.size());
    }
    EXPECT_EQ(tree.getSubscriptionCount(), 0U);
    for (const std::string& event: EVENTS)
        EXPECT_EQ(subscriptionsFoundAt(tree, event), 0U) << event;
}

/// A connection that a manager serves and that ends when the client's side goes.
class ServedConnection
{
public:
    explicit ServedConnection(Net::WebsocketConnectionManager& manager)
        : m_loopback(std::make_unique<LoopbackConnection>())
    {
        const Poco::SharedPtr<Poco::Net::WebSocket> socket = m_loopback->proxy().webSocket;
        manager.addConnection(socket);
        m_proxy = std::make_unique<Net::WebSocketProxy>(socket, &manager);
    }

    const Net::WebSocketProxy& proxy() const { return *m_proxy; }

    /// The client goes; true when the end has been noticed.
    bool end()
    {
        m_loopback.reset();
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!m_proxy->hasEnded() && std::chrono::steady_clock::now() < limit)
            std::this_thread::yield();
        return m_proxy->hasEnded();
    }

private:
    std::unique_ptr<LoopbackConnection> m_loopback;
    std::unique_ptr<Net::WebSocketProxy> m_proxy;
};

/// Subscribes until the connection is refused; false if it never is.
bool subscribeUntilRefused(SubscriptionTree& tree, const Net::WebSocketProxy& connection, std::atomic<bool>& begun)
{
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    for (std::size_t i = 0; std::chrono::steady_clock::now() < limit; ++i)
    {
        const std::string& event = EVENTS[i % EVENTS.size()];
        const bool added = subscribe(tree, connection, event);
        begun = true;
        if (!added)
            return true;
        Subscriptions removed;
        if (i % 16 != 0) // a few stay
            tree.remove(connection, UrlPath(event), removed);
    }
    return false;
}

TEST(SubscriptionTreeStormTest, NothingOfAConnectionIsLeftWhoseEndMeetsItsSubscribes)
{
    Net::WebsocketConnectionManager manager;
    SubscriptionTree tree;
    for (int round = 0; round < 50 && !testing::Test::HasFailure(); ++round)
    {
        ServedConnection connection(manager);
        std::atomic<bool> begun{false};
        std::vector<std::thread> threads;
        for (int i = 0; i < 3; ++i)
            threads.emplace_back([&] { EXPECT_TRUE(subscribeUntilRefused(tree, connection.proxy(), begun)); });
        while (!begun)
            std::this_thread::yield();
        EXPECT_TRUE(connection.end());
        Subscriptions removed;
        tree.remove(connection.proxy(), removed);
        tree.removeUnbooked(connection.proxy(), removed);
        for (std::thread& thread: threads)
            thread.join();
        for (const std::string& event: EVENTS)
            EXPECT_EQ(subscriptionsFoundAt(tree, event), 0U) << event;
        EXPECT_EQ(tree.getSubscriptionCount(), 0U);
    }
}

} // namespace
} // namespace Kesa::Service
