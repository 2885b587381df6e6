#include <ChildProcess.h>
#include <TestTools.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

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
