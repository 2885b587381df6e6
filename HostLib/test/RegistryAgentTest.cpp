#include "RegistryAgent.h"

#include "MemoryRegistry.h"
#include "TestTools.h"

#include <CapturedLog.h>
#include <Entries.h>

#include <Poco/Exception.h>
#include <Poco/Message.h>
#include <Poco/Runnable.h>
#include <Poco/ThreadPool.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

using Kesa::Host::RegistryAgent;
using Kesa::Test::CapturedLog;
using Kesa::Test::ClosedRegistryPort;
using Kesa::Test::entryOf;
using Kesa::Test::FakeRegistry;
using Poco::Message;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

namespace
{

const RegistryAgent::Times QUICK{50, 50, 10};

bool isPut(const std::string& request)
{
    return request.compare(0, 4, "PUT ") == 0;
}

std::vector<std::string> textsOf(const CapturedLog& log, Message::Priority priority)
{
    std::vector<std::string> texts;
    for (const CapturedLog::Entry& entry: log.entries())
        if (entry.priority == priority)
            texts.push_back(entry.text);
    return texts;
}

} // namespace

TEST(RegistryAgentTest, RegistersTheServiceAndUnregistersIt)
{
    MemoryRegistry registry;
    RegistryAgent agent(entryOf("shop"), QUICK);
    agent.start();
    ASSERT_TRUE(eventually([&] { return !agent.id().empty(); }));
    EXPECT_THAT(registry.ids("shop"), ElementsAre(agent.id()));
    EXPECT_EQ(registry.entry(agent.id())->getValue<int>("port"), 8080);
    agent.stop();
    EXPECT_EQ(agent.id(), "");
    EXPECT_THAT(registry.ids("shop"), ElementsAre());
}

TEST(RegistryAgentTest, RegistersOnce)
{
    MemoryRegistry registry;
    RegistryAgent agent(entryOf("shop"), {1, 1, 1});
    agent.start();
    ASSERT_TRUE(eventually([&] { return registry.count("GET /?name=shop") > 0; }));
    agent.stop();
    EXPECT_EQ(registry.count("PUT /shop"), 1);
}

TEST(RegistryAgentTest, DestructorUnregisters)
{
    MemoryRegistry registry;
    {
        RegistryAgent agent(entryOf("shop"), QUICK);
        agent.start();
        ASSERT_TRUE(eventually([&] { return !agent.id().empty(); }));
    }
    EXPECT_THAT(registry.ids("shop"), ElementsAre());
}

TEST(RegistryAgentTest, StopsBeforeItsStartAndTwice)
{
    MemoryRegistry registry;
    RegistryAgent idle(entryOf("shop"));
    idle.stop();
    RegistryAgent agent(entryOf("shop"));
    agent.start();
    agent.stop();
    agent.stop();
    EXPECT_THAT(registry.ids("shop"), ElementsAre());
}

TEST(RegistryAgentTest, RegistersWhenTheRegistryAppears)
{
    CapturedLog log;
    RegistryAgent agent(entryOf("shop"), {20, 60000, 1});
    {
        const ClosedRegistryPort nobody;
        agent.start();
        const auto warnings = [&] { return log.count(Message::PRIO_WARNING); };
        ASSERT_TRUE(eventually([&] { return warnings() > 0; }));
        EXPECT_EQ(agent.id(), "");
    }
    MemoryRegistry registry;
    ASSERT_TRUE(eventually([&] { return !agent.id().empty(); }));
    EXPECT_THAT(textsOf(log, Message::PRIO_WARNING),
                ElementsAre("The service registry 127.0.0.1:8910 cannot be reached. 'shop' serves, and is registered "
                            "when the registry is there."));
    EXPECT_THAT(textsOf(log, Message::PRIO_ERROR), ElementsAre()) << "nobody there is no error";
    EXPECT_TRUE(log.waitFor(Message::PRIO_INFORMATION,
                            "'shop' is registered at the service registry 127.0.0.1:8910 as " + agent.id()));
    agent.stop();
}

