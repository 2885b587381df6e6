// What a manager does for well-behaved and for hostile peers, on real sockets. How it ends is in
// ConnectionManagerStopTest.

#include "ServedConnections.h"

#include "LimitsAndTimes.h"

#include <CapturedLog.h>

#include <Poco/Exception.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/Net/HTTPRequest.h>
#include <Poco/Net/HTTPResponse.h>
#include <Poco/Net/NetException.h>

#include <atomic>
#include <csignal>

namespace
{

using Kesa::Test::eventually;
using Kesa::Test::Gate;
using Kesa::Test::ServedConnections;
using Kesa::Test::WebsocketPeer;

typedef std::vector<std::string> Texts;

std::string closeFrame(int code)
{
    return WebsocketPeer::frame(0x8, {static_cast<char>(code >> 8), static_cast<char>(code)});
}

/// While it lives, SIGPIPE on this thread ends the process, whatever the test was started with.
class DeadlyBrokenPipe
{
public:
    DeadlyBrokenPipe(): m_handler(std::signal(SIGPIPE, SIG_DFL))
    {
        sigset_t brokenPipe;
        sigemptyset(&brokenPipe);
        sigaddset(&brokenPipe, SIGPIPE);
        pthread_sigmask(SIG_UNBLOCK, &brokenPipe, &m_mask);
    }
    ~DeadlyBrokenPipe()
    {
        pthread_sigmask(SIG_SETMASK, &m_mask, nullptr);
        std::signal(SIGPIPE, m_handler);
    }
    DeadlyBrokenPipe(const DeadlyBrokenPipe&) = delete;
    DeadlyBrokenPipe& operator=(const DeadlyBrokenPipe&) = delete;

private:
    void (*m_handler)(int);
    sigset_t m_mask;
};

class ConnectionManagerTest: public ServedConnections
{
protected:
    void echo()
    {
        onData = [](const Data& payload) { payload.webSocketProxy.write(payload.data); };
    }
};

// Messages

TEST_F(ConnectionManagerTest, EchoesMessages)
{
    echo();
    WebsocketPeer peer = connect();
    for (const std::size_t size: {0u, 1u, 125u, 126u, 4086u, 4096u, 65535u, 65536u, 1024u * 1024u})
    {
        const std::string text(size, 'x');
        peer.sendText(text);
        EXPECT_EQ(peer.receiveText(), text);
    }
}

TEST_F(ConnectionManagerTest, GivesTheMessagesOfAConnectionInOrder)
{
    WebsocketPeer peer = connect();
    std::string burst;
    Texts expected;
    for (int i = 0; i < 5000; ++i)
    {
        expected.push_back(std::to_string(i));
        burst += WebsocketPeer::frame(0x1, expected.back());
    }
    peer.send(burst);
    ASSERT_TRUE(waitForMessages(5000));
    EXPECT_EQ(messages(), expected);
}

TEST_F(ConnectionManagerTest, TakesTheConnectionsInTurn)
{
    onData = [&](const Data& payload)
    {
        if (payload.data == "first")
            leave.wait();
    };
    WebsocketPeer busy = connect();
    WebsocketPeer quiet = connect();
    busy.sendText("first");
    ASSERT_TRUE(waitForMessages(1));
    std::string burst;
    for (int i = 0; i < 100; ++i)
        burst += WebsocketPeer::frame(0x1, "busy");
    busy.send(burst);
    quiet.sendText("quiet");
    waitForLoop(quiet);
    leave.open();
    ASSERT_TRUE(waitForMessages(102));
    EXPECT_EQ(messages()[1], "quiet");
}

TEST_F(ConnectionManagerTest, ReadsWhatFollowedTheUpgradeRequest)
{
    echo();
    WebsocketPeer peer = connect(WebsocketPeer::frame(0x1, "early") + WebsocketPeer::frame(0x1, "bird"));
    EXPECT_EQ(peer.receiveText(), "early");
    EXPECT_EQ(peer.receiveText(), "bird");
    peer.sendText("later");
    EXPECT_EQ(peer.receiveText(), "later");
}

TEST_F(ConnectionManagerTest, ReadsAFrameThatBeganTogetherWithTheUpgradeRequest)
{
    echo();
    const std::string frame = WebsocketPeer::frame(0x1, "in two parts");
    WebsocketPeer peer = connect(frame.substr(0, 9));
    peer.send(frame.substr(9));
    EXPECT_EQ(peer.receiveText(), "in two parts");
}

TEST_F(ConnectionManagerTest, ReadsALargeMessageThatCameTogetherWithTheUpgradeRequest)
{
    echo();
    const std::string large(300000, 'x');
    auto [peer, webSocket] = listener.connect(WebsocketPeer::frame(0x1, large));
    manager->addConnection(webSocket);
    EXPECT_EQ(peer.receiveText(), large);
}

TEST_F(ConnectionManagerTest, APeerThatIsBusyFromTheStartDelaysNobody)
{
    Gate stop;
    std::atomic<int> rounds{0};
    auto [busy, webSocket] = listener.connect();
    std::thread chatter(
        [&, peer = busy]() mutable
        {
            for (; !stop.isOpen(); ++rounds)
                waitForLoop(peer);
        });
    manager->addConnection(webSocket);
    WebsocketPeer other = connect();
    waitForLoop(other);
    const int roundsUntilServed = rounds;
    stop.open();
    chatter.join();
    EXPECT_LT(roundsUntilServed, 2000);
}

TEST_F(ConnectionManagerTest, ReadsByteByByte)
{
    echo();
    WebsocketPeer peer = connect();
    for (const char byte: WebsocketPeer::frame(0x1, "slow but sure"))
        peer.send(std::string(1, byte));
    EXPECT_EQ(peer.receiveText(), "slow but sure");
}

TEST_F(ConnectionManagerTest, TellsTheConnectionAndTheFlags)
{
    WebsocketPeer peer = connect();
    const Proxy expected = proxy();
    onData = [&](const Data& payload)
    {
        EXPECT_TRUE(payload.webSocketProxy == expected);
        EXPECT_EQ(payload.webSocketProxy.manager, manager.get());
        EXPECT_EQ(payload.flags, Poco::Net::WebSocket::FRAME_TEXT);
        EXPECT_EQ(payload.webSocketProxy.peerAddress(), peer.socket().address());
        EXPECT_EQ(payload.webSocketProxy.address(), peer.socket().peerAddress());
        leave.open();
    };
    peer.sendText("x");
    leave.wait();
}

TEST_F(ConnectionManagerTest, AnswersPings)
{
    WebsocketPeer peer = connect();
    for (const std::string& payload: {std::string(), std::string("are you there"), std::string(125, '\xFF')})
    {
        peer.send(WebsocketPeer::frame(0x9, payload));
        const auto answer = peer.receiveFrame();
        EXPECT_EQ(answer.opcode, 0xA);
        EXPECT_EQ(answer.payload, payload);
    }
}

TEST_F(ConnectionManagerTest, AnswersEveryPingOfAPeerThatReads)
{
    WebsocketPeer peer = connect();
    std::string pings;
    for (int i = 0; i < 10; ++i)
        pings += WebsocketPeer::frame(0x9, std::to_string(i));
    peer.send(pings);
    for (int i = 0; i < 10; ++i)
        EXPECT_EQ(peer.receiveFrame().payload, std::to_string(i));
}

// Closing

TEST_F(ConnectionManagerTest, EchoesTheCloseCodeAndClosesTheSocket)
{
    for (const int code: {1000, 1001, 3000, 4999})
    {
        WebsocketPeer peer = connect();
        peer.send(closeFrame(code));
        EXPECT_EQ(peer.closeCode(), code);
        EXPECT_TRUE(peer.ended());
    }
    ASSERT_TRUE(waitForCloses(4));
    EXPECT_EQ(closes().front(), "the client closed it with code 1000");
    EXPECT_TRUE(eventually([&] { return manager->connectionCount() == 0; }));
}

TEST_F(ConnectionManagerTest, EchoesACloseWithoutACode)
{
    WebsocketPeer peer = connect();
    peer.send(WebsocketPeer::frame(0x8, ""));
    const auto answer = peer.receiveFrame();
    EXPECT_EQ(answer.opcode, 0x8);
    EXPECT_EQ(answer.payload, "");
    EXPECT_TRUE(peer.ended());
}

TEST_F(ConnectionManagerTest, HandlesAndAnswersWhatCameBeforeAClose)
{
    echo();
    WebsocketPeer peer = connect();
    peer.send(WebsocketPeer::frame(0x1, "one") + WebsocketPeer::frame(0x1, "two") + closeFrame(1000) +
              WebsocketPeer::frame(0x9, "") + WebsocketPeer::frame(0x1, "three"));
    EXPECT_EQ(peer.receiveText(), "one");
    EXPECT_EQ(peer.receiveText(), "two");
    EXPECT_EQ(peer.receiveFrame().opcode, 0x8);
    EXPECT_TRUE(peer.ended());
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(messages(), (Texts{"one", "two"}));
}

struct Violation
{
    std::string name;
    std::string bytes;
    int code;
};

const Violation VIOLATIONS[] = {
    {"Unmasked", WebsocketPeer::frame(0x1, "x", true, false), 1002},
    {"ReservedOpcode", WebsocketPeer::frame(0x5, "x"), 1002},
    {"Binary", WebsocketPeer::frame(0x2, "x"), 1003},
    {"BadText", WebsocketPeer::frame(0x1, "\xFF"), 1007},
    {"TooLarge", WebsocketPeer::frame(0x1, std::string(1024 * 1024 + 1, 'x')), 1009},
};

class ViolationTest: public ConnectionManagerTest, public testing::WithParamInterface<Violation>
{
};

TEST_P(ViolationTest, ClosesWithItsCodeAfterWhatCameBefore)
{
    echo();
    WebsocketPeer peer = connect();
    peer.send(WebsocketPeer::frame(0x1, "fine") + GetParam().bytes + WebsocketPeer::frame(0x1, "never"));
    EXPECT_EQ(peer.receiveText(), "fine");
    const auto close = peer.receiveFrame();
    EXPECT_EQ(close.opcode, 0x8);
    EXPECT_EQ(static_cast<unsigned char>(close.payload[0]) << 8 | static_cast<unsigned char>(close.payload[1]),
              GetParam().code);
    EXPECT_GT(close.payload.size(), 2u) << "the words say why";
    EXPECT_TRUE(peer.ended());
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(messages(), Texts{"fine"});
}

INSTANTIATE_TEST_SUITE_P(All, ViolationTest, testing::ValuesIn(VIOLATIONS),
                         [](const auto& parameter) { return parameter.param.name; });

TEST_F(ConnectionManagerTest, TheCloseFrameArrivesThoughThePeerGoesOnSending)
{
    const std::string tooLarge = WebsocketPeer::frame(0x1, std::string(3 * 1024 * 1024, 'x'));
    for (int round = 0; round < 20; ++round)
    {
        WebsocketPeer peer = connect();
        peer.send(tooLarge);
        EXPECT_EQ(peer.closeCode(), 1009);
        EXPECT_TRUE(endsOrderly(peer));
    }
}

TEST_F(ConnectionManagerTest, ShutdownClosesWithTheHandshake)
{
    WebsocketPeer peer = connect();
    proxy().shutdown();
    EXPECT_TRUE(proxy().hasEnded());
    EXPECT_THROW(proxy().write("too late"), Poco::Net::WebSocketException);
    EXPECT_EQ(peer.closeCode(), 1000);
    peer.send(WebsocketPeer::frame(0x1, "crossing") + closeFrame(1000));
    EXPECT_TRUE(peer.ended());
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(messages(), Texts{});
}

TEST_F(ConnectionManagerTest, ShutdownStillSendsWhatWaits)
{
    WebsocketPeer peer = connectSlow();
    const std::string large(3 * 1024 * 1024, 'x');
    proxy().write(large);
    proxy().write("last");
    proxy().shutdown();
    EXPECT_EQ(peer.receiveText(), large);
    EXPECT_EQ(peer.receiveText(), "last");
    EXPECT_EQ(peer.closeCode(), 1000);
}

TEST_F(ConnectionManagerTest, AnExceptionOfAHandlerIsLoggedAndClosesThatConnectionOnly)
{
    const Kesa::Test::CapturedLog log(Poco::Message::PRIO_ERROR);
    onData = [](const Data& payload)
    {
        if (payload.data == "std")
            throw std::runtime_error("broken handler");
        if (payload.data == "poco")
            throw Poco::DataException("broken data");
        if (payload.data == "other")
            throw 42;
        payload.webSocketProxy.write(payload.data);
    };
    WebsocketPeer fine = connect();
    for (const char* kind: {"std", "poco", "other"})
    {
        WebsocketPeer peer = connect();
        peer.send(WebsocketPeer::frame(0x1, kind) + WebsocketPeer::frame(0x1, "after"));
        EXPECT_EQ(peer.closeCode(), 1011);
        fine.sendText("still here");
        EXPECT_EQ(fine.receiveText(), "still here");
    }
    ASSERT_TRUE(waitForCloses(3));
    EXPECT_TRUE(log.containsPart(Poco::Message::PRIO_ERROR, "broken handler"));
    EXPECT_TRUE(log.containsPart(Poco::Message::PRIO_ERROR, "broken data"));
    EXPECT_EQ(log.count(Poco::Message::PRIO_ERROR), 3u);
    for (const std::string& text: messages())
        EXPECT_NE(text, "after");
}

TEST_F(ConnectionManagerTest, AnExceptionOfACloseHandlerIsLogged)
{
    const Kesa::Test::CapturedLog log(Poco::Message::PRIO_DEBUG);
    std::atomic<int> calls{0};
    onClosed = [&](const Event&)
    {
        if (++calls == 1)
            throw std::runtime_error("broken close handler");
    };
    for (int i = 0; i < 2; ++i)
    {
        WebsocketPeer peer = connect();
        peer.send(closeFrame(1000));
        EXPECT_EQ(peer.closeCode(), 1000);
    }
    EXPECT_TRUE(waitForCloses(1));
    EXPECT_TRUE(eventually([&] { return log.containsPart(Poco::Message::PRIO_DEBUG, "broken close handler"); }));
}

TEST_F(ConnectionManagerTest, ConnectionClosedFiresOnceAndAfterTheLastHandler)
{
    std::atomic<bool> isInside{false};
    onData = [&](const Data&)
    {
        isInside = true;
        entered.open();
        leave.wait();
        isInside = false;
    };
    onClosed = [&](const Event& payload)
    {
        EXPECT_FALSE(isInside);
        EXPECT_TRUE(payload.webSocketProxy.hasEnded());
    };
    WebsocketPeer peer = connect();
    const Proxy ended = proxy();
    peer.sendText("x");
    entered.wait();
    reset(peer);
    ASSERT_TRUE(eventually([&] { return ended.hasEnded(); }));
    WebsocketPeer other = connect();
    waitForLoop(other);
    EXPECT_EQ(closes(), Texts{});
    leave.open();
    ASSERT_TRUE(waitForCloses(1));
    waitForLoop(other);
    EXPECT_EQ(closes().size(), 1u);
    manager->stop();
}

TEST_F(ConnectionManagerTest, AfterAResetTheUnhandledMessagesAreDropped)
{
    onData = [&](const Data&)
    {
        entered.open();
        leave.wait();
    };
    WebsocketPeer peer = connect();
    const Proxy ended = proxy();
    peer.sendText("first");
    entered.wait();
    peer.sendText("second");
    WebsocketPeer other = connect();
    waitForLoop(other);
    reset(peer);
    ASSERT_TRUE(eventually([&] { return ended.hasEnded(); }));
    leave.open();
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(messages(), Texts{"first"});
}

TEST_F(ConnectionManagerTest, AHalfClosedPeerStillGetsItsAnswers)
{
    echo();
    WebsocketPeer peer = connect();
    peer.send(WebsocketPeer::frame(0x1, "one") + WebsocketPeer::frame(0x1, "two"));
    peer.socket().shutdownSend();
    EXPECT_EQ(peer.receiveText(), "one");
    EXPECT_EQ(peer.receiveText(), "two");
    EXPECT_TRUE(peer.ended());
    ASSERT_TRUE(waitForCloses(1));
}

TEST_F(ConnectionManagerTest, AnEndInTheMiddleOfAFrameDropsWhatIsUnhandled)
{
    onData = [&](const Data&)
    {
        entered.open();
        leave.wait();
    };
    WebsocketPeer peer = connect();
    const Proxy ended = proxy();
    peer.sendText("first");
    entered.wait();
    const std::string half = WebsocketPeer::frame(0x1, "half a frame");
    peer.send(WebsocketPeer::frame(0x1, "second") + half.substr(0, half.size() / 2));
    peer.socket().close();
    ASSERT_TRUE(eventually([&] { return ended.hasEnded(); }));
    leave.open();
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_EQ(messages(), Texts{"first"});
}

TEST_F(ConnectionManagerTest, APeerThatIsAlreadyGoneShowsAsAClose)
{
    auto [peer, webSocket] = listener.connect();
    reset(peer);
    EXPECT_NO_THROW(manager->addConnection(webSocket));
    ASSERT_TRUE(waitForCloses(1));
    auto [other, secondSocket] = listener.connect();
    other.socket().close();
    EXPECT_NO_THROW(manager->addConnection(secondSocket));
    ASSERT_TRUE(waitForCloses(2));
    EXPECT_TRUE(eventually([&] { return manager->connectionCount() == 0; }));
}

TEST_F(ConnectionManagerTest, ASocketThatWasClosedHereIsIgnored)
{
    auto [peer, webSocket] = listener.connect();
    webSocket->close();
    EXPECT_NO_THROW(manager->addConnection(webSocket));
    EXPECT_EQ(manager->connectionCount(), 0u);
}

TEST_F(ConnectionManagerTest, RefusesNullAndASocketThatIsServed)
{
    EXPECT_THROW(manager->addConnection(nullptr), Poco::NullPointerException);
    WebsocketPeer peer = connect();
    EXPECT_THROW(manager->addConnection(lastSocket), Poco::ExistsException);
    echo();
    peer.sendText("still served");
    EXPECT_EQ(peer.receiveText(), "still served");
}

TEST_F(ConnectionManagerTest, RefusesTheClientsEnd)
{
    std::thread accepting([&] { lastSocket = listener.accept(); });
    Poco::Net::HTTPClientSession session("127.0.0.1", listener.port());
    Poco::Net::HTTPRequest request(Poco::Net::HTTPRequest::HTTP_GET, "/", "HTTP/1.1");
    Poco::Net::HTTPResponse response;
    const Socket client = new Poco::Net::WebSocket(session, request, response);
    accepting.join();
    EXPECT_THROW(manager->addConnection(client), Poco::InvalidArgumentException);
}

// Dangers

TEST_F(ConnectionManagerTest, AHandlerThatBlocksDelaysNeitherPongsNorSending)
{
    onData = [&](const Data&)
    {
        entered.open();
        leave.wait();
    };
    WebsocketPeer blocking = connect();
    WebsocketPeer other = connect();
    const Proxy toOther = proxy();
    blocking.sendText("x");
    entered.wait();
    const std::string large(3 * 1024 * 1024, 'x');
    toOther.write(large);
    EXPECT_EQ(other.receiveText(), large);
    waitForLoop(other);
    waitForLoop(blocking);
    leave.open();
}

TEST_F(ConnectionManagerTest, UnreadMessagesAreBoundedWhileAHandlerBlocks)
{
    onData = [&](const Data&) { leave.wait(); };
    WebsocketPeer peer = connect();
    const int small = 64 * 1024;
    const int descriptor = lastSocket->impl()->sockfd();
    ::setsockopt(descriptor, SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    const std::string message = WebsocketPeer::frame(0x1, std::string(10000, 'x'));
    const std::size_t most = 64 * 1024 * 1024;
    EXPECT_LT(flood(peer, message, most), most / 2);
    leave.open();
    EXPECT_TRUE(waitForMessages(20));
}

TEST_F(ConnectionManagerTest, TheMessagesOfAPeerThatDoesNotReadAreNotRead)
{
    WebsocketPeer peer = connectSlow();
    waitForLoop(peer);
    proxy().write(std::string(3 * 1024 * 1024, 'x'));
    WebsocketPeer other = connect();
    peer.sendText("not yet");
    waitForLoop(other);
    EXPECT_EQ(messages(), Texts{});
    peer.receiveText();
    ASSERT_TRUE(waitForMessages(1));
}

TEST_F(ConnectionManagerTest, APeerThatDoesNotReadGetsTheNewestState)
{
    WebsocketPeer peer = connectSlow();
    const Proxy slow = proxy();
    const std::string padding(20000, ' ');
    std::string last;
    for (int i = 0; i < 1000; ++i)
        for (Poco::UInt64 number = 1; number <= 2; ++number)
        {
            last = std::to_string(number) + ":" + std::to_string(i) + padding;
            ASSERT_NO_THROW(slow.write(std::make_shared<const std::string>(last), number));
        }
    slow.write("acknowledged");
    int previous[3] = {-1, -1, -1};
    std::size_t count = 0;
    for (std::string text = peer.receiveText(); text != "acknowledged"; text = peer.receiveText(), ++count)
    {
        const int state = std::stoi(text.substr(2));
        EXPECT_GT(state, previous[text[0] - '0']);
        previous[text[0] - '0'] = state;
    }
    EXPECT_EQ(previous[1], 999);
    EXPECT_EQ(previous[2], 999);
    EXPECT_LT(count, 1000u) << "most states were replaced";
}

TEST_F(ConnectionManagerTest, AnOverflowRaisesAndClosesOnTheCloseThread)
{
    std::mutex subscription; // as a subscription's own, which the writer holds and the close handler wants
    std::thread::id closer;
    onClosed = [&](const Event&)
    {
        const std::lock_guard lock(subscription);
        closer = std::this_thread::get_id();
    };
    WebsocketPeer peer = connectSlow();
    const Proxy slow = proxy();
    const std::string text(100000, 'x');
    std::size_t written = 0;
    {
        const std::lock_guard lock(subscription);
        try
        {
            for (; written < 1000; ++written)
                slow.write(text);
            FAIL() << "nothing was refused";
        }
        catch (const Poco::Net::WebSocketException& error)
        {
            EXPECT_NE(error.displayText().find("does not read"), std::string::npos) << error.displayText();
        }
        EXPECT_TRUE(slow.hasEnded());
        EXPECT_THROW(slow.write("x"), Poco::Net::WebSocketException);
        EXPECT_EQ(closes(), Texts{});
    }
    EXPECT_GE(written * text.size(), Kesa::Net::MAX_WAITING - 2 * text.size());
    ASSERT_TRUE(waitForCloses(1));
    EXPECT_NE(closer, std::this_thread::get_id());
    EXPECT_TRUE(peer.ended());
}

TEST_F(ConnectionManagerTest, AMessageIntoAnEmptyQueueIsTakenWhateverItsSize)
{
    WebsocketPeer peer = connectSlow();
    const std::string huge(2 * Kesa::Net::MAX_WAITING, 'x');
    proxy().write(huge);
    EXPECT_EQ(peer.receiveText(), huge);
}

TEST_F(ConnectionManagerTest, APingFloodOfAPeerThatDoesNotReadLeavesOnePongWaiting)
{
    WebsocketPeer peer = connectSlow();
    std::string pings;
    std::size_t sent = 0;
    for (; sent < 20000; ++sent)
        pings += WebsocketPeer::frame(0x9, std::to_string(sent) + std::string(100, '.'));
    peer.send(pings);
    peer.sendText("behind them");
    ASSERT_TRUE(waitForMessages(1)) << "all pings are read, though no pong is taken";
    std::size_t received = 0;
    std::string newest;
    while (newest.compare(0, 6, "19999.") != 0)
    {
        const auto pong = peer.receiveFrame();
        EXPECT_EQ(pong.opcode, 0xA);
        newest = pong.payload;
        ++received;
    }
    EXPECT_LT(received, sent);
}

TEST_F(ConnectionManagerTest, NothingIsLostBetweenManyWritersAndAPeerThatReadsLate)
{
    constexpr int WRITERS = 3;
    constexpr int EACH = 1000;
    WebsocketPeer peer = connectSlow();
    waitForLoop(peer);
    const Proxy target = proxy();
    std::atomic<int> written{0};
    std::vector<std::thread> writers;
    for (int writer = 0; writer < WRITERS; ++writer)
        writers.emplace_back(
            [&, writer]
            {
                for (int i = 0; i < EACH; ++i, ++written)
                    target.write(std::to_string(writer) + std::to_string(i) + ":" + std::string(1000, 'x'));
            });
    EXPECT_TRUE(eventually([&] { return written >= WRITERS * EACH / 2; }));
    int next[WRITERS] = {};
    for (int i = 0; i < WRITERS * EACH; ++i)
    {
        const std::string text = peer.receiveText();
        const int writer = text[0] - '0';
        EXPECT_EQ(std::stoi(text.substr(1)), next[writer]++);
    }
    for (std::thread& writer: writers)
        writer.join();
}

TEST_F(ConnectionManagerTest, AResetInTheMiddleOfASendRaisesAndLeavesNoSignal)
{
    const DeadlyBrokenPipe deadly;
    for (int round = 0; round < 20; ++round)
    {
        WebsocketPeer peer = connectSlow();
        const Proxy target = proxy();
        target.write(std::string(2 * 1024 * 1024, 'x'));
        reset(peer);
        EXPECT_TRUE(eventually(
            [&]
            {
                try
                {
                    target.write(std::make_shared<const std::string>("x"), 1);
                    return false;
                }
                catch (const Poco::Net::WebSocketException&)
                {
                    return true;
                }
            }));
    }
    EXPECT_TRUE(waitForCloses(20));
}

TEST_F(ConnectionManagerTest, ABrokenPipeRaisesAndLeavesNoSignal)
{
    const DeadlyBrokenPipe deadly;
    for (const std::size_t size: {10u, 100000u})
    {
        WebsocketPeer peer = connect();
        lastSocket->impl()->shutdownSend();
        EXPECT_THROW(proxy().write(std::string(size, 'x')), Poco::Net::WebSocketException);
    }
    EXPECT_TRUE(waitForCloses(2));
}

TEST_F(ConnectionManagerTest, ABrokenPipeLeavesNoSignalOnTheIoThread)
{
    const DeadlyBrokenPipe deadly;
    manager = new Kesa::Net::WebsocketConnectionManager; // its threads can be reached by the signal
    manager->ConnectionClosed += closeDelegate();
    WebsocketPeer peer = connectSlow();
    proxy().write(std::string(3 * 1024 * 1024, 'x'));
    lastSocket->impl()->shutdownSend();
    EXPECT_TRUE(endsOrderly(peer));
    EXPECT_TRUE(waitForCloses(1));
}

TEST_F(ConnectionManagerTest, WritersNeverReachADescriptorThatIsReused)
{
    constexpr int ROUNDS = 200;
    std::atomic<bool> isDone{false};
    std::mutex mutex;
    std::vector<std::pair<Proxy, std::string>> targets; // the last few connections, most of them dead
    std::thread writer(
        [&]
        {
            while (!isDone)
            {
                std::vector<std::pair<Proxy, std::string>> copy;
                {
                    const std::lock_guard lock(mutex);
                    for (const auto& target: targets)
                        copy.emplace_back(target.first, target.second);
                }
                for (const auto& [target, tag]: copy)
                    try
                    {
                        target.write(tag);
                    }
                    catch (const Poco::Net::WebSocketException&)
                    {
                    }
            }
        });
    for (int round = 0; round < ROUNDS; ++round)
    {
        WebsocketPeer peer = connect();
        const std::string tag = "connection " + std::to_string(round);
        {
            const std::lock_guard lock(mutex);
            std::vector<std::pair<Proxy, std::string>> newest;
            for (std::size_t i = targets.size() < 8 ? 0 : targets.size() - 7; i < targets.size(); ++i)
                newest.emplace_back(targets[i].first, targets[i].second);
            newest.emplace_back(proxy(), tag);
            targets.swap(newest);
        }
        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(peer.receiveText(), tag);
        round % 2 ? reset(peer) : peer.socket().close();
    }
    isDone = true;
    writer.join();
    EXPECT_TRUE(waitForCloses(ROUNDS));
}

TEST_F(ConnectionManagerTest, NothingHoldsAConnectionThatHasEnded)
{
    for (const bool isOrderly: {true, false})
    {
        auto [peer, socket] = listener.connect();
        manager->addConnection(socket);
        peer.sendText("x");
        waitForLoop(peer);
        if (isOrderly)
            peer.send(closeFrame(1000));
        else
            reset(peer);
        peer.socket().close();
        EXPECT_TRUE(eventually([&, ours = &socket] { return ours->referenceCount() == 1; }));
    }
}

TEST_F(ConnectionManagerTest, ThousandConnectionsLeaveNothingBehind)
{
    echo();
    lastSocket = nullptr;
    const std::size_t descriptorsBefore = descriptors();
    const std::size_t threadsBefore = threads();
    constexpr std::size_t ROUNDS = 10, EACH = 100;
    for (std::size_t round = 0; round < ROUNDS; ++round)
    {
        std::vector<WebsocketPeer> peers;
        for (std::size_t i = 0; i < EACH; ++i)
            peers.push_back(connect());
        EXPECT_EQ(threads(), threadsBefore);
        for (std::size_t i = 0; i < EACH; ++i)
        {
            peers[i].sendText("x");
            if (i % 3 == 0)
            {
                EXPECT_EQ(peers[i].receiveText(), "x");
            }
            else if (i % 3 == 1)
                reset(peers[i]);
        }
    }
    lastSocket = nullptr;
    EXPECT_TRUE(waitForCloses(ROUNDS * EACH));
    EXPECT_TRUE(eventually([&] { return descriptors() == descriptorsBefore; }));
    EXPECT_EQ(threads(), threadsBefore);
    EXPECT_EQ(closes().size(), ROUNDS * EACH);
    EXPECT_EQ(manager->connectionCount(), 0u);
}

} // namespace
