#include "FakeService.h"
#include "RegistryProcess.h"
#include "TestClient.h"
#include "TestDirectory.h"
#include "TestEntries.h"
#include "TestTools.h"

#include <JSONTools.h>

#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

using namespace Kesa::Registry::Test;

namespace
{

/// Registers services and lets some of them leave, until the registry is gone. Knows what was acknowledged.
class Clients
{
public:
    explicit Clients(int servicePort): m_servicePort(servicePort) {}

    void run(Poco::UInt16 port)
    {
        try
        {
            TestClient client(port);
            for (int i = 0;; ++i)
            {
                const std::string id = add(client);
                if (id.empty() || (i % 3 == 0 && !remove(client, id)))
                    return;
            }
        }
        catch (const std::runtime_error&) // nobody listens any more
        {
        }
    }

    std::set<std::string> present; ///< registration acknowledged, removal never asked for
    std::set<std::string> gone;    ///< removal acknowledged

    std::size_t count() const
    {
        std::lock_guard lock(m_mutex);
        return present.size();
    }

private:
    std::string add(TestClient& client)
    {
        const std::string body = registrationOf("clock", m_servicePort);
        client.send("PUT /clock HTTP/1.1\r\nHost: a\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
                    body);
        const TestClient::Answer answer = client.receive();
        if (answer.status != 201)
            return std::string();
        const std::string id = answer.head.substr(answer.head.find("Location: /") + 11, 36);
        std::lock_guard lock(m_mutex);
        EXPECT_TRUE(present.insert(id).second) << "an id was given twice";
        return id;
    }

    bool remove(TestClient& client, const std::string& id)
    {
        {
            std::lock_guard lock(m_mutex);
            present.erase(id); // from now on it may be there or not
        }
        client.send("DELETE /" + id + " HTTP/1.1\r\nHost: a\r\n\r\n");
        if (client.receive().status != 200)
            return false;
        std::lock_guard lock(m_mutex);
        gone.insert(id);
        return true;
    }

    const int m_servicePort;
    mutable std::mutex m_mutex; ///< guards both sets while clients run
};

std::set<std::string> listedAt(Poco::UInt16 port)
{
    TestClient client(port);
    client.get("/");
    Poco::JSON::Object::Ptr list;
    EXPECT_TRUE(Kesa::Util::JSONTools::parseJSONString(client.receive().body, list));
    std::set<std::string> ids;
    for (const auto& entry: *list->getArray("data"))
        EXPECT_TRUE(ids.insert(entry.extract<Poco::JSON::Object::Ptr>()->getValue<std::string>("id")).second);
    return ids;
}

} // namespace

TEST(RegistryKillTest, LosesNoAcknowledgedChangeHoweverOftenItIsKilled)
{
    constexpr int ROUNDS = 12;
    constexpr int THREADS = 4;
    const TestDirectory directory;
    FakeService service(FakeService::says("HTTP/1.1 200 OK\r\n\r\n"));
    Clients clients(service.port());
    for (int round = 0; round < ROUNDS; ++round)
    {
        RegistryProcess registry({"--port", "0", "--state", directory.file("state")});
        const Poco::UInt16 port = registry.waitForPort();
        ASSERT_NE(port, 0) << registry.readErrorLine();
        const std::set<std::string> listed = listedAt(port);
        for (const std::string& id: clients.present)
            EXPECT_EQ(listed.count(id), 1U) << "lost " << id;
        for (const std::string& id: clients.gone)
            EXPECT_EQ(listed.count(id), 0U) << "came back " << id;

        const std::size_t before = clients.count();
        std::vector<std::thread> threads;
        for (int i = 0; i < THREADS; ++i)
            threads.emplace_back([&] { clients.run(port); });
        EXPECT_TRUE(eventually([&] { return clients.count() >= before + 20 + 7 * std::size_t(round); }));
        registry.signal(SIGKILL);
        EXPECT_EQ(registry.wait(), 256 + SIGKILL);
        for (std::thread& thread: threads)
            thread.join();
    }
    EXPECT_GT(clients.gone.size(), 0U);
}

TEST(RegistryKillTest, FindsOutAfterItsRestartWhichServicesHaveDied)
{
    const TestDirectory directory;
    FakeService living(FakeService::says("HTTP/1.1 200 OK\r\n\r\n"));
    auto dying = std::make_unique<FakeService>(FakeService::says("HTTP/1.1 200 OK\r\n\r\n"));
    const auto add = [](Poco::UInt16 port, const std::string& name, int servicePort)
    {
        const std::string body = registrationOf(name, servicePort);
        TestClient client(port);
        client.send("PUT /" + name + " HTTP/1.1\r\nHost: a\r\nContent-Length: " + std::to_string(body.size()) +
                    "\r\n\r\n" + body);
        EXPECT_EQ(client.receive().status, 201);
    };
    {
        RegistryProcess registry({"--port", "0", "--state", directory.file("state")});
        const Poco::UInt16 port = registry.waitForPort();
        add(port, "living", living.port());
        add(port, "dying", dying->port());
        registry.signal(SIGKILL);
        registry.wait();
    }
    dying.reset();
    RegistryProcess registry({"--port", "0", "--state", directory.file("state")});
    const Poco::UInt16 port = registry.waitForPort();
    EXPECT_EQ(listedAt(port).size(), 2U);
    const Stopwatch time;
    while (listedAt(port).size() > 1 && time.milliseconds() < 15000)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_EQ(listedAt(port).size(), 1U);
    EXPECT_GT(time.milliseconds(), 9000) << "three checks, the first at once, five seconds apart";
    EXPECT_GE(living.requests(), 2);
}
