// Every byte that a client can send gets a clear reply or a clean close, and nobody else suffers.

#include "Messages.h"
#include "Shop.h"

#include <CapturedLog.h>
#include <WebsocketPeer.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

using Kesa::Test::CapturedLog;
using Kesa::Test::parsed;
using Kesa::Test::Shop;
using Kesa::Test::WebsocketPeer;

namespace
{

std::string subscribe(const std::string& event)
{
    return Kesa::Test::message("subscribe", event);
}

/// A shop with a good client, who must notice nothing of what the bad ones do.
class BadInputTest: public ::testing::Test
{
protected:
    BadInputTest(): m_good(m_shop.host.port())
    {
        m_good.sendText(subscribe("/shop/orders/1"));
        EXPECT_EQ(parsed(m_good.receiveText())->getValue<std::string>("status"), "ok");
        EXPECT_EQ(parsed(m_good.receiveText())->getValue<std::string>("type"), "data");
    }

    void TearDown() override
    {
        expectTheGoodClientIsServed();
        for (const CapturedLog::Entry& entry: m_log.entries())
        {
            const bool isWriteToOneThatWent = entry.text.rfind("Failed to send websocketSubscriptionUpdate", 0) == 0;
            EXPECT_TRUE(isWriteToOneThatWent || entry.priority >= Poco::Message::PRIO_WARNING)
                << "what a client does is no error of ours: " << entry;
        }
    }

    void expectTheGoodClientIsServed()
    {
        m_shop.orders->set("1", ++m_amount);
        const auto notification = parsed(m_good.receiveText());
        EXPECT_EQ(notification->getObject("data")->getValue<int>("amount"), m_amount);
    }

    std::unique_ptr<WebsocketPeer> connect() { return std::make_unique<WebsocketPeer>(m_shop.host.port()); }

