#include "FakeService.h"
#include "RegistryProcess.h"
#include "TestDirectory.h"
#include "TestTools.h"

#include <Data/MicroServiceInfo.h>
#include <SRServiceMonitor.h>
#include <ServiceRegistry.h>
#include <WebsocketPeer.h>

#include <Poco/Delegate.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <memory>
#include <mutex>
#include <vector>

using namespace Kesa::Registry::Test;
using Kesa::MicroServiceInfo;
using Kesa::Service::ServiceRegistryAbstraction;
using Kesa::Service::SRServiceMonitor;

namespace
{

class RegistryClientTest: public testing::Test
{
protected:
    RegistryClientTest() { start(); }

    void start(const std::vector<std::string>& arguments = {})
    {
        registry.reset();
        registry = std::make_unique<RegistryProcess>(arguments);
        if (registry->waitForPort() != 8910)
            throw std::runtime_error("no registry on port 8910: " + registry->readErrorLine());
    }

    MicroServiceInfo entryOf(const std::string& name)
    {
        Poco::JSON::Object::Ptr entry = new Poco::JSON::Object;
        entry->set("name", name).set("uri", "/" + name).set("host", "127.0.0.1").set("port", service.port());
        entry->set("rack", "r7");
        const std::unique_ptr<MicroServiceInfo> info(MicroServiceInfo::FromJson(entry));
        return *info;
    }

    static std::vector<MicroServiceInfo> found(const std::string& name)
    {
        std::vector<MicroServiceInfo> entries;
        EXPECT_TRUE(ServiceRegistryAbstraction::findRegisteredService(name, entries));
        return entries;
    }

    static std::vector<MicroServiceInfo> all()
    {
        std::vector<MicroServiceInfo> entries;
        EXPECT_TRUE(ServiceRegistryAbstraction::getServiceList(entries));
        return entries;
    }

    FakeService service{FakeService::says("HTTP/1.1 200 OK\r\n\r\n")};
    std::unique_ptr<RegistryProcess> registry;
};

/// Collects what a monitor reports.
struct Reports
{
    void onStatus(const void*, SRServiceMonitor::SRStatus& status)
    {
        if (status == SRServiceMonitor::REACHABLE)
            isReachable = true;
    }
    void onGone(const void*, std::string& id)
    {
        std::lock_guard lock(mutex);
        gone.push_back(id);
    }
    std::vector<std::string> allGone()
    {
        std::lock_guard lock(mutex);
        return gone;
    }

    std::atomic<bool> isReachable{false};
    std::mutex mutex; ///< guards gone
    std::vector<std::string> gone;
};

} // namespace

TEST_F(RegistryClientTest, RegistersFindsAndLeaves)
{
    MicroServiceInfo clock = entryOf("clock");
    ASSERT_TRUE(ServiceRegistryAbstraction::registerService(clock));
    const auto entries = found("clock");
    ASSERT_EQ(entries.size(), 1U);
    EXPECT_EQ(entries[0].getIdString(), clock.getIdString());
    EXPECT_EQ(entries[0].getPort(), service.port());
    EXPECT_EQ(entries[0].toJSON(0)->getValue<std::string>("rack"), "r7");
    EXPECT_TRUE(found("bell").empty());
    EXPECT_TRUE(ServiceRegistryAbstraction::unregisterService(clock));
    EXPECT_FALSE(ServiceRegistryAbstraction::unregisterService(clock)) << "it has left already";
    EXPECT_TRUE(all().empty());
}

TEST_F(RegistryClientTest, RegistersAndRemovesSeveralOverOneSession)
{
    std::vector<MicroServiceInfo> services;
    for (int i = 0; i < 20; ++i)
        services.push_back(entryOf("clock" + std::to_string(i)));
    ASSERT_TRUE(ServiceRegistryAbstraction::registerServices(services));
    EXPECT_EQ(all().size(), 20U);
    EXPECT_TRUE(ServiceRegistryAbstraction::unregisterServices(services));
    EXPECT_TRUE(all().empty());
}

TEST_F(RegistryClientTest, KnowsTheIdsOfBeforeAfterARestartWithItsState)
{
    const TestDirectory directory;
    start({"--state", directory.file("state")});
    MicroServiceInfo clock = entryOf("clock");
    ASSERT_TRUE(ServiceRegistryAbstraction::registerService(clock));
    registry->signal(SIGKILL);
    registry->wait();
    start({"--state", directory.file("state")});
    ASSERT_EQ(all().size(), 1U);
    EXPECT_TRUE(ServiceRegistryAbstraction::unregisterService(clock));
}

TEST_F(RegistryClientTest, IsReachableForAMonitorWhichHearsWhatIsGone)
{
    MicroServiceInfo staying = entryOf("clock");
    MicroServiceInfo leaving = entryOf("clock");
    ASSERT_TRUE(ServiceRegistryAbstraction::registerService(staying));
    ASSERT_TRUE(ServiceRegistryAbstraction::registerService(leaving));
    Reports reports;
    SRServiceMonitor monitor;
    monitor.ServiceRegistryStatus += Poco::delegate(&reports, &Reports::onStatus);
    monitor.ServiceEntryGone += Poco::delegate(&reports, &Reports::onGone);
    monitor.addUUID(leaving.getIdString());
    monitor.addUUID(staying.getIdString());
    ASSERT_TRUE(ServiceRegistryAbstraction::unregisterService(leaving));
    const Stopwatch time;
    while (reports.allGone().empty() && time.milliseconds() < 20000)
        std::this_thread::sleep_for(std::chrono::milliseconds(10)); // its first check comes after ten seconds
    EXPECT_TRUE(reports.isReachable);
    EXPECT_EQ(reports.allGone(), std::vector<std::string>{leaving.getIdString()});
    monitor.ServiceRegistryStatus -= Poco::delegate(&reports, &Reports::onStatus);
    monitor.ServiceEntryGone -= Poco::delegate(&reports, &Reports::onGone);
}

TEST_F(RegistryClientTest, ShowsThoseWhoFollowThatAServiceRegistered)
{
    Kesa::Test::WebsocketPeer peer(8910);
    peer.sendText(R"({"type":"subscribe","event":"/registry/services"})");
    EXPECT_THAT(peer.receiveText(), testing::HasSubstr(R"("status":"ok")"));
    EXPECT_THAT(peer.receiveText(), testing::HasSubstr(R"("data":[])"));
    MicroServiceInfo clock = entryOf("clock");
    ASSERT_TRUE(ServiceRegistryAbstraction::registerService(clock));
    EXPECT_THAT(peer.receiveText(), testing::HasSubstr(clock.getIdString()));
}
