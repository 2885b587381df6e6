#include "FakeService.h"
#include "RegistryProcess.h"
#include "TestClient.h"
#include "TestTools.h"

#include <JSONTools.h>

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <vector>

using namespace Kesa::Registry::Test;

namespace
{

std::multiset<std::string> listedAt(Poco::UInt16 port)
{
    TestClient client(port);
    client.get("/");
    Poco::JSON::Object::Ptr list;
    EXPECT_TRUE(Kesa::Util::JSONTools::parseJSONString(client.receive().body, list));
    std::multiset<std::string> ids;
    for (const auto& entry: *list->getArray("data"))
        ids.insert(entry.extract<Poco::JSON::Object::Ptr>()->getValue<std::string>("id"));
    return ids;
}

void removeAll(Poco::UInt16 port)
{
    TestClient client(port);
    for (const std::string& id: listedAt(port))
    {
        client.send("DELETE /" + id + " HTTP/1.1\r\nHost: a\r\n\r\n");
        EXPECT_EQ(client.receive().status, 200);
    }
}

/// Two hundred services from ten processes at once; gives the ids of those that stay.
std::multiset<std::string> storm(int servicePort)
{
    constexpr int PROCESSES = 10;
    const std::string count = std::to_string(200 / PROCESSES);
    std::vector<std::unique_ptr<RegistryProcess>> processes;
    for (int i = 0; i < PROCESSES; ++i)
        processes.push_back(std::make_unique<RegistryProcess>(
            std::vector<std::string>{"guests" + std::to_string(i % 3), count, std::to_string(servicePort)},
            KESA_REGISTRY_GUESTS));
    std::multiset<std::string> ids;
    for (auto& process: processes)
    {
        for (std::string id = process->readLine(); !id.empty(); id = process->readLine())
            ids.insert(id);
        EXPECT_EQ(process->wait(), 0) << process->readErrorLine();
    }
    return ids;
}

} // namespace

TEST(RegistryStormTest, LosesNoEntryAndGivesNoIdTwiceInAStormOfServicesAndDoesNotGrow)
{
    FakeService service(FakeService::says("HTTP/1.1 200 OK\r\n\r\n"));
    RegistryProcess registry({});
    ASSERT_EQ(registry.waitForPort(), 8910) << registry.readErrorLine();
    std::set<std::string> everGiven;
    long before = 0;
    for (int wave = 0; wave < 6; ++wave)
    {
        const auto staying = storm(service.port());
        EXPECT_EQ(staying.size(), 100U);
        EXPECT_EQ(listedAt(8910), staying);
        for (const std::string& id: staying)
            EXPECT_TRUE(everGiven.insert(id).second) << id;
        removeAll(8910);
        if (wave == 1) // threads and their memory are there by then
            before = registry.memory();
    }
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    const long allowed = 512L * 1024 * 1024; // the sanitizers keep memory of their own
#else
    const long allowed = 4L * 1024 * 1024;
#endif
    EXPECT_LT(registry.memory() - before, allowed);
}