    CapturedLog m_log{Poco::Message::PRIO_WARNING};
    Shop m_shop;
    WebsocketPeer m_good;
    int m_amount = 100;
};

/// One row: bytes that break the framing or its bounds, and the code of the close that they get.
struct BadFrames
{
    const char* name;
    std::string bytes;
    int code;
};

class BadFramesTest: public BadInputTest, public ::testing::WithParamInterface<BadFrames>
{
};

TEST_P(BadFramesTest, SentWholeGetACleanClose)
{
    const auto peer = connect();
    peer->send(GetParam().bytes);
    EXPECT_EQ(peer->closeCode(), GetParam().code);
    EXPECT_TRUE(peer->ended());
}

TEST_P(BadFramesTest, SentByteByByteGetTheSameClose)
{
    const auto peer = connect();
    try
    {
        for (const char byte: GetParam().bytes.substr(0, 64))
            peer->send(std::string(1, byte));
        if (GetParam().bytes.size() > 64)
            peer->send(GetParam().bytes.substr(64));
    }
    catch (const Poco::Net::NetException&) // the other side has closed already, which it may
    {
    }
    EXPECT_EQ(peer->closeCode(), GetParam().code);
    EXPECT_TRUE(peer->ended());
}

std::vector<BadFrames> badFrames()
{
    const auto frame = WebsocketPeer::frame;
    const std::string deep = std::string("\xf4\x90\x80\x80"); // beyond the last code point
    return {
        {"InvalidUtf8", frame(0x1, "\xff\xfe", true, true), 1007},
        {"CodePointBeyondTheLast", frame(0x1, deep, true, true), 1007},
        {"SurrogateInUtf8", frame(0x1, "\xed\xa0\x80", true, true), 1007},
        {"TextThatEndsInsideACharacter", frame(0x1, "abc\xc3", true, true), 1007},
        {"Binary", frame(0x2, "{}", true, true), 1003},
        {"Unmasked", frame(0x1, "{}", true, false), 1002},
        {"ReservedOpcode", frame(0x3, "", true, true), 1002},
        {"ReservedControlOpcode", frame(0xb, "", true, true), 1002},
        {"ReservedBit", std::string("\xc1\x80\x00\x00\x00\x00", 6), 1002},
        {"ContinuationOfNothing", frame(0x0, "{}", true, true), 1002},
        {"NewMessageInsideAnother", frame(0x1, "{", false, true) + frame(0x1, "}", true, true), 1002},
        {"FragmentedPing", frame(0x9, "", false, true), 1002},
        {"LongPing", frame(0x9, std::string(126, 'x'), true, true), 1002},
        {"CloseWithOneByte", frame(0x8, "x", true, true), 1002},
        {"CloseWithABadCode", frame(0x8, std::string("\x03\xed", 2), true, true), 1002},
        {"CloseWithBadUtf8", frame(0x8, std::string("\x03\xe8\xff", 3), true, true), 1007},
        {"LengthOfSixtyFourBits", std::string("\x81\xff\xff\xff\xff\xff\xff\xff\xff\xff\x00\x00\x00\x00", 14), 1002},
        {"FrameOverTheBound", frame(0x1, std::string(1024 * 1024 + 1, 'x'), true, true), 1009},
        {"FragmentsOverTheBound",
         frame(0x1, std::string(600 * 1024, 'x'), false, true) + frame(0x0, std::string(600 * 1024, 'x'), true, true),
         1009},
    };
}

INSTANTIATE_TEST_SUITE_P(, BadFramesTest, ::testing::ValuesIn(badFrames()),
                         [](const auto& row) { return std::string(row.param.name); });

/// One row: a text message that is no usable request.
struct BadMessage
{
    const char* name;
    std::string text;
    int code;
};

class BadMessageTest: public BadInputTest, public ::testing::WithParamInterface<BadMessage>
{
};

TEST_P(BadMessageTest, GetsAnErrorDocumentAndTheConnectionLivesOn)
{
    const auto peer = connect();
    peer->sendText(GetParam().text);
    const auto reply = parsed(peer->receiveText());
    EXPECT_EQ(reply->getValue<std::string>("type"), "error");
    EXPECT_EQ(reply->getValue<std::string>("status"), "error");
    EXPECT_EQ(reply->getValue<int>("code"), GetParam().code);
    EXPECT_FALSE(reply->getValue<std::string>("message").empty());

    peer->sendText(subscribe("/shop/orders"));
    EXPECT_EQ(parsed(peer->receiveText())->getValue<std::string>("status"), "ok");
    EXPECT_TRUE(parsed(peer->receiveText())->isArray("data"));
}

std::string request(const std::string& members)
{
    return R"({"type":"subscribe","event":"/shop/orders",)" + members + "}";
}

std::vector<BadMessage> badMessages()
{
    const std::string nest = std::string(100'000, '[');
    return {
        {"Empty", "", 400},
        {"NoJson", "hello", 400},
        {"HalfAnObject", R"({"type":"subscribe")", 400},
        {"DeepArray", nest, 400},
        {"DeepArrayClosed", nest + std::string(100'000, ']'), 400},
        {"DeepObject", request("\"x\":" + nest + std::string(100'000, ']')), 400},
        {"Array", "[]", 400},
        {"Number", "5", 400},
        {"Null", "null", 400},
        {"NoMembers", "{}", 400},
        {"NoType", R"({"event":"/shop"})", 400},
        {"NoEvent", R"({"type":"subscribe"})", 400},
        {"EmptyEvent", R"({"type":"subscribe","event":""})", 400},
        {"TypeIsANumber", R"({"type":1,"event":"/shop"})", 400},
        {"TypeIsNull", R"({"type":null,"event":"/shop"})", 400},
        {"TypeIsUnknown", R"({"type":"destroy","event":"/shop"})", 400},
        {"EventIsAnObject", R"({"type":"subscribe","event":{}})", 400},
        {"EventIsTrue", R"({"type":"subscribe","event":true})", 400},
        {"IntervalIsZero", request(R"("interval":0)"), 400},
        {"IntervalIsNegative", request(R"("interval":-1)"), 400},
        {"IntervalIsAFraction", request(R"("interval":1.5)"), 400},
        {"IntervalIsText", request(R"("interval":"100")"), 400},
        {"IntervalIsTooLarge", request(R"("interval":2147483648)"), 400},
        {"IntervalIsBeyond64Bits", request(R"("interval":18446744073709551616)"), 400},
        {"IntervalIsHuge", request(R"("interval":1e400)"), 400},
        {"UpdateLimitIsNegative", request(R"("updateLimit":-1)"), 400},
        {"UpdateLimitIsTooLarge", request(R"("updateLimit":2147483648)"), 400},
        {"UpdateLimitIsAList", request(R"("updateLimit":[100])"), 400},
        {"UrlWithANul", subscribe("/shop/%00"), 404},
        {"UrlThatClimbs", subscribe("/shop/../../etc/passwd"), 404},
        {"UrlOfFourSegments", subscribe("/shop/orders/1/more"), 404},
        {"UrlWithAQueryBeyondTheBound", subscribe("/shop/orders?name=" + std::string(64 * 1024, 'q')), 400},
        {"UrlWithALongQuery", subscribe("/nowhere?" + std::string(8000, 'q')), 404},
        {"TooMuchToKeep", request(R"("authorization":")" + std::string(64 * 1024, 'a') + '"'), 400},
        {"UrlThatIsUnknown", subscribe("/nowhere"), 404},
        {"UnsubscribeOfNothing", R"({"type":"unsubscribe","event":"/shop"})", 404},
        {"Data", R"({"type":"data","event":"/shop","data":{}})", 400},
    };
}

INSTANTIATE_TEST_SUITE_P(, BadMessageTest, ::testing::ValuesIn(badMessages()),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_F(BadInputTest, ALongQueryOnAGoodUrlIsServed)
{
    const auto peer = connect();
    peer->sendText(subscribe("/shop/orders?name=" + std::string(8000, 'q')));
    EXPECT_EQ(parsed(peer->receiveText())->getValue<std::string>("status"), "ok");
}

TEST_F(BadInputTest, ASecondUpgradeOnAnUpgradedConnectionIsAFramingError)
{
    const auto peer = connect();
    peer->send(WebsocketPeer::upgradeRequest());
    EXPECT_EQ(peer->closeCode(), 1002);
    EXPECT_TRUE(peer->ended());
}

TEST_F(BadInputTest, ARequestHeadOfOneMebibyteIsAnsweredAndClosed)
{
    auto peer = WebsocketPeer::raw(m_shop.host.port());
    try
    {
        peer.send("GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Long: ");
        for (int i = 0; i < 64; ++i)
            peer.send(std::string(16 * 1024, 'x'));
    }
    catch (const Poco::Net::NetException&) // the other side need not read on once it has refused
    {
    }
    EXPECT_EQ(peer.receiveHead().substr(0, 12), "HTTP/1.1 431");
    EXPECT_TRUE(peer.ended());
}

TEST_F(BadInputTest, AnUpgradeThatEndsInTheMiddleOfAFrameLeavesNothing)
{
    for (int i = 0; i < 20; ++i)
    {
        const auto peer = connect();
        peer->sendText(subscribe("/shop/orders"));
        peer->send(WebsocketPeer::frame(0x1, std::string(1000, 'x')).substr(0, static_cast<std::size_t>(i * 7)));
        if (i % 2 == 0)
            peer->socket().setLinger(true, 0); // a reset instead of an orderly end
    }
}

} // namespace