TEST(RegistryAgentTest, TellsOnceOfARegistryThatRefuses)
{
    CapturedLog log;
    std::atomic<int> refusals{3};
    MemoryRegistry registry(
        [&](const std::string& request) -> std::optional<MemoryRegistry::Answer>
        {
            if (isPut(request) && refusals-- > 0)
                return FakeRegistry::answer("503 Service Unavailable");
            return std::nullopt;
        });
    RegistryAgent agent(entryOf("shop"), {60000, 5, 1});
    agent.start();
    ASSERT_TRUE(eventually([&] { return !agent.id().empty(); }));
    EXPECT_EQ(registry.count("PUT /shop"), 4);
    EXPECT_THAT(textsOf(log, Message::PRIO_WARNING),
                ElementsAre("The service registry 127.0.0.1:8910 did not register 'shop', which serves. Trying again "
                            "until it does."));
}

// --- entries that were left behind ---

TEST(RegistryAgentTest, RemovesTheEntryOfARegistrationWhoseAnswerWasLost)
{
    bool isLost = false; // of the registry's threads, which take turns
    MemoryRegistry* known = nullptr;
    MemoryRegistry registry(
        [&](const std::string& request) -> std::optional<MemoryRegistry::Answer>
        {
            if (!isPut(request) || isLost)
                return std::nullopt;
            isLost = true;
            known->add("shop", "127.0.0.1", 8080);
            return MemoryRegistry::Answer{"", MemoryRegistry::Answer::CLOSE};
        });
    known = &registry;
    RegistryAgent agent(entryOf("shop"), QUICK);
    agent.start();
    EXPECT_TRUE(eventually([&] { return !agent.id().empty() && registry.ids("shop") == std::vector{agent.id()}; }));
    EXPECT_EQ(registry.count("PUT /shop"), 2);
}

TEST(RegistryAgentTest, LeavesTheEntriesOfOthersAlone)
{
    MemoryRegistry registry;
    const std::string sameHost = registry.add("shop", "127.0.0.1", 8081);
    const std::string samePort = registry.add("shop", "127.0.0.2", 8080);
    const std::string otherName = registry.add("shops", "127.0.0.1", 8080);
    const std::string leftBehind = registry.add("shop", "127.0.0.1", 8080);
    RegistryAgent agent(entryOf("shop"), QUICK);
    agent.start();
    ASSERT_TRUE(eventually([&] { return registry.count("DELETE /" + leftBehind) == 1; }));
    agent.stop();
    EXPECT_THAT(registry.ids("shop"), testing::UnorderedElementsAre(sameHost, samePort));
    EXPECT_THAT(registry.ids("shops"), ElementsAre(otherName));
}

TEST(RegistryAgentTest, TriesAgainWhereTheRegistryDoesNotTellWhatItHolds)
{
    std::atomic<int> failures{2};
    MemoryRegistry registry(
        [&](const std::string& request) -> std::optional<MemoryRegistry::Answer>
        {
            if (request.compare(0, 5, "GET /") == 0 && failures-- > 0)
                return FakeRegistry::answer("500 Internal Server Error");
            return std::nullopt;
        });
    const std::string leftBehind = registry.add("shop", "127.0.0.1", 8080);
    RegistryAgent agent(entryOf("shop"), {60000, 5, 1});
    agent.start();
    ASSERT_TRUE(eventually([&] { return registry.count("DELETE /" + leftBehind) == 1; }));
    EXPECT_EQ(registry.count("PUT /shop"), 1);
}

