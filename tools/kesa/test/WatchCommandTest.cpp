#include "WatchCommand.h"

#include "LineOutput.h"
#include "TestServer.h"

#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

namespace
{

using namespace Kesa::Client;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;

/// Runs the command against scripted services; its output goes to a file.
class WatchCommandTest: public testing::Test
{
protected:
    WatchCommandTest()
    {
        std::signal(SIGPIPE, SIG_IGN);
        EXPECT_EQ(pipe(m_stop), 0);
        options.timeout = 10; // a bound for what should be there at once
    }
    ~WatchCommandTest() override
    {
        std::fclose(m_file);
        ::close(m_stop[0]);
        ::close(m_stop[1]);
    }

    int watch(const std::vector<std::string>& urls)
    {
        LineOutput output(fileno(m_file));
        return watchInto(output, urls);
    }

    int watchInto(LineOutput& output, const std::vector<std::string>& urls)
    {
        return WatchCommand({urls.begin(), urls.end()}, options, output, m_errors).run(m_stop[0]);
    }

    void stop() { EXPECT_EQ(::write(m_stop[1], "x", 1), 1); }

    std::vector<std::string> lines()
    {
        std::rewind(m_file);
        std::vector<std::string> result;
        char buffer[4096];
        while (std::fgets(buffer, sizeof buffer, m_file))
            result.push_back(std::string(buffer, std::string(buffer).size() - 1));
        return result;
    }

    std::string errors() const { return m_errors.str(); }

    WatchCommand::Options options;

private:
    std::FILE* m_file = std::tmpfile();
    std::ostringstream m_errors;
    int m_stop[2] = {-1, -1};
};

std::string acknowledgement(const std::string& event)
{
    return R"({"type":"subscribe","event":")" + event + R"(","status":"ok"})";
}

std::string notification(const std::string& event, const std::string& data)
{
    return R"({"type":"data","event":")" + event + R"(","data":)" + data + "}";
}

std::string error(const std::string& event, int code, const std::string& message)
{
    return R"({"type":"error","status":"error","event":")" + event + R"(","code":)" + std::to_string(code) +
           R"(,"message":")" + message + R"("})";
}

/// Accepts one subscription and sends `messages`.
TestServer::Script sends(const std::vector<std::string>& messages)
{
    return [messages](Peer& peer)
    {
        peer.upgrade();
        peer.readFrame();
        for (const std::string& message: messages)
            peer.sendText(message);
        peer.awaitClose();
    };
}

TEST_F(WatchCommandTest, SubscribesWithWhatWasAsked)
{
    Peer::Frame request{};
    TestServer server(
        [&](Peer& peer)
        {
            peer.upgrade();
            request = peer.readFrame();
            peer.sendText(notification("/a?x=1#f", "{}"));
            peer.awaitClose();
        });
    options.count = 1;
    options.interval = 250;
    options.updateLimit = 0;
    options.autosubscribe = true;
    EXPECT_EQ(watch({server.url("/a?x=1#f")}), 0);
    const auto message = Poco::JSON::Parser().parse(request.payload).extract<Poco::JSON::Object::Ptr>();
    EXPECT_EQ(message->getValue<std::string>("type"), "subscribe");
    EXPECT_EQ(message->getValue<std::string>("event"), "/a?x=1#f");
    EXPECT_EQ(message->getValue<long>("interval"), 250);
    EXPECT_EQ(message->getValue<long>("updateLimit"), 0);
    EXPECT_TRUE(message->getValue<bool>("autosubscribe"));
}

TEST_F(WatchCommandTest, SubscribesWithoutWhatWasNotAsked)
{
    std::string request;
    TestServer server(
        [&](Peer& peer)
        {
            peer.upgrade();
            request = peer.readFrame().payload;
            peer.sendText(notification("/a", "{}"));
            peer.awaitClose();
        });
    options.count = 1;
    watch({server.url("/a")});
    EXPECT_EQ(request, R"({"event":"/a","type":"subscribe"})");
}

TEST_F(WatchCommandTest, PrintsNotificationsAsTheyComeAndEndsAfterTheCount)
{
    TestServer server(sends({acknowledgement("/a"), notification("/a", R"({"x":1})"), notification("/a", R"({"x":2})"),
                             notification("/a", R"({"x":3})")}));
    options.count = 2;
    EXPECT_EQ(watch({server.url("/a")}), 0);
    EXPECT_THAT(lines(), ElementsAre(EndsWith("  /a  x=1"), EndsWith("  /a  x=2")));
    EXPECT_EQ(errors(), "");
}

TEST_F(WatchCommandTest, PrintsEveryMessageAsJsonOnOneLine)
{
    TestServer server(sends({acknowledgement("/a"), "{\n \"type\": \"data\",\r\n \"event\": \"/a\", \"data\": {}}"}));
    options.count = 1;
    options.json = true;
    EXPECT_EQ(watch({server.url("/a")}), 0);
    EXPECT_THAT(lines(),
                ElementsAre(acknowledgement("/a"), "{  \"type\": \"data\",   \"event\": \"/a\", \"data\": {}}"));
}

TEST_F(WatchCommandTest, OpensOneConnectionForEachServerAndOneSubscriptionForEachUrl)
{
    std::vector<std::string> first;
    TestServer server(
        [&](Peer& peer)
        {
            peer.upgrade();
            first.push_back(peer.readFrame().payload);
            first.push_back(peer.readFrame().payload);
            peer.sendText(notification("/a", "{}"));
            peer.awaitClose();
        });
    TestServer other(sends({notification("/c", "{}")}));
    options.count = 2;
    EXPECT_EQ(watch({server.url("/a"), other.url("/c"), "http://" + server.url("/b"), server.url("/a")}), 0);
    EXPECT_THAT(first, ElementsAre(R"({"event":"/a","type":"subscribe"})", R"({"event":"/b","type":"subscribe"})"));
    EXPECT_THAT(lines(), testing::UnorderedElementsAre(HasSubstr("/a"), HasSubstr("/c")));
}

TEST_F(WatchCommandTest, ARefusalIsToldAndEndsWithStatusOne)
{
    TestServer server(sends({error("/nope", 404, "There is no resource /nope.")}));
    EXPECT_EQ(watch({server.url("/nope")}), 1);
    EXPECT_EQ(errors(), "kesa: http://" + server.url("/nope") + ": 404 There is no resource /nope.\n");
    EXPECT_TRUE(lines().empty());
}

TEST_F(WatchCommandTest, ARefusalLeavesTheOtherUrlsFollowed)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.sendText(error("/nope", 404, "unknown"));
            peer.sendText(acknowledgement("/a"));
            peer.sendText(notification("/a", "{}"));
            peer.awaitClose();
        });
    options.count = 1;
    EXPECT_EQ(watch({server.url("/nope"), server.url("/a")}), 1);
    EXPECT_EQ(lines().size(), 1u);
    EXPECT_THAT(errors(), HasSubstr("404 unknown"));
}

