#include <Websocket/WebSocketProxy.h>

#include "UpgradingListener.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/NetException.h>

#include <gtest/gtest.h>

#include <csignal>
#include <map>
#include <thread>
#include <vector>

namespace
{

using Kesa::Net::WebSocketProxy;
using Kesa::Test::UpgradingListener;
using Kesa::Test::WebsocketPeer;

TEST(WebSocketProxyTest, CopiesOfOneConnectionAreEqual)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    auto [otherPeer, otherSocket] = listener.connect();
    const WebSocketProxy proxy(socket, nullptr);
    const WebSocketProxy copy(proxy);
    const WebSocketProxy again(socket, nullptr);
    const WebSocketProxy other(otherSocket, nullptr);
    EXPECT_TRUE(proxy == copy);
    EXPECT_TRUE(proxy == again);
    EXPECT_FALSE(proxy < copy || copy < proxy || proxy < again || again < proxy);
    EXPECT_FALSE(proxy == other);
    EXPECT_NE(proxy < other, other < proxy);
    EXPECT_TRUE(proxy == *socket);
    EXPECT_FALSE(proxy == *otherSocket);
}

TEST(WebSocketProxyTest, ServesAsAKey)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    auto [otherPeer, otherSocket] = listener.connect();
    std::map<WebSocketProxy, int> subscriptions;
    ++subscriptions[WebSocketProxy(socket, nullptr)];
    ++subscriptions[WebSocketProxy(otherSocket, nullptr)];
    ++subscriptions[WebSocketProxy(socket, nullptr)];
    EXPECT_EQ(subscriptions.size(), 2u);
    EXPECT_EQ(subscriptions[WebSocketProxy(socket, nullptr)], 2);
}

TEST(WebSocketProxyTest, KeepsTheAddressesOfADeadSocket)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    const WebSocketProxy proxy(socket, nullptr);
    const auto client = peer.socket().address();
    peer.socket().setLinger(true, 0);
    peer.socket().close();
    socket->close();
    EXPECT_EQ(proxy.peerAddress(), client);
    EXPECT_EQ(proxy.address().port(), listener.port());
    const WebSocketProxy again(socket, nullptr);
    EXPECT_EQ(again.peerAddress(), client) << "read once for all proxies of the socket";
}

TEST(WebSocketProxyTest, AProxyOfASocketThatWasDeadBeforeHasEmptyAddresses)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    socket->close();
    const WebSocketProxy proxy(socket, nullptr);
    EXPECT_EQ(proxy.peerAddress(), Poco::Net::SocketAddress());
    EXPECT_EQ(proxy.address(), Poco::Net::SocketAddress());
}

TEST(WebSocketProxyTest, WithoutASocketNothingCanBeWritten)
{
    WebSocketProxy proxy(nullptr, nullptr);
    EXPECT_THROW(proxy.write("x"), Poco::Net::WebSocketException);
    EXPECT_THROW(proxy.shutdown(), Poco::Net::WebSocketException);
    EXPECT_FALSE(proxy.hasEnded());
    EXPECT_TRUE(proxy == WebSocketProxy(nullptr, nullptr));
    EXPECT_EQ(proxy.address(), Poco::Net::SocketAddress());
}

TEST(WebSocketProxyTest, WritesStraightToASocketThatNobodyServes)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    const WebSocketProxy proxy(socket, nullptr);
    proxy.write("text");
    proxy.write(std::make_shared<const std::string>("shared"), 7);
    proxy.write("");
    EXPECT_EQ(peer.receiveText(), "text");
    EXPECT_EQ(peer.receiveText(), "shared");
    EXPECT_EQ(peer.receiveText(), "");
    EXPECT_THROW(proxy.write(nullptr, 7), Poco::NullPointerException);
}

TEST(WebSocketProxyTest, WritersToASocketThatNobodyServesTakeTurns)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    const std::string large(100000, 'x');
    std::vector<std::thread> writers;
    for (int i = 0; i < 3; ++i)
        writers.emplace_back(
            [&, ours = socket]
            {
                for (int n = 0; n < 20; ++n)
                    WebSocketProxy(ours, nullptr).write(large);
            });
    for (int i = 0; i < 60; ++i)
        EXPECT_EQ(peer.receiveText(), large);
    for (std::thread& writer: writers)
        writer.join();
}

TEST(WebSocketProxyTest, MasksAsAClient)
{
    UpgradingListener listener;
    UpgradingListener::Socket server;
    std::thread accepting([&] { server = listener.accept(); });
    Poco::Net::HTTPClientSession session("127.0.0.1", listener.port());
    Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, "/", "HTTP/1.1");
    Poco::Net::HTTPResponse response;
    const UpgradingListener::Socket client = new Poco::Net::WebSocket(session, request, response);
    accepting.join();
    WebSocketProxy(client, nullptr).write("from a client");
    char buffer[100];
    int flags = 0;
    const int size = server->receiveFrame(buffer, sizeof buffer, flags);
    EXPECT_EQ(std::string(buffer, static_cast<std::size_t>(size)), "from a client");
}

TEST(WebSocketProxyTest, ABrokenPipeOfASocketThatNobodyServesRaisesAndLeavesNoSignal)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    const WebSocketProxy proxy(socket, nullptr);
    peer.socket().setLinger(true, 0);
    peer.socket().close();
    EXPECT_EXIT(
        {
            std::signal(SIGPIPE, SIG_DFL);
            sigset_t brokenPipe;
            sigemptyset(&brokenPipe);
            sigaddset(&brokenPipe, SIGPIPE);
            pthread_sigmask(SIG_UNBLOCK, &brokenPipe, nullptr);
            int raised = 0;
            for (int i = 0; i < 10; ++i)
                try
                {
                    proxy.write("x");
                }
                catch (const Poco::Exception&)
                {
                    ++raised;
                }
            std::_Exit(raised == 10 ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
    EXPECT_FALSE(proxy.hasEnded());
}

TEST(WebSocketProxyTest, ShutdownOfASocketThatNobodyServesSendsAClose)
{
    UpgradingListener listener;
    auto [peer, socket] = listener.connect();
    WebSocketProxy proxy(socket, nullptr);
    proxy.shutdown();
    EXPECT_EQ(peer.closeCode(), 1000);
    EXPECT_FALSE(proxy.hasEnded());
}

} // namespace
