// What a manager does because time passes. The clock is moved by hand.

#include "LimitsAndTimes.h"
#include "ServedConnections.h"

#include <Poco/Net/NetException.h>

namespace
{

using Kesa::Test::eventually;
using Kesa::Test::ServedConnections;
using Kesa::Test::WebsocketPeer;

constexpr int PING = 0x9;
constexpr int PONG = 0xA;

class ConnectionManagerTimeTest: public ServedConnections
{
protected:
    /// Moves the clock on in steps in which `other` stays alive, and lets the loop look at each.
    void pass(long seconds, WebsocketPeer& other)
    {
        for (; seconds > 0; seconds -= 10)
        {
            clock.advance(std::min(seconds, 10L) * 1000);
            waitForLoop(other);
        }
    }
};

TEST_F(ConnectionManagerTimeTest, ASilentPeerIsAsked)
{
    WebsocketPeer peer = connect();
    WebsocketPeer other = connect();
    pass(19, other);
    proxy().write("not yet");
    EXPECT_EQ(other.receiveText(), "not yet");
    clock.advance(2000);
    EXPECT_EQ(peer.receiveFrame().opcode, PING);
    EXPECT_EQ(closes().size(), 0u);
}

TEST_F(ConnectionManagerTimeTest, APeerThatAnswersStays)
{
    WebsocketPeer peer = connect();
    WebsocketPeer other = connect();
    for (int i = 0; i < 10; ++i)
    {
        pass(20, other);
        EXPECT_EQ(peer.receiveFrame().opcode, PING);
        peer.send(WebsocketPeer::frame(PONG, ""));
        waitForLoop(other);
    }
    EXPECT_EQ(manager->connectionCount(), 2u);
}

TEST_F(ConnectionManagerTimeTest, APeerThatDoesNotAnswerIsClosed)
{
    WebsocketPeer peer = connect();
    WebsocketPeer other = connect();
    pass(59, other);
    EXPECT_EQ(closes().size(), 0u);
    pass(1, other);
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(closes().front(), "nothing was heard of the client for 60 s");
    EXPECT_TRUE(peer.ended());
    EXPECT_EQ(manager->connectionCount(), 1u);
}

TEST_F(ConnectionManagerTimeTest, EveryByteCountsAsLife)
{
    WebsocketPeer silent = connect();
    WebsocketPeer slow = connect();
    WebsocketPeer other = connect();
    const std::string frame = WebsocketPeer::frame(0x1, "a message that takes its time");
    for (const char byte: frame)
    {
        pass(15, other);
        slow.send(std::string(1, byte));
        waitForLoop(other);
    }
    EXPECT_TRUE(waitForMessages(1));
    EXPECT_EQ(closes().size(), 1u) << "the silent one";
}

TEST_F(ConnectionManagerTimeTest, TheSilenceClockStandsStillWhileWeRefuseToRead)
{
    onData = [&](const Data&)
    {
        entered.open();
        leave.wait();
    };
    WebsocketPeer full = connect();
    full.sendText("blocks the handler");
    entered.wait();
    const std::string message = WebsocketPeer::frame(0x1, std::string(1000, 'x'));
    const std::size_t sent = flood(full, message, 512 * message.size());
    WebsocketPeer silent = connect();
    WebsocketPeer other = connect();
    pass(120, other);
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(closes().size(), 1u) << "the silent one";
    EXPECT_EQ(manager->connectionCount(), 2u);
    leave.open();
    EXPECT_TRUE(waitForMessages(1 + sent / message.size()));
}

TEST_F(ConnectionManagerTimeTest, APeerThatWasNotReadIsAskedBeforeItCountsAsGone)
{
    onData = [&](const Data&)
    {
        entered.open();
        leave.wait();
    };
    WebsocketPeer peer = connect();
    peer.sendText("blocks the handler");
    entered.wait();
    peer.sendText(std::string(Kesa::Net::MAX_INBOX, 'x'));
    WebsocketPeer other = connect();
    pass(120, other);
    leave.open();
    ASSERT_TRUE(waitForMessages(2));
    pass(30, other);
    EXPECT_EQ(peer.receiveFrame().opcode, PING);
    EXPECT_EQ(closes().size(), 0u);
}

TEST_F(ConnectionManagerTimeTest, APeerThatTakesNothingWhileSomethingWaitsIsClosed)
{
    WebsocketPeer peer = connectSlow();
    const Proxy stalled = proxy();
    stalled.write(std::string(3 * 1024 * 1024, 'x'));
    stalled.write("more");
    WebsocketPeer other = connect();
    pass(59, other);
    EXPECT_FALSE(stalled.hasEnded());
    for (int i = 0; i < 12 && !stalled.hasEnded(); ++i)
        pass(5, other); // the kernel may have taken a little late
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(closes().front(), "the client took nothing for 60 s");
    EXPECT_THROW(stalled.write("x"), Poco::Net::WebSocketException);
}

TEST_F(ConnectionManagerTimeTest, APeerThatTakesSomethingNowAndThenStays)
{
    WebsocketPeer peer = connectSlow();
    const Proxy slow = proxy();
    const std::size_t size = 4 * 1024 * 1024;
    slow.write(std::string(size, 'x'));
    slow.write("last");
    WebsocketPeer other = connect();
    std::vector<char> part(512 * 1024);
    for (std::size_t taken = 0; taken < size / 2;)
    {
        pass(50, other);
        ASSERT_FALSE(slow.hasEnded());
        std::size_t inPart = 0;
        while (inPart < part.size())
        {
            const int count = peer.socket().receiveBytes(part.data(), static_cast<int>(part.size() - inPart));
            ASSERT_GT(count, 0);
            inPart += static_cast<std::size_t>(count);
        }
        taken += inPart;
        waitForLoop(other);
    }
}

TEST_F(ConnectionManagerTimeTest, APeerThatDoesNotAnswerACloseIsClosedInTime)
{
    WebsocketPeer peer = connect();
    proxy().shutdown();
    EXPECT_EQ(peer.closeCode(), 1000);
    WebsocketPeer other = connect();
    EXPECT_TRUE(waitForCloses(1)) << "it has ended for us as soon as nothing can be written";
    pass(4, other);
    const int descriptor = peer.socket().impl()->sockfd();
    char byte;
    EXPECT_LT(::recv(descriptor, &byte, 1, MSG_DONTWAIT), 0) << "the socket is still open";
    clock.advance(2000);
    EXPECT_TRUE(peer.ended());
}

TEST_F(ConnectionManagerTimeTest, APeerThatDoesNotCloseItsEndIsClosedInTime)
{
    WebsocketPeer peer = connect();
    const Socket socket = lastSocket;
    WebsocketPeer other = connect();
    peer.send(WebsocketPeer::frame(0x8, "\x03\xE8"));
    EXPECT_EQ(peer.closeCode(), 1000);
    EXPECT_TRUE(peer.ended());
    pass(6, other);
    EXPECT_TRUE(
        eventually([&] { return peer.socket().available() == 0 && socket->impl()->sockfd() == POCO_INVALID_SOCKET; }));
}

TEST_F(ConnectionManagerTimeTest, ACloseIsAnsweredInTimeThoughAHandlerBlocks)
{
    onData = [&](const Data&)
    {
        entered.open();
        leave.wait();
    };
    WebsocketPeer peer = connect();
    WebsocketPeer other = connect();
    peer.send(WebsocketPeer::frame(0x1, "one") + WebsocketPeer::frame(0x1, "two") +
              WebsocketPeer::frame(0x8, "\x03\xE8"));
    entered.wait();
    pass(6, other);
    EXPECT_EQ(peer.closeCode(), 1000);
    EXPECT_EQ(closes().size(), 0u);
    leave.open();
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(messages().size(), 2u) << "what came before an orderly close is handled";
}

} // namespace
