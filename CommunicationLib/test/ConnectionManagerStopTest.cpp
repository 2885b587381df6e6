// How a manager ends, and what it leaves behind.

#include "ServedConnections.h"

#include <CapturedLog.h>
#include <LibraryThread.h>

#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>

namespace
{

using Kesa::Net::WebsocketConnectionManager;
using Kesa::Test::eventually;
using Kesa::Test::ServedConnections;
using Kesa::Test::WebsocketPeer;

typedef std::chrono::steady_clock Clock;

class ConnectionManagerStopTest: public ServedConnections
{
protected:
    static constexpr std::size_t THREADS_OF_A_MANAGER = 3;
    const std::size_t threadsWithout = threads() - THREADS_OF_A_MANAGER;
};

TEST_F(ConnectionManagerStopTest, StopTellsEverybody1001AndFiresEachCloseOnce)
{
    std::vector<WebsocketPeer> peers;
    for (int i = 0; i < 20; ++i)
        peers.push_back(connect());
    manager->stop();
    for (WebsocketPeer& peer: peers)
    {
        EXPECT_EQ(peer.closeCode(), 1001);
        EXPECT_TRUE(peer.ended());
    }
    EXPECT_EQ(closes().size(), 20u);
    EXPECT_EQ(manager->connectionCount(), 0u);
    manager->stop();
    EXPECT_EQ(closes().size(), 20u);
}

TEST_F(ConnectionManagerStopTest, TheDestructorTellsEverybody1001)
{
    WebsocketPeer peer = connect();
    const Proxy left = proxy();
    manager = nullptr;
    EXPECT_EQ(peer.closeCode(), 1001);
    EXPECT_TRUE(peer.ended());
    EXPECT_TRUE(left.hasEnded());
}

TEST_F(ConnectionManagerStopTest, AProxyOutlivesTheManager)
{
    WebsocketPeer peer = connect();
    Proxy left = proxy();
    const auto address = left.address();
    const auto peerAddress = left.peerAddress();
    manager = nullptr;
    EXPECT_THROW(left.write("x"), Poco::Net::WebSocketException);
    EXPECT_THROW(left.write(std::make_shared<const std::string>("x"), 7), Poco::Net::WebSocketException);
    EXPECT_NO_THROW(left.shutdown());
    EXPECT_EQ(left.address(), address);
    EXPECT_EQ(left.peerAddress(), peerAddress);
    EXPECT_NE(peerAddress.port(), 0);
    const Proxy copy = left;
    EXPECT_TRUE(copy == left);
}

TEST_F(ConnectionManagerStopTest, AfterTheStopNewConnectionsAreTold1001)
{
    manager->stop();
    for (const bool hasSent: {false, true})
    {
        auto [peer, webSocket] = listener.connect();
        if (hasSent)
            peer.sendText("unread");
        EXPECT_TRUE(eventually([&, socket = webSocket] { return !hasSent || socket->impl()->available() > 0; }));
        manager->addConnection(webSocket);
        EXPECT_EQ(peer.closeCode(), 1001);
        EXPECT_TRUE(endsOrderly(peer));
        EXPECT_EQ(webSocket->impl()->sockfd(), POCO_INVALID_SOCKET);
    }
    auto [gone, webSocket] = listener.connect();
    reset(gone);
    EXPECT_NO_THROW(manager->addConnection(webSocket));
    EXPECT_EQ(messages().size(), 0u);
}

TEST_F(ConnectionManagerStopTest, StopWaitsForARunningHandler)
{
    std::atomic<bool> isInside{false};
    onData = [&](const Data&)
    {
        isInside = true;
        entered.open();
        std::this_thread::sleep_for(std::chrono::milliseconds(50)); // a handler at work; nothing depends on how long
        isInside = false;
    };
    WebsocketPeer peer = connect();
    peer.sendText("x");
    entered.wait();
    manager->stop();
    EXPECT_FALSE(isInside);
    EXPECT_EQ(closes().size(), 1u);
}

TEST_F(ConnectionManagerStopTest, AStopFromAHandlerIsRefused)
{
    const Kesa::Test::CapturedLog log(Poco::Message::PRIO_CRITICAL);
    onData = [&](const Data&)
    {
        EXPECT_THROW(manager->stop(), Poco::IllegalStateException);
        entered.open();
    };
    onClosed = [&](const Event&)
    {
        EXPECT_THROW(manager->stop(), Poco::IllegalStateException);
        leave.open();
    };
    WebsocketPeer peer = connect();
    peer.sendText("x");
    entered.wait();
    waitForLoop(peer);
    reset(peer);
    leave.wait();
    EXPECT_EQ(log.count(Poco::Message::PRIO_CRITICAL), 2u);
}

TEST_F(ConnectionManagerStopTest, AStopOnAnyThreadOfTheLibraryIsRefused)
{
    const Kesa::Test::CapturedLog log(Poco::Message::PRIO_CRITICAL);
    const Kesa::Util::LibraryThread mark;
    EXPECT_THROW(manager->stop(), Poco::IllegalStateException);
    EXPECT_EQ(log.count(Poco::Message::PRIO_CRITICAL), 1u);
}

TEST_F(ConnectionManagerStopTest, TheLastReferenceMayGoInAMessageHandler)
{
    const Kesa::Test::CapturedLog log(Poco::Message::PRIO_CRITICAL);
    onData = [&](const Data& payload)
    {
        manager = nullptr;
        EXPECT_THROW(payload.webSocketProxy.write("x"), Poco::Net::WebSocketException);
        entered.open();
    };
    WebsocketPeer peer = connect();
    peer.send(WebsocketPeer::frame(0x1, "first") + WebsocketPeer::frame(0x1, "second"));
    entered.wait();
    EXPECT_EQ(peer.closeCode(), 1001);
    EXPECT_EQ(log.count(Poco::Message::PRIO_CRITICAL), 1u);
    EXPECT_EQ(messages().size(), 1u);
    EXPECT_TRUE(eventually([&] { return threads() == threadsWithout; }));
}

TEST_F(ConnectionManagerStopTest, TheLastReferenceMayGoInACloseHandler)
{
    const Kesa::Test::CapturedLog log(Poco::Message::PRIO_CRITICAL);
    onClosed = [&](const Event&)
    {
        manager = nullptr;
        entered.open();
    };
    WebsocketPeer other = connect();
    WebsocketPeer peer = connect();
    reset(peer);
    entered.wait();
    EXPECT_EQ(other.closeCode(), 1001);
    EXPECT_EQ(log.count(Poco::Message::PRIO_CRITICAL), 1u);
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_TRUE(eventually([&] { return threads() == threadsWithout; }));
    EXPECT_EQ(closes().size(), 1u) << "nobody is left to fire the other's";
}

TEST_F(ConnectionManagerStopTest, ADrainTellsTheClientsInSlices)
{
    constexpr std::size_t CLIENTS = 160;
    std::vector<WebsocketPeer> peers;
    for (std::size_t i = 0; i < CLIENTS; ++i)
        peers.push_back(connect());
    std::thread reader(
        [&]
        {
            for (WebsocketPeer& peer: peers)
            {
                EXPECT_EQ(peer.closeCode(), 1001);
                peer.socket().close();
            }
        });
    const Clock::time_point start = Clock::now();
    manager->drain(Poco::Timespan(20, 0));
    const Clock::duration taken = Clock::now() - start;
    reader.join();
    EXPECT_GE(taken, std::chrono::milliseconds(150)) << "ten slices, nine pauses of 20 ms";
    EXPECT_LT(taken, std::chrono::seconds(15)) << "it does not wait when all have gone";
    EXPECT_TRUE(waitForCloses(CLIENTS));
    EXPECT_EQ(manager->connectionCount(), 0u);
}

TEST_F(ConnectionManagerStopTest, ADrainEndsAtItsDeadline)
{
    std::vector<WebsocketPeer> peers;
    for (int i = 0; i < 100; ++i)
        peers.push_back(connect());
    const Clock::time_point start = Clock::now();
    manager->drain(Poco::Timespan(0, 200 * 1000));
    EXPECT_GE(Clock::now() - start, std::chrono::milliseconds(190));
    for (WebsocketPeer& peer: peers)
        EXPECT_EQ(peer.closeCode(), 1001);
}

TEST_F(ConnectionManagerStopTest, ADrainWithoutTimeTellsTheFirstOnly)
{
    WebsocketPeer peer = connect();
    manager->drain(Poco::Timespan(0, 0));
    EXPECT_EQ(peer.closeCode(), 1001);
}

TEST_F(ConnectionManagerStopTest, WhoComesDuringADrainIsTold1001)
{
    manager->drain(Poco::Timespan(1, 0));
    WebsocketPeer peer = connect();
    EXPECT_EQ(peer.closeCode(), 1001);
    EXPECT_TRUE(peer.ended());
}

TEST_F(ConnectionManagerStopTest, ManyManagersComeAndGo)
{
    for (int i = 0; i < 50; ++i)
    {
        WebsocketConnectionManager other;
        auto [peer, webSocket] = listener.connect();
        other.addConnection(webSocket);
        reset(peer);
    }
}

} // namespace