TEST(RegistryAgentTest, RemovesAtItsStopWhatALostAnswerLeftBehind)
{
    MemoryRegistry* known = nullptr;
    MemoryRegistry registry(
        [&](const std::string& request) -> std::optional<MemoryRegistry::Answer>
        {
            if (!isPut(request))
                return std::nullopt;
            known->add("shop", "127.0.0.1", 8080);
            return MemoryRegistry::Answer{"", MemoryRegistry::Answer::CLOSE};
        });
    known = &registry;
    RegistryAgent agent(entryOf("shop"), {60000, 60000, 1});
    agent.start();
    ASSERT_TRUE(eventually([&] { return registry.count("PUT /shop") == 1; }));
    agent.stop();
    EXPECT_THAT(registry.ids("shop"), ElementsAre());
}

// --- a registry that is broken or hostile ---

namespace
{

/// What a registry does to one service.
struct Hostility
{
    std::string service; ///< its name
    std::string method;  ///< of the requests that get the answer
    MemoryRegistry::Answer answer;
};

typedef MemoryRegistry::Answer Answer;

const std::vector<Hostility> HOSTILITIES{
    {"silent-on-registration", "PUT", {"", Answer::HANG}},
    {"silent-on-list", "GET", {"", Answer::HANG}},
    {"silent-on-removal", "DELETE", {"", Answer::HANG}},
    {"endless-answer", "PUT", {"HTTP/1.1 201 Created\r\n\r\n", Answer::FLOOD, std::string(1 << 20, 'x')}},
    {"endless-head", "PUT", {"HTTP/1.1 201 Created\r\n", Answer::FLOOD, "A: b\r\n"}},
    {"endless-list", "GET", {"HTTP/1.1 200 OK\r\n\r\n", Answer::FLOOD, std::string(1 << 20, '[')}},
    {"one-byte-after-the-other", "PUT", {"", Answer::DRIP, "HTTP/1.1 200 OK\r\nA:"}},
    {"ends-in-the-body", "GET", {"HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{", Answer::CLOSE}},
    {"other-json", "GET", FakeRegistry::answer("200 OK", R"({"data":[1,{"name":7}]})")},
    {"no-http", "PUT", {"220 mail.example ESMTP\r\n", Answer::CLOSE}}};

/// A registry that does all of it. A removal is recognised by the id of the one service for which it matters.
class HostileRegistry
{
public:
    std::atomic<bool> hangsOnRemovals{false};
    std::array<std::atomic<bool>, 16> isReached{}; ///< by place in HOSTILITIES

private:
    std::optional<Answer> answer(const std::string& request)
    {
        for (std::size_t i = 0; i < HOSTILITIES.size(); ++i)
            if (matches(request, HOSTILITIES[i]))
            {
                isReached[i] = true;
                return HOSTILITIES[i].answer;
            }
        return std::nullopt;
    }

    bool matches(const std::string& request, const Hostility& hostility) const
    {
        const std::string line = request.substr(0, request.find(" HTTP/1."));
        if (hostility.method == "PUT")
            return line == "PUT /" + hostility.service;
        if (hostility.method == "GET")
            return line == "GET /?name=" + hostility.service;
        return hangsOnRemovals && line == "DELETE /" + m_registry.ids(hostility.service).front();
    }

    MemoryRegistry m_registry{[this](const std::string& request) { return answer(request); }};
};

/// Milliseconds that each agent needs for its stop, all at once.
std::vector<double> stopAll(std::vector<std::unique_ptr<RegistryAgent>>& agents)
{
    std::vector<double> durations(agents.size());
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < agents.size(); ++i)
        threads.emplace_back(
            [&, i]
            {
                const Stopwatch watch;
                agents[i]->stop();
                durations[i] = watch.milliseconds();
            });
    for (std::thread& thread: threads)
        thread.join();
    return durations;
}

} // namespace

