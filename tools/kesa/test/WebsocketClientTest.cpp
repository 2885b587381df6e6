#include "WebsocketClient.h"

#include "TestServer.h"

#include <Poco/Event.h>
#include <Poco/Exception.h>
#include <Poco/Net/NetException.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace
{

using namespace Kesa::Client;

constexpr int PATIENCE = 10000; ///< milliseconds; a bound for what should be there at once

struct Stream
{
    const char* name;
    std::string bytes;
    std::vector<std::string> messages;
};

std::vector<std::string> receiveAll(WebsocketClient& client, std::size_t count)
{
    std::vector<std::string> messages;
    while (messages.size() < count)
    {
        const std::optional<std::string> message = client.receive(PATIENCE);
        if (!message)
            break;
        messages.push_back(*message);
    }
    return messages;
}

class WebsocketClientStreams: public testing::TestWithParam<Stream>
{
};

TEST_P(WebsocketClientStreams, AreReadInOnePiece)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.send(GetParam().bytes);
            peer.readToEnd();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    EXPECT_EQ(receiveAll(client, GetParam().messages.size()), GetParam().messages);
}

TEST_P(WebsocketClientStreams, AreReadByteByByte)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            for (const char byte: GetParam().bytes.substr(0, 2000))
                peer.send(std::string(1, byte));
            if (GetParam().bytes.size() > 2000)
                peer.send(GetParam().bytes.substr(2000));
            peer.readToEnd();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    EXPECT_EQ(receiveAll(client, GetParam().messages.size()), GetParam().messages);
}

TEST_P(WebsocketClientStreams, AreReadWhenTheyCameWithTheHandshake)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade(GetParam().bytes);
            peer.readToEnd();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    EXPECT_EQ(receiveAll(client, GetParam().messages.size()), GetParam().messages);
}

INSTANTIATE_TEST_SUITE_P(
    All, WebsocketClientStreams,
    testing::Values(
        Stream{"OneMessage", Peer::frame(1, "hello"), {"hello"}}, Stream{"EmptyMessage", Peer::frame(1, ""), {""}},
        Stream{"TwoMessages", Peer::frame(1, "a") + Peer::frame(1, "b"), {"a", "b"}},
        Stream{"Fragments", Peer::frame(1, "a", false) + Peer::frame(0, "b", false) + Peer::frame(0, "c"), {"abc"}},
        Stream{"PingBetweenFragments", Peer::frame(1, "a", false) + Peer::frame(9, "p") + Peer::frame(0, "b"), {"ab"}},
        Stream{"CharacterCutByFragments", Peer::frame(1, "\xC3", false) + Peer::frame(0, "\xA4"), {"\xC3\xA4"}},
        Stream{"SixteenBitLength", Peer::frame(1, std::string(126, 'x')), {std::string(126, 'x')}},
        Stream{"SixtyFourBitLength", Peer::frame(1, std::string(65536, 'x')), {std::string(65536, 'x')}}),
    [](const auto& testInfo) { return testInfo.param.name; });

struct Ending
{
    const char* name;
    std::string bytes;
    std::string reason; ///< part of what the user is told
    unsigned codeTold;  ///< what the client's close frame says
};

class WebsocketClientEndings: public testing::TestWithParam<Ending>
{
};

TEST_P(WebsocketClientEndings, AreToldToUserAndServer)
{
    std::string told;
    {
        TestServer server(
            [&](Peer& peer)
            {
                peer.upgrade();
                peer.send(GetParam().bytes);
                const Peer::Frame frame = peer.readFrame();
                told = frame.opcode == 8 ? frame.payload : "no close frame";
                peer.readToEnd();
            });
        WebsocketClient client(ServiceUrl(server.url()));
        EXPECT_FALSE(client.receive(PATIENCE));
        EXPECT_FALSE(client.isOpen());
        EXPECT_NE(client.endReason().find(GetParam().reason), std::string::npos) << client.endReason();
    }
    ASSERT_GE(told.size(), 2u);
    EXPECT_EQ(static_cast<unsigned char>(told[0]) * 256u + static_cast<unsigned char>(told[1]), GetParam().codeTold);
}

INSTANTIATE_TEST_SUITE_P(
    All, WebsocketClientEndings,
    testing::Values(
        Ending{"CloseWithReason", Peer::closeFrame(1001, "going away"),
               "the service closed the connection with code 1001 (going away)", 1001},
        Ending{"CloseWithoutReason", Peer::closeFrame(1011), "the service closed the connection with code 1011", 1011},
        Ending{"MaskedFrame", std::string("\x81\x81\0\0\0\0x", 7), "1002: the service broke the websocket protocol",
               1002},
        Ending{"ReservedBit", "\xC1\x01x", "1002: the service broke the websocket protocol", 1002},
        Ending{"UnknownOpcode", Peer::frame(3, ""), "1002: the service broke the websocket protocol", 1002},
        Ending{"ContinuationOfNothing", Peer::frame(0, "x"), "1002: the service broke the websocket protocol", 1002},
        Ending{"NoUtf8", Peer::frame(1, "\xFF"), "1007: the service sent text that is no UTF-8", 1007},
        Ending{"TooLong", std::string("\x81\x7F\0\0\0\0\x01\0\0\x01x", 11),
               "1009: the service sent a message of more than 16777216 bytes", 1009}),
    [](const auto& testInfo) { return testInfo.param.name; });