TEST_F(WatchCommandTest, AnErrorAfterTheAcceptanceIsToldAndTheUrlStaysFollowed)
{
    TestServer server(sends({acknowledgement("/a"), error("/a", 410, "gone"), notification("/a", "{}")}));
    options.count = 1;
    EXPECT_EQ(watch({server.url("/a")}), 1);
    EXPECT_EQ(lines().size(), 1u);
    EXPECT_THAT(errors(), HasSubstr("/a: 410 gone"));
}

TEST_F(WatchCommandTest, TellsCodeAndReasonWhenTheServiceCloses)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.send(Peer::closeFrame(1001, "shutting down"));
            peer.awaitClose();
        });
    EXPECT_EQ(watch({server.url("/a")}), 1);
    EXPECT_EQ(errors(),
              "kesa: " + server.url("") + ": the service closed the connection with code 1001 (shutting down)\n");
}

TEST_F(WatchCommandTest, TellsWhenTheServiceGoesAway)
{
    TestServer server(
        [](Peer& peer)
        {
            peer.upgrade();
            peer.readFrame();
        });
    EXPECT_EQ(watch({server.url("/a")}), 1);
    EXPECT_EQ(errors(), "kesa: " + server.url("") + ": the connection broke off without a close frame\n");
}

TEST_F(WatchCommandTest, TellsWhenNobodyListens)
{
    std::string url;
    {
        Poco::Net::ServerSocket closed(Poco::Net::SocketAddress("127.0.0.1", 0));
        url = closed.address().toString();
    }
    EXPECT_EQ(watch({url + "/a"}), 1);
    EXPECT_THAT(errors(), HasSubstr("kesa: cannot connect to " + url + ": Connection refused"));
}

TEST_F(WatchCommandTest, EndsWithStatusOneWhenNothingCameInTime)
{
    TestServer server(sends({acknowledgement("/a")}));
    options.timeout = 0.05;
    EXPECT_EQ(watch({server.url("/a")}), 1);
    EXPECT_EQ(errors(), "kesa: nothing was received within 0.05 seconds\n");
}

TEST_F(WatchCommandTest, EndsWithStatusZeroWhenSomethingCameInTime)
{
    TestServer server(sends({notification("/a", "{}")}));
    options.timeout = 1;
    EXPECT_EQ(watch({server.url("/a")}), 0);
    EXPECT_EQ(errors(), "");
}

TEST_F(WatchCommandTest, IsStoppedInOrder)
{
    Peer::Frame close{};
    {
        TestServer server(
            [&](Peer& peer)
            {
                peer.upgrade();
                peer.readFrame();
                stop();
                close = peer.readFrame();
                peer.send(Peer::closeFrame(1000));
            });
        EXPECT_EQ(watch({server.url("/a")}), 0);
    }
    EXPECT_EQ(close.opcode, 8);
    EXPECT_EQ(close.payload, std::string("\x03\xE8"));
    EXPECT_EQ(errors(), "");
}

TEST_F(WatchCommandTest, EndsWhenNobodyReadsItsOutputAlsoWithoutAMessage)
{
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    TestServer server(
        [&](Peer& peer)
        {
            peer.upgrade();
            peer.readFrame();
            ::close(ends[0]);
            peer.awaitClose();
        });
    LineOutput output(ends[1]);
    EXPECT_EQ(watchInto(output, {server.url("/a")}), 0);
    EXPECT_FALSE(output.isOpen());
    EXPECT_EQ(errors(), "");
    ::close(ends[1]);
}

class WatchCommandBadMessages: public WatchCommandTest, public testing::WithParamInterface<const char*>
{
};

TEST_P(WatchCommandBadMessages, EndTheWatchWithAMessage)
{
    TestServer server(sends({GetParam()}));
    EXPECT_EQ(watch({server.url("/a")}), 1);
    EXPECT_THAT(errors(), HasSubstr("received a message that is no JSON object"));
}

INSTANTIATE_TEST_SUITE_P(All, WatchCommandBadMessages, testing::Values("", "no JSON", "[]", "17", R"({"type":)"));

TEST_F(WatchCommandTest, PassesOverMessagesOfUnknownKind)
{
    TestServer server(sends({"{}", R"({"type":1,"event":[]})", R"({"type":"weather"})", notification("/a", "{}")}));
    options.count = 1;
    EXPECT_EQ(watch({server.url("/a")}), 0);
    EXPECT_EQ(lines().size(), 1u);
}

} // namespace
