#include <ChildProcess.h>
#include <Data/MicroServiceInfo.h>
#include <Entries.h>
#include <ServiceRegistry.h>
#include <TestTools.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

using Kesa::Service::ServiceRegistryAbstraction;
using testing::HasSubstr;
using testing::MatchesRegex;

namespace
{

/// The programs as a user starts them.
class RegistryToolTest: public testing::Test
{
protected:
    RegistryToolTest() { EXPECT_EQ(m_registry.readLine(), "listening on http://127.0.0.1:8910"); }

    /// All that the client prints, and that it ended well.
    std::string kesa(const std::vector<std::string>& arguments)
    {
        ChildProcess client(KESA_CLIENT, arguments);
        std::string output;
        for (std::string line = client.readLine(); !line.empty(); line = client.readLine())
            output += line + "\n";
        EXPECT_EQ(client.wait(), 0) << output;
        return output;
    }

    bool becomesRegistered(const std::string& name)
    {
        return eventually([&] { return kesa({"services"}).find(name) != std::string::npos; });
    }

private:
    ChildProcess m_registry{KESA_REGISTRY, ""};
};

} // namespace

TEST_F(RegistryToolTest, FindsReadsAndFollowsAServiceByItsName)
{
    ChildProcess service(KESA_TINY_SERVICE, "name=shop");
    service.readLine();
    ASSERT_TRUE(becomesRegistered("shop"));
    EXPECT_THAT(kesa({"get", "--json", "shop/orders/1"}), HasSubstr("\"price\":1"));
    EXPECT_THAT(kesa({"watch", "--count", "1", "shop/orders/1"}), HasSubstr("/shop/orders/1  id=1  price=1"));
    EXPECT_THAT(kesa({"watch", "--count", "1", "registry/services"}), HasSubstr("1 element: "));
}

TEST_F(RegistryToolTest, FollowsTheServicesThatComeAndGo)
{
    ChildProcess follower(KESA_CLIENT, std::vector<std::string>{"services", "--watch", "--timeout", "60"});
    ChildProcess service(KESA_TINY_SERVICE, "name=shop");
    const std::string address = service.readLine().substr(std::string("listening on http://").size());
    EXPECT_THAT(follower.readLine(), MatchesRegex(".*  \\+ shop +" + address + " +[-0-9a-f]+"));
    service.signal(SIGTERM);
    EXPECT_THAT(follower.readLine(), MatchesRegex(".*  - shop +" + address + " +[-0-9a-f]+"));
    EXPECT_EQ(service.wait(), 0);
    follower.signal(SIGINT);
    EXPECT_EQ(follower.wait(), 0);
}

TEST_F(RegistryToolTest, ServiceThatIsStartedAgainOnItsPortIsListedOnce)
{
    std::string port;
    {
        ChildProcess killed(KESA_SYSTEM_MONITOR, std::vector<std::string>{"--port", "0"});
        const std::string line = killed.readLine();
        port = line.substr(line.rfind(':') + 1);
        ASSERT_TRUE(becomesRegistered("system"));
    } // ends with SIGKILL, so its entry stays
    const std::string before = kesa({"services"});
    ASSERT_THAT(before, HasSubstr(":" + port + " "));
    ChildProcess again(KESA_SYSTEM_MONITOR, std::vector<std::string>{"--port", port});
    again.readLine();
    const std::string id = before.substr(before.rfind(' ') + 1);
    ASSERT_TRUE(eventually([&] { return kesa({"services"}).find(id) == std::string::npos; }));
    const std::string after = kesa({"services"});
    EXPECT_EQ(after.find("system"), after.rfind("system")) << after;
    EXPECT_THAT(after, HasSubstr(":" + port + " "));
}

TEST_F(RegistryToolTest, FollowsServicesWhoseEntriesHaveMegabytesTogether)
{
    constexpr int COUNT = 150;
    constexpr int GONE = 3;
    Kesa::MicroServiceInfo large = Kesa::Test::entryOf("large");
    typedef Kesa::Data::AttributeValueStringable<std::string> Text;
    large.setAttribute(
        new Kesa::Data::Attribute<Text>(Kesa::Data::INVALID_XOBJ_ID, "description", Text(std::string(65000, 'x'))));
    std::vector<Kesa::MicroServiceInfo> entries(COUNT, large);
    ASSERT_TRUE(ServiceRegistryAbstraction::registerServices(entries));
    const std::vector<std::string> arguments{"services", "--watch", "--timeout", "60"};
    ChildProcess slow(KESA_CLIENT, arguments);
    ChildProcess quick(KESA_CLIENT, arguments);
    for (int i = 0; i < COUNT; ++i)
        for (ChildProcess* follower: {&slow, &quick})
            ASSERT_THAT(follower->readLine(), HasSubstr("  + large "));
    slow.signal(SIGSTOP); // so that one state still waits when the next one comes
    for (int i = 0; i < GONE; ++i)
    {
        ASSERT_TRUE(ServiceRegistryAbstraction::unregisterService(entries[i]));
        ASSERT_THAT(quick.readLine(), HasSubstr("  - large "));
    }
    slow.signal(SIGCONT);
    for (int i = 0; i < GONE; ++i)
        ASSERT_THAT(slow.readLine(), HasSubstr("  - large "));
}
