// What clients get, in the presence of clients that behave badly or go away.

#include "Messages.h"
#include "Shop.h"

#include <CapturedLog.h>
#include <WebsocketPeer.h>

#include <Poco/Clock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

using Kesa::Test::message;
using Kesa::Test::parsed;
using Kesa::Test::Shop;
using Kesa::Test::WebsocketPeer;

namespace
{

/// A client that follows one URL.
class Follower
{
public:
    Follower(Shop& shop, const std::string& event): m_peer(shop.host.port())
    {
        m_peer.sendText(message("subscribe", event));
        EXPECT_EQ(parsed(m_peer.receiveText())->getValue<std::string>("status"), "ok");
        EXPECT_EQ(parsed(m_peer.receiveText())->getValue<std::string>("type"), "data");
    }

    /// The amount in the next notification.
    int nextAmount() { return parsed(m_peer.receiveText())->getObject("data")->getValue<int>("amount"); }

    /// How many entries the list in the next notification has.
    std::size_t nextSize() { return parsed(m_peer.receiveText())->getArray("data")->size(); }

    WebsocketPeer& peer() { return m_peer; }

private:
    WebsocketPeer m_peer;
};

class DeliveryTest: public ::testing::Test
{
    const Kesa::Test::CapturedLog m_quiet{Poco::Message::PRIO_WARNING};
};

TEST_F(DeliveryTest, EachChangeReachesEachFollowerInOrder)
{
    Shop shop;
    Follower first(shop, "/shop/orders/1");
    Follower second(shop, "/shop/orders/1");
    for (int amount = 100; amount < 150; ++amount)
    {
        shop.orders->set("1", amount);
        EXPECT_EQ(first.nextAmount(), amount);
        EXPECT_EQ(second.nextAmount(), amount);
    }
}

TEST_F(DeliveryTest, AListTellsOfNewElements)
{
    Shop shop;
    Follower list(shop, "/shop/orders");
    shop.orders->set("2", 1);
    EXPECT_EQ(list.nextSize(), 2U);
    shop.orders->set("3", 1);
    EXPECT_EQ(list.nextSize(), 3U);
}

TEST_F(DeliveryTest, AfterAnUnsubscribeNothingFollowsItsAcknowledgement)
{
    Shop shop;
    Follower leaver(shop, "/shop/orders/1");
    Follower stayer(shop, "/shop/orders/1");
    leaver.peer().sendText(message("unsubscribe", "/shop/orders/1"));
    EXPECT_EQ(parsed(leaver.peer().receiveText())->getValue<std::string>("type"), "unsubscribe");
    for (int amount = 20; amount < 25; ++amount)
    {
        shop.orders->set("1", amount);
        EXPECT_EQ(stayer.nextAmount(), amount);
    }
    leaver.peer().sendText(message("unsubscribe", "/shop/orders/1"));
    EXPECT_EQ(parsed(leaver.peer().receiveText())->getValue<int>("code"), 404);
}

TEST_F(DeliveryTest, APeerThatNeverReadsGetsTheNewestStateAndHoldsUpNobody)
{
    constexpr int changes = 1000;
    const std::string note(16 * 1024, 'n');
    Shop shop;
    Follower silent(shop, "/shop/orders/1");
    silent.peer().socket().setReceiveBufferSize(64 * 1024); // or the kernel would read for it
    Follower good(shop, "/shop/orders/1");
    Poco::Clock::ClockDiff slowest = 0;
    for (int amount = 1; amount <= changes; ++amount)
    {
        const Poco::Clock start;
        shop.orders->set("1", amount, note);
        ASSERT_EQ(good.nextAmount(), amount);
        slowest = std::max(slowest, start.elapsed());
    }
    EXPECT_LT(slowest, 2'000'000) << "microseconds from a change to its notification";

    std::vector<int> received{0};
    while (received.back() != changes)
        received.push_back(silent.nextAmount());
    EXPECT_TRUE(std::is_sorted(received.begin(), received.end()));
    EXPECT_LT(received.size(), changes / 2U) << "of 16 MiB only what the kernel and the queue hold may have waited";
}

TEST_F(DeliveryTest, ClientsThatComeAndGoLeaveTheOthersAlone)
{
    Shop shop;
    Follower good(shop, "/shop/orders/1");
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back(
            [&shop, i]
            {
                for (int round = 0; round < 25; ++round)
                {
                    Follower passing(shop, "/shop/orders/1");
                    if ((round + i) % 2 == 0)
                        passing.peer().socket().setLinger(true, 0); // goes with a reset
                }
            });
    for (int amount = 1; amount <= 200; ++amount)
    {
        shop.orders->set("1", 1000 + amount);
        ASSERT_EQ(good.nextAmount(), 1000 + amount);
    }
    for (auto& thread: threads)
        thread.join();
}

TEST_F(DeliveryTest, AStopSaysGoodbyeToEveryFollower)
{
    std::vector<std::unique_ptr<Follower>> followers;
    {
        Shop shop;
        for (int i = 0; i < 20; ++i)
            followers.push_back(std::make_unique<Follower>(shop, "/shop/orders/1"));
        std::thread stopper([&shop] { shop.host.stop(); });
        for (auto& follower: followers)
            EXPECT_EQ(follower->peer().closeCode(), 1001);
        followers.clear();
        stopper.join();
    }
}

} // namespace
