// From a client's message to a notification, over a real websocket.
#include "SystemService.h"

#include <ServiceHost.h>
#include <ServiceUrl.h>
#include <WebsocketClient.h>

#include <Poco/Clock.h>
#include <Poco/JSON/Object.h>
#include <Poco/JSON/Parser.h>
#include <gtest/gtest.h>

#include <csignal>
#include <functional>
#include <memory>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

using Poco::JSON::Array;
using Poco::JSON::Object;

constexpr int PATIENCE = 20000; ///< milliseconds; a bound for what takes a second

class RoadTest: public testing::Test
{
    SystemMonitor::SystemService service;
    Kesa::Host::ServiceHost host{service, {}};

protected:
    RoadTest()
    {
        host.start();
        client = std::make_unique<Kesa::Client::WebsocketClient>(Kesa::Client::ServiceUrl(host.url()));
    }

    void send(const std::string& type, const std::string& event, const std::string& more = "")
    {
        client->send(R"({"type":")" + type + R"(","event":")" + event + "\"" + more + "}");
    }

    /// The next message; null if none came in time.
    Object::Ptr next()
    {
        const auto text = client->receive(PATIENCE);
        return text ? Poco::JSON::Parser().parse(*text).extract<Object::Ptr>() : Object::Ptr();
    }

    /// The first message for which `isWanted` holds; null if none came in time.
    Object::Ptr nextThat(const std::function<bool(const Object&)>& isWanted)
    {
        const Poco::Clock start;
        while (start.elapsed() / 1000 < PATIENCE)
        {
            const Object::Ptr message = next();
            if (!message || isWanted(*message))
                return message;
        }
        return Object::Ptr();
    }

    std::unique_ptr<Kesa::Client::WebsocketClient> client; ///< goes first: the host would wait for it
};

/// A process that waits until it is ended.
class Child
{
public:
    Child(): m_id(::fork())
    {
        if (m_id == 0)
        {
            ::pause();
            ::_exit(0);
        }
    }
    ~Child() { end(); }
    void end()
    {
        if (m_id > 0)
        {
            ::kill(m_id, SIGKILL);
            ::waitpid(m_id, nullptr, 0);
        }
        m_id = 0;
    }
    std::string id() const { return std::to_string(m_id); }

private:
    pid_t m_id;
};

std::string textOf(const Object& message, const std::string& key)
{
    return message.optValue<std::string>(key, "");
}

bool isList(const Object& message, const std::string& id, bool listed)
{
    const Array::Ptr list = message.getArray("data");
    bool found = false;
    for (std::size_t i = 0; list && i < list->size(); ++i)
        found = found || list->getObject(static_cast<unsigned>(i))->getValue<std::string>("id") == id;
    return list && found == listed;
}

TEST_F(RoadTest, ASubscriptionIsAcknowledgedServedAndEnded)
{
    send("subscribe", "/system/cpus/all");
    const Object::Ptr acknowledgement = next();
    ASSERT_TRUE(acknowledgement);
    EXPECT_EQ(textOf(*acknowledgement, "type"), "subscribe");
    EXPECT_EQ(textOf(*acknowledgement, "status"), "ok");
    const Object::Ptr first = next();
    ASSERT_TRUE(first);
    EXPECT_EQ(textOf(*first, "type"), "data");
    EXPECT_EQ(textOf(*first, "event"), "/system/cpus/all");
    EXPECT_TRUE(first->getObject("data")->has("usagePercent"));
    ASSERT_TRUE(nextThat([](const Object& message) { return textOf(message, "type") == "data"; }));
    send("unsubscribe", "/system/cpus/all");
    ASSERT_TRUE(nextThat([](const Object& message) { return textOf(message, "type") == "unsubscribe"; }));
}

TEST_F(RoadTest, AListTellsOfProcessesThatComeAndGo)
{
    // A page would cut the list on a machine with many processes.
    send("subscribe", "/system/processes?parentId=" + std::to_string(::getpid()));
    ASSERT_TRUE(nextThat([](const Object& message) { return textOf(message, "type") == "data"; }));
    Child child;
    const std::string id = child.id();
    EXPECT_TRUE(nextThat([&](const Object& message) { return isList(message, id, true); }));
    child.end();
    EXPECT_TRUE(nextThat([&](const Object& message) { return isList(message, id, false); }));
}

TEST_F(RoadTest, AFollowedElementThatGoesIsToldAsGone)
{
    Child child;
    const std::string event = "/system/processes/" + child.id();
    send("subscribe", "/system/processes?parentId=" + std::to_string(::getpid()));
    ASSERT_TRUE(nextThat([&](const Object& message) { return isList(message, child.id(), true); }));
    send("subscribe", event);
    const auto isAbout = [&](const Object& message) { return textOf(message, "event") == event; };
    const Object::Ptr answer = nextThat(isAbout);
    ASSERT_TRUE(answer);
    EXPECT_EQ(textOf(*answer, "type"), "subscribe");
    child.end();
    const Object::Ptr gone = nextThat([](const Object& message) { return textOf(message, "type") == "error"; });
    ASSERT_TRUE(gone);
    EXPECT_EQ(textOf(*gone, "event"), event);
    EXPECT_EQ(gone->getValue<int>("code"), 410);
}

TEST_F(RoadTest, UnknownUrlsAreRefused)
{
    for (const std::string event: {"/system/tapes", "/system/cpus/cpu9999", "/other", "/system/cpus/cpu0/x"})
    {
        send("subscribe", event);
        const Object::Ptr refusal = next();
        ASSERT_TRUE(refusal);
        EXPECT_EQ(textOf(*refusal, "type"), "error");
        EXPECT_EQ(refusal->getValue<int>("code"), 404) << event;
    }
}

TEST_F(RoadTest, AutosubscribeFollowsEachElement)
{
    send("subscribe", "/system/memory", R"(,"autosubscribe":true)");
    const auto isFirst = [](const std::string& event)
    {
        return [event](const Object& message)
        { return textOf(message, "type") == "data" && textOf(message, "event") == event; };
    };
    EXPECT_TRUE(nextThat(isFirst("/system/memory/ram")));
    EXPECT_TRUE(nextThat(isFirst("/system/memory/swap")));
}

TEST_F(RoadTest, APeriodicSubscriptionIsServedWithoutAChange)
{
    send("subscribe", "/system/memory?$fields=id", R"(,"interval":50)");
    const auto isStamped = [](const Object& message) { return message.has("timestamp"); };
    EXPECT_TRUE(nextThat(isStamped));
    EXPECT_TRUE(nextThat(isStamped));
}

} // namespace
