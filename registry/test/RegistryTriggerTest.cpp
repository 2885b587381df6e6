#include "RegistryTrigger.h"

#include "FakeService.h"
#include "HostedRegistry.h"
#include "TestEntries.h"
#include "TestTools.h"

#include <JSONTools.h>
#include <WebsocketPeer.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace Kesa::Registry;
using Kesa::Registry::Test::entryOf;
using Kesa::Registry::Test::FakeService;
using Kesa::Registry::Test::HostedRegistry;
using Kesa::Test::WebsocketPeer;
using Outcome = EntryStore::Outcome;
using testing::HasSubstr;

namespace
{

/// A port at which nothing listens.
int unusedPort()
{
    return Poco::Net::ServerSocket(Poco::Net::SocketAddress("127.0.0.1", 0)).address().port();
}

class RegistryTriggerTest: public testing::Test
{
protected:
    void subscribe(const std::string& event)
    {
        peer.sendText(R"({"type":"subscribe","updateLimit":0,"event":")" + event + "\"}");
    }

    Poco::JSON::Object::Ptr receive()
    {
        Poco::JSON::Object::Ptr message;
        const std::string text = peer.receiveText();
        EXPECT_TRUE(Kesa::Util::JSONTools::parseJSONString(text, message)) << text;
        return message;
    }

    /// The ids in the next list.
    std::vector<std::string> receiveIds()
    {
        const auto message = receive();
        std::vector<std::string> ids;
        for (const auto& element: *message->getArray("data"))
            ids.push_back(element.extract<Poco::JSON::Object::Ptr>()->getValue<std::string>("id"));
        return ids;
    }

    static LivenessChecker::Options quickChecks()
    {
        LivenessChecker::Options options;
        options.period = 50;
        return options;
    }

    HostedRegistry registry{quickChecks()};
    FakeService living{FakeService::says("HTTP/1.1 200 OK\r\n\r\n")};
    WebsocketPeer peer{registry.host->port()};
};

typedef std::vector<std::string> Ids;

} // namespace

TEST_F(RegistryTriggerTest, TellsThoseWhoFollowTheListOfWhoComesAndGoes)
{
    subscribe("/registry/services");
    EXPECT_EQ(receive()->getValue<std::string>("status"), "ok");
    EXPECT_EQ(receiveIds(), Ids{});
    const EntryPtr clock = entryOf("clock", living.port());
    const EntryPtr bell = entryOf("bell", living.port());
    registry.service.add(clock);
    EXPECT_EQ(receiveIds(), Ids{clock->id});
    registry.service.add(bell);
    EXPECT_EQ(receiveIds(), (Ids{bell->id, clock->id}));
    registry.service.remove(clock->id);
    EXPECT_EQ(receiveIds(), Ids{bell->id});
}

TEST_F(RegistryTriggerTest, TellsThoseWhoFollowAnEntryThatItIsGone)
{
    const EntryPtr clock = entryOf("clock", living.port());
    registry.service.add(clock);
    subscribe("/registry/services/" + clock->id);
    EXPECT_EQ(receive()->getValue<std::string>("status"), "ok");
    EXPECT_EQ(receive()->getObject("data")->getValue<std::string>("name"), "clock");
    registry.service.remove(clock->id);
    const auto gone = receive();
    EXPECT_EQ(gone->getValue<std::string>("type"), "error");
    EXPECT_EQ(gone->getValue<int>("code"), 410);
}

TEST_F(RegistryTriggerTest, TellsThatAServiceDiedWithoutLeaving)
{
    subscribe("/registry/services");
    receive();
    EXPECT_EQ(receiveIds(), Ids{});
    const EntryPtr dead = entryOf("clock", unusedPort());
    const EntryPtr bell = entryOf("bell", living.port());
    registry.service.add(bell);
    EXPECT_EQ(receiveIds(), Ids{bell->id});
    registry.service.add(dead);
    EXPECT_EQ(receiveIds(), (Ids{bell->id, dead->id}));
    EXPECT_EQ(receiveIds(), Ids{bell->id});
    EXPECT_FALSE(registry.service.entries().find(dead->id));
}

TEST_F(RegistryTriggerTest, HearsThroughAQueryAboutTheEntriesThatFitIt)
{
    subscribe("/registry/services?name=clock");
    receive();
    EXPECT_EQ(receiveIds(), Ids{});
    registry.service.add(entryOf("bell", living.port()));
    const EntryPtr clock = entryOf("clock", living.port());
    registry.service.add(clock);
    EXPECT_EQ(receiveIds(), Ids{clock->id});
}

TEST_F(RegistryTriggerTest, SaysWhatTheRegistryIs)
{
    subscribe("/registry");
    receive();
    EXPECT_EQ(receiveIds(), Ids{"services"});
    subscribe("/");
    receive();
    EXPECT_EQ(receiveIds(), Ids{"registry"});
}

TEST_F(RegistryTriggerTest, RefusesWhatIsNotThere)
{
    for (const char* event: {"/system", "/registry/cpus", "/registry/services/6ba7b810-9dad-11d1-80b4-00c04fd430c8",
                             "/clock/services", "/registry/services/x"})
    {
        subscribe(event);
        const auto refusal = receive();
        EXPECT_EQ(refusal->optValue<int>("code", 0), 404) << event;
        EXPECT_THAT(refusal->optValue<std::string>("message", ""), HasSubstr("\"/registry/services\" lists")) << event;
    }
}

TEST_F(RegistryTriggerTest, RefusesAQueryThatMakesNoSense)
{
    subscribe("/registry/services?$limit=x");
    EXPECT_EQ(receive()->optValue<int>("code", 0), 400);
}

TEST_F(RegistryTriggerTest, CutsALongListAndSaysSo)
{
    const EntryPtr entry = entryOf("clock", living.port());
    for (int i = 0; i < 501; ++i)
    {
        auto copy = std::make_shared<Entry>(*entry);
        copy->id = std::to_string(i);
        registry.service.add(copy);
    }
    subscribe("/registry/services");
    receive();
    const auto message = receive();
    EXPECT_EQ(message->getArray("data")->size(), 500U);
    EXPECT_EQ(message->getObject("paging")->getValue<int>("total"), 501);
}