TEST(RegistryAgentTest, HostileRegistryDelaysNoStartAndAStopByTwoSecondsAtMost)
{
    CapturedLog log; // the many lines are not for the test's output
    HostileRegistry registry;
    std::vector<std::unique_ptr<RegistryAgent>> agents;
    const Stopwatch beginning;
    for (const Hostility& hostility: HOSTILITIES)
    {
        agents.push_back(std::make_unique<RegistryAgent>(entryOf(hostility.service), QUICK));
        agents.back()->start();
    }
    EXPECT_LT(beginning.milliseconds(), 2000);
    const std::size_t onRemoval = 2;
    for (std::size_t i = 0; i < agents.size(); ++i)
        EXPECT_TRUE(
            eventually([&] { return i == onRemoval ? !agents[i]->id().empty() : registry.isReached[i].load(); }))
            << HOSTILITIES[i].service;
    registry.hangsOnRemovals = true;
    const std::vector<double> durations = stopAll(agents);
    EXPECT_TRUE(registry.isReached[onRemoval]);
    for (std::size_t i = 0; i < agents.size(); ++i)
        EXPECT_LT(durations[i], RegistryAgent::STOP_TIME + 1000) << HOSTILITIES[i].service;
}

// --- construction, threads ---

class RefusedNameTest: public testing::TestWithParam<std::pair<std::string, std::string>>
{
};

TEST_P(RefusedNameTest, IsNamedInTheException)
{
    try
    {
        RegistryAgent agent(entryOf(GetParam().first));
        FAIL() << "accepted";
    }
    catch (const Poco::InvalidArgumentException& e)
    {
        EXPECT_THAT(e.message(), StartsWith("A service cannot be named \"" + GetParam().first + "\": "));
        EXPECT_THAT(e.message(), HasSubstr(GetParam().second));
    }
}

INSTANTIATE_TEST_SUITE_P(RegistryAgentTest, RefusedNameTest,
                         testing::Values(std::make_pair("", "1 to 64 characters, not 0"),
                                         std::make_pair(std::string(65, 'a'), "1 to 64 characters, not 65"),
                                         std::make_pair("a b", "only letters"), std::make_pair("a/b", "only letters"),
                                         std::make_pair("caf\xc3\xa9", "only letters"), std::make_pair(".", "in a URL"),
                                         std::make_pair("..", "in a URL"),
                                         std::make_pair("registry", "the service registry itself"),
                                         std::make_pair("6ba7b810-9dad-11d1-80b4-00c04fd430c8", "a UUID")));

TEST(RegistryAgentTest, TakesEveryNameThatIsAllowed)
{
    for (const std::string& name:
         {std::string("a"), std::string(64, 'Z'), std::string("0.9_x-Y"), std::string("Registry")})
        EXPECT_NO_THROW(RegistryAgent agent(entryOf(name))) << name;
}

TEST(RegistryAgentTest, RefusesAnEntryWithoutHostOrPort)
{
    for (const char* member: {"host", "port", "name"})
    {
        Kesa::MicroServiceInfo entry = entryOf("shop");
        entry.removeValue(member);
        EXPECT_THROW(RegistryAgent agent(entry), Poco::InvalidAccessException) << member;
    }
}

class Waiting: public Poco::Runnable
{
public:
    explicit Waiting(Poco::Event& event): m_event(event) {}
    void run() override { m_event.wait(); }

private:
    Poco::Event& m_event;
};

TEST(RegistryAgentTest, RegistersWithoutAThreadForTheMonitor)
{
    CapturedLog log;
    Poco::Event release{Poco::Event::EVENT_MANUALRESET};
    Poco::ThreadPool& pool = Poco::ThreadPool::defaultPool();
    Waiting waiting(release);
    while (pool.available() > 0)
        pool.start(waiting);
    MemoryRegistry registry;
    RegistryAgent agent(entryOf("shop"), {1, 1, 1});
    agent.start();
    EXPECT_TRUE(eventually([&] { return !agent.id().empty(); }));
    release.set();
    EXPECT_TRUE(log.waitFor(Message::PRIO_TRACE,
                            "SRServiceMonitor::addUUID Service id " + agent.id() + " added to SRMonitor."));
    EXPECT_THAT(textsOf(log, Message::PRIO_WARNING), ElementsAre(HasSubstr("cannot be watched"))) << "told once";
    agent.stop();
    pool.joinAll();
}
