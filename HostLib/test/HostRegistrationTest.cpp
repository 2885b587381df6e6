#include "ServiceHost.h"

#include "MemoryRegistry.h"
#include "TestClient.h"
#include "TestTools.h"
#include "TinyService.h"

#include <CapturedLog.h>

#include <Poco/Exception.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using Kesa::Host::ServiceHost;
using Kesa::Test::CapturedLog;
using Kesa::Test::ClosedRegistryPort;
using testing::ElementsAre;

namespace
{

/// The tiny service, hosted under a name; a registry is started by the tests.
class HostRegistrationTest: public testing::Test
{
protected:
    HostRegistrationTest() { options.name = "shop"; }

    /// What the registry was told.
    Poco::JSON::Object::Ptr registeredEntry()
    {
        MemoryRegistry registry;
        ServiceHost host(service, options);
        host.start();
        EXPECT_TRUE(eventually([&] { return registry.ids("shop").size() == 1; }));
        port = host.port();
        return registry.entry(registry.ids("shop").front());
    }

    TinyService service;
    ServiceHost::Options options;
    Poco::UInt16 port = 0;
};

} // namespace

TEST_F(HostRegistrationTest, TellsTheRegistryWhereTheServiceIs)
{
    const auto entry = registeredEntry();
    EXPECT_EQ(entry->getValue<std::string>("name"), "shop");
    EXPECT_EQ(entry->getValue<std::string>("uri"), "/shop");
    EXPECT_EQ(entry->getValue<std::string>("host"), "127.0.0.1");
    EXPECT_EQ(entry->getValue<int>("port"), port);
}

TEST_F(HostRegistrationTest, TellsTheRegistryWhatTheServiceIs)
{
    options.description = "sells things";
    options.apiVersions = {"1.0.0", "2.1.3"};
    options.ports = {{"admin", 9000}};
    options.advertisedHost = "127.0.0.7";
    const auto entry = registeredEntry();
    EXPECT_EQ(entry->getValue<std::string>("description"), "sells things");
    EXPECT_EQ(entry->getArray("apiVersions")->getElement<std::string>(1), "2.1.3");
    EXPECT_EQ(entry->getObject("ports")->getValue<int>("admin"), 9000);
    EXPECT_EQ(entry->getValue<std::string>("host"), "127.0.0.7");
}

TEST_F(HostRegistrationTest, GivesTheLoopbackAddressWhereItListensOnAllAddresses)
{
    for (const char* address: {"0.0.0.0", "::"})
    {
        options.address = address;
        EXPECT_EQ(registeredEntry()->getValue<std::string>("host"), "127.0.0.1") << address;
    }
}

TEST_F(HostRegistrationTest, GivesTheNumberOfAnAddressThatHasAName)
{
    options.address = "localhost";
    const auto host = registeredEntry()->getValue<std::string>("host");
    EXPECT_TRUE(host == "127.0.0.1" || host == "::1") << host;
}

TEST_F(HostRegistrationTest, UnregistersWhileTheServiceStillServes)
{
    Poco::UInt16 servedPort = 0;
    int statusAtRemoval = 0;
    MemoryRegistry registry(
        [&](const std::string& request) -> std::optional<MemoryRegistry::Answer>
        {
            if (request.compare(0, 7, "DELETE ") == 0)
            {
                TestClient client(servedPort);
                client.get("/shop/orders/1");
                statusAtRemoval = client.receive().status;
            }
            return std::nullopt;
        });
    ServiceHost host(service, options);
    host.start();
    servedPort = host.port();
    ASSERT_TRUE(eventually([&] { return registry.ids("shop").size() == 1; }));
    EXPECT_TRUE(host.stop());
    EXPECT_THAT(registry.ids("shop"), ElementsAre());
    EXPECT_EQ(statusAtRemoval, 200);
}

TEST_F(HostRegistrationTest, RegistersAgainAfterARestartOfTheHost)
{
    MemoryRegistry registry;
    ServiceHost host(service, options);
    for (int round = 0; round < 2; ++round)
    {
        host.start();
        EXPECT_TRUE(eventually([&] { return registry.ids("shop").size() == 1; }));
        host.stop();
        EXPECT_THAT(registry.ids("shop"), ElementsAre());
    }
}

TEST_F(HostRegistrationTest, WithoutANameTheRegistryIsNotAsked)
{
    options.name.clear();
    MemoryRegistry registry;
    {
        ServiceHost host(service, options);
        host.start();
        TestClient client(host.port());
        client.get("/shop/orders/1");
        EXPECT_EQ(client.receive().status, 200);
    }
    EXPECT_THAT(registry.requests(), ElementsAre());
}

TEST_F(HostRegistrationTest, WithoutARegistryTheServiceServesAtOnceAndStopsAtOnce)
{
    CapturedLog log;
    const ClosedRegistryPort nobody;
    ServiceHost host(service, options);
    const Stopwatch beginning;
    host.start();
    TestClient client(host.port());
    client.get("/shop/orders/1");
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_LT(beginning.milliseconds(), 2000);
    const Stopwatch end;
    EXPECT_TRUE(host.stop());
    EXPECT_LT(end.milliseconds(), 2000);
}

TEST_F(HostRegistrationTest, RegistryThatNeverAnswersDelaysTheStopByTwoSecondsAtMost)
{
    CapturedLog log;
    MemoryRegistry registry(
        [](const std::string&) -> std::optional<MemoryRegistry::Answer> {
            return MemoryRegistry::Answer{"", MemoryRegistry::Answer::HANG};
        });
    ServiceHost host(service, options);
    const Stopwatch beginning;
    host.start();
    TestClient client(host.port());
    client.get("/shop/orders/1");
    EXPECT_EQ(client.receive().status, 200);
    EXPECT_LT(beginning.milliseconds(), 2000);
    ASSERT_TRUE(eventually([&] { return registry.count("PUT /shop") == 1; }));
    client.reset();
    const Stopwatch end;
    EXPECT_TRUE(host.stop());
    EXPECT_LT(end.milliseconds(), 4000);
}

TEST_F(HostRegistrationTest, RefusesWhatCannotBeRegisteredBeforeAnythingIsStarted)
{
    options.name = "my shop";
    EXPECT_THROW(ServiceHost(service, options), Poco::InvalidArgumentException);
    options.name = "shop";
    options.ports = {{"admin", 0}};
    EXPECT_THROW(ServiceHost(service, options), Poco::InvalidArgumentException);
    options.ports.clear();
    options.advertisedHost = "shop.example";
    EXPECT_THROW(ServiceHost(service, options), Poco::InvalidArgumentException);
}
