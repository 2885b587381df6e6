#include <ChildProcess.h>
#include <TestTools.h>
#include <TinyService.h>

#include <CapturedLog.h>
#include <Entries.h>
#include <RegistryAgent.h>
#include <ServiceHost.h>
#include <ServiceRegistry.h>
#include <WebsocketPeer.h>

#include <Poco/TemporaryFile.h>
#include <Poco/ThreadPool.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <string>
#include <vector>

using Kesa::Host::RegistryAgent;
using Kesa::Service::ServiceRegistryAbstraction;

namespace
{

constexpr int SERVICES = 22;
constexpr double RETURN_TIME = 30000; ///< ms in which all are listed again
constexpr double DISAPPEARANCE_TIME =
    20000; ///< ms: three checks, five seconds apart, two each; and some for the machine

/// The ids that the registry lists, by name.
typedef std::map<std::string, std::vector<std::string>> Listed;

Listed listed()
{
    std::vector<Kesa::MicroServiceInfo> entries;
    ServiceRegistryAbstraction::getServiceList(entries);
    Listed result;
    for (const Kesa::MicroServiceInfo& entry: entries)
        result[entry.getName()].push_back(entry.getIdString());
    return result;
}

template <class Condition>
bool within(double milliseconds, Condition condition)
{
    const Stopwatch watch;
    while (!condition())
    {
        if (watch.milliseconds() > milliseconds)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

/// A service in a process of its own, under a name.
struct ServiceProcess
{
    explicit ServiceProcess(const std::string& name): child(KESA_TINY_SERVICE, "name=" + name)
    {
        const std::string line = child.readLine(); // "listening on http://127.0.0.1:..."
        port = static_cast<Poco::UInt16>(std::stoi(line.substr(line.rfind(':') + 1)));
    }

    ChildProcess child;
    Poco::UInt16 port;
};

/// Many services beside a registry that is killed and started again. They share one door, to save processes; each has
/// an agent of its own, as each ServiceHost has.
class RegistryOutageTest: public testing::Test
{
protected:
    RegistryOutageTest()
    {
        m_directory.createDirectories();
        Poco::ThreadPool::defaultPool().addCapacity(SERVICES);
        startRegistry();
        m_host.start();
        for (int i = 0; i < SERVICES; ++i)
        {
            const std::string name = "service" + std::to_string(i);
            m_agents.push_back(std::make_unique<RegistryAgent>(Kesa::Test::entryOf(name, "", m_host.port())));
            m_agents.back()->start();
        }
    }

    void startRegistry()
    {
        m_registry = std::make_unique<ChildProcess>(KESA_REGISTRY, std::vector<std::string>{"--state", stateFile()});
        EXPECT_EQ(m_registry->readLine(), "listening on http://127.0.0.1:8910");
    }

    void killRegistry()
    {
        m_registry->signal(SIGKILL);
        EXPECT_EQ(m_registry->wait(), 256 + SIGKILL);
    }

    void stopServices() { m_agents.clear(); }

    std::string stateFile() const { return m_directory.path() + "/entries"; }

private:
    Poco::TemporaryFile m_directory;
    Kesa::Test::CapturedLog m_log; ///< what an outage brings is not for the test's output
    std::unique_ptr<ChildProcess> m_registry;
    TinyService m_service;
    Kesa::Host::ServiceHost m_host{m_service, {}};
    std::vector<std::unique_ptr<RegistryAgent>> m_agents;
};

bool areAllListedOnce(const Listed& services, std::size_t count)
{
    return services.size() == count &&
           std::all_of(services.begin(), services.end(), [](const auto& named) { return named.second.size() == 1; });
}

/// The moments in which the services of a registry without entries came back, in milliseconds.
std::vector<double> watchReturn()
{
    const Stopwatch watch;
    std::vector<double> moments;
    within(RETURN_TIME,
           [&]
           {
               const std::size_t count = listed().size();
               moments.resize(std::max(moments.size(), count), watch.milliseconds());
               return count == SERVICES;
           });
    return moments;
}

/// How many came within the worst half second.
long worstCrowd(const std::vector<double>& moments)
{
    long worst = 0;
    for (const double begin: moments)
        worst = std::max(worst, static_cast<long>(std::count_if(moments.begin(), moments.end(),
                                                                [&](double moment)
                                                                { return moment >= begin && moment < begin + 500; })));
    return worst;
}

} // namespace

TEST_F(RegistryOutageTest, EachRunningServiceIsListedOnceAndNoneThatIsGone)
{
    ServiceProcess diesInTheOutage("dies-in-the-outage");
    ServiceProcess diesLater("dies-later");
    ASSERT_TRUE(within(10000, [] { return areAllListedOnce(listed(), SERVICES + 2); }));

    // The registry comes back with its entries, one of a service that is no more; then another service dies.
    Listed before = listed();
    killRegistry();
    diesInTheOutage.child.signal(SIGKILL);
    startRegistry();
    EXPECT_EQ(listed(), before);
    Kesa::Test::WebsocketPeer client(diesLater.port);
    diesLater.child.signal(SIGKILL);
    EXPECT_TRUE(client.ended()) << "a client sees its socket close";
    EXPECT_TRUE(within(DISAPPEARANCE_TIME, [] { return listed().size() == SERVICES; }));
    before.erase("dies-in-the-outage");
    before.erase("dies-later");
    EXPECT_EQ(listed(), before) << "nobody has registered again";

    // It comes back without its entries.
    killRegistry();
    Poco::File(stateFile()).remove();
    startRegistry();
    const std::vector<double> moments = watchReturn();
    EXPECT_TRUE(areAllListedOnce(listed(), SERVICES));
    ASSERT_EQ(moments.size(), std::size_t(SERVICES));
    EXPECT_GT(moments.back() - moments.front(), 1000) << "they do not return in the same instant";
    EXPECT_LE(worstCrowd(moments), SERVICES * 3 / 4);

    stopServices();
    EXPECT_EQ(listed(), Listed());
}