TEST(WebsocketClient, SendsMaskedText)
{
    std::vector<Peer::Frame> frames;
    const std::string text(100000, 'x');
    {
        TestServer server(
            [&](Peer& peer)
            {
                peer.upgrade();
                frames.push_back(peer.readFrame());
                frames.push_back(peer.readFrame());
            });
        WebsocketClient client(ServiceUrl(server.url()));
        client.send("hello");
        client.send(text);
        client.finish(PATIENCE);
    }
    ASSERT_EQ(frames.size(), 2u);
    EXPECT_TRUE(frames[0].isMasked);
    EXPECT_EQ(frames[0].payload, "hello");
    EXPECT_EQ(frames[1].payload, text);
}

TEST(WebsocketClient, AnswersAPingWithItsPayload)
{
    Peer::Frame pong{};
    {
        TestServer server(
            [&](Peer& peer)
            {
                peer.upgrade();
                peer.send(Peer::frame(9, "are you there"));
                pong = peer.readFrame();
            });
        WebsocketClient client(ServiceUrl(server.url()));
        client.finish(PATIENCE);
    }
    EXPECT_EQ(pong.opcode, 10);
    EXPECT_EQ(pong.payload, "are you there");
}

TEST(WebsocketClient, ClosesInOrder)
{
    Peer::Frame close{};
    TestServer server(
        [&](Peer& peer)
        {
            peer.upgrade();
            close = peer.readFrame();
            peer.send(Peer::closeFrame(1000));
            peer.readToEnd();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    client.close(1000);
    client.finish(PATIENCE);
    EXPECT_FALSE(client.isOpen());
    EXPECT_EQ(client.closeCode(), 1000u);
    EXPECT_EQ(close.payload, std::string("\x03\xE8"));
}

TEST(WebsocketClient, TellsOfAConnectionThatBrokeOff)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.send(Peer::frame(1, "half").substr(0, 4));
        });
    WebsocketClient client(ServiceUrl(server.url()));
    EXPECT_FALSE(client.receive(PATIENCE));
    EXPECT_EQ(client.endReason(), "the connection broke off without a close frame");
}

TEST(WebsocketClient, TellsOfAReset)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.reset();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    EXPECT_FALSE(client.receive(PATIENCE));
    EXPECT_EQ(client.endReason(), "the connection broke off with an error: Connection reset by peer");
}

TEST(WebsocketClient, KeepsMessagesThatCameBeforeTheEnd)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.send(Peer::frame(1, "last words") + Peer::closeFrame(1001));
            peer.readToEnd();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    EXPECT_EQ(client.receive(PATIENCE), "last words");
}

TEST(WebsocketClient, ReadsNoFurtherThanItsBoundUntilMessagesAreTaken)
{
    const std::string text(1024 * 1024, 'x');
    constexpr int MESSAGES = 12;
    TestServer server(
        [&](Peer& peer)
        {
            peer.upgrade();
            for (int i = 0; i < MESSAGES; ++i)
                peer.sendText(text);
            peer.readToEnd();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    int taken = 0;
    std::size_t most = 0;
    while (taken < MESSAGES)
    {
        ASSERT_EQ(client.receive(PATIENCE), text);
        ++taken;
        for (int i = 0; i < 10; ++i) // reads ahead, as far as it may
            client.process();
        std::size_t waiting = 0;
        while (client.takeMessage())
            waiting += text.size();
        taken += static_cast<int>(waiting / text.size());
        most = std::max(most, waiting);
    }
    EXPECT_LE(most, WebsocketClient::MAX_WAITING + text.size());
}

TEST(WebsocketClient, ReceiveEndsAfterItsTime)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.readToEnd();
        });
    WebsocketClient client(ServiceUrl(server.url()));
    EXPECT_FALSE(client.receive(20));
    EXPECT_TRUE(client.isOpen());
}

TEST(WebsocketClient, RaisesWhereNobodyListens)
{
    std::string url;
    {
        Poco::Net::ServerSocket closed(Poco::Net::SocketAddress("127.0.0.1", 0));
        url = closed.address().toString();
    }
    EXPECT_THROW(WebsocketClient{ServiceUrl(url)}, Poco::Net::ConnectionRefusedException);
}

TEST(WebsocketClient, RaisesWhenTheUpgradeIsNotAnswered)
{
    TestServer server([](Peer& peer) { peer.readToEnd(); });
    EXPECT_THROW(WebsocketClient(ServiceUrl(server.url()), "/", 50), Poco::TimeoutException);
}

TEST(WebsocketClient, RaisesWhenTheUpgradeIsRefused)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.readHead();
            peer.send("HTTP/1.1 503 Service Unavailable\r\n\r\n");
        });
    EXPECT_THROW(WebsocketClient{ServiceUrl(server.url())}, Poco::Net::WebSocketException);
}

} // namespace
