// The monitor's periods are fixed, so two tests follow it through half a minute of real time each, with everything in
// them that takes time; the bounds leave room for a busy machine.

#include "FakeRegistry.h"

#include <CapturedLog.h>
#include <SRServiceMonitor.h>

#include <Poco/Delegate.h>
#include <Poco/ErrorHandler.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <future>
#include <memory>
#include <type_traits>

using Kesa::Service::SRServiceMonitor;
using Poco::Message;
using testing::ElementsAre;
using namespace Kesa::Test;
using namespace std::chrono_literals;

namespace
{

typedef std::chrono::steady_clock Clock;

const std::string ROOT = "HEAD / HTTP/1.0\r\nConnection: Close\r\nHost: 127.0.0.1:8910\r\n\r\n";

std::string headOf(const std::string& id)
{
    return "HEAD /" + id + " HTTP/1.0\r\nConnection: Close\r\nHost: 127.0.0.1:8910\r\n\r\n";
}

/// A monitor and what it has told, with the seconds since it was built.
class Watched
{
public:
    struct Status
    {
        SRServiceMonitor::SRStatus status;
        double seconds;
        std::thread::id thread;
    };

    Watched(): m_start(Clock::now()), m_monitor(new SRServiceMonitor)
    {
        m_monitor->ServiceRegistryStatus += Poco::delegate(this, &Watched::onStatus);
        m_monitor->ServiceEntryGone += Poco::delegate(this, &Watched::onGone);
    }
    ~Watched() { end(); }

    SRServiceMonitor& monitor() { return *m_monitor; }

    /// Destroys the monitor; waits for a running check.
    void end() { m_monitor.reset(); }

    /// What the handler of ServiceEntryGone does besides; set before the first check.
    std::function<void(const std::string&)> onEntryGone = [](const std::string&) {};

    /// True once so many reports of the status have come, and false if that takes more than `limit`.
    bool waitForStatus(std::size_t count, std::chrono::seconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_told.wait_for(lock, limit, [&] { return m_status.size() >= count; });
    }
    bool waitForGone(std::size_t count, std::chrono::seconds limit)
    {
        std::unique_lock lock(m_mutex);
        return m_told.wait_for(lock, limit, [&] { return m_gone.size() >= count; });
    }
    std::vector<Status> status() const
    {
        std::lock_guard lock(m_mutex);
        return m_status;
    }
    std::vector<std::string> gone() const
    {
        std::lock_guard lock(m_mutex);
        return m_gone;
    }
    double secondsSinceStart() const { return std::chrono::duration<double>(Clock::now() - m_start).count(); }

private:
    void onStatus(const void* sender, SRServiceMonitor::SRStatus& status)
    {
        EXPECT_EQ(sender, nullptr);
        std::lock_guard lock(m_mutex);
        m_status.push_back({status, secondsSinceStart(), std::this_thread::get_id()});
        m_told.notify_all();
    }
    void onGone(const void* sender, std::string& uuid)
    {
        EXPECT_EQ(sender, nullptr);
        onEntryGone(uuid);
        std::lock_guard lock(m_mutex);
        EXPECT_TRUE(!m_status.empty() && m_status.back().thread == std::this_thread::get_id())
            << "both events come from the timer's thread";
        m_gone.push_back(uuid);
        m_told.notify_all();
    }

    const Clock::time_point m_start;
    mutable std::mutex m_mutex; ///< guards what was told
    std::condition_variable m_told;
    std::vector<Status> m_status;
    std::vector<std::string> m_gone;
    std::unique_ptr<SRServiceMonitor> m_monitor; ///< goes first, since its handlers use the rest
};

/// Collects what leaves a timer's callback as an exception.
class CollectingErrorHandler: public Poco::ErrorHandler
{
public:
    CollectingErrorHandler(): m_previous(Poco::ErrorHandler::set(this)) {}
    ~CollectingErrorHandler() override { Poco::ErrorHandler::set(m_previous); }

    using Poco::ErrorHandler::exception;
    void exception(const Poco::Exception&) override { ++count; }

    std::atomic<int> count = 0;

private:
    Poco::ErrorHandler* m_previous;
};

template <class Condition>
bool waitFor(Condition condition, std::chrono::seconds limit)
{
    const auto end = Clock::now() + limit;
    while (!condition())
    {
        if (Clock::now() > end)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

std::size_t count(const std::vector<std::string>& requests, const std::string& request)
{
    return static_cast<std::size_t>(std::count(requests.begin(), requests.end(), request));
}

void expectStatus(const Watched::Status& status, SRServiceMonitor::SRStatus expected, double seconds)
{
    EXPECT_EQ(status.status, expected);
    EXPECT_GT(status.seconds, seconds - 0.3);
    EXPECT_LT(status.seconds, seconds + 6);
    EXPECT_NE(status.thread, std::this_thread::get_id());
}

TEST(SRServiceMonitorTest, ValuesAreThoseOfTheLadder)
{
    EXPECT_EQ(Kesa::N_ReadSR_Retry, 4U);
    EXPECT_EQ(Kesa::T_ReadSR_Retry, 500U);
    EXPECT_EQ(SRServiceMonitor::REACHABLE, 0);
    EXPECT_EQ(SRServiceMonitor::UNREACHABLE, 1);
    EXPECT_EQ(SRServiceMonitor::UNKNOWN, 2);
    EXPECT_FALSE(std::is_copy_constructible_v<SRServiceMonitor>);
    EXPECT_FALSE(std::is_copy_assignable_v<SRServiceMonitor>);
}

TEST(SRServiceMonitorTest, LogsWhatItIsToldToWatch)
{
    CapturedLog log;
    {
        SRServiceMonitor monitor;
        monitor.addUUID("one");
        monitor.addUUID("one");
        monitor.addUUID("two");
        monitor.removeUUID("other");
        monitor.removeUUID("one");
        monitor.removeUUID("one");
        monitor.removeUUID("one");
        monitor.removeUUIDs();
        monitor.removeUUID("two");
    }
    std::vector<std::string> texts;
    for (const CapturedLog::Entry& entry: log.entries())
    {
        EXPECT_EQ(entry.priority, Message::PRIO_TRACE);
        texts.push_back(entry.text);
    }
    EXPECT_THAT(texts, ElementsAre("SRServiceMonitor::SRServiceMonitor Starting SRMonitor (10s period)",
                                   "SRServiceMonitor::addUUID Service id one added to SRMonitor.",
                                   "SRServiceMonitor::addUUID Service id one added to SRMonitor.",
                                   "SRServiceMonitor::addUUID Service id two added to SRMonitor.",
                                   "SRServiceMonitor::removeUUID Service id one removed from SRMonitor.",
                                   "SRServiceMonitor::removeUUID Service id one removed from SRMonitor."));
}

TEST(SRServiceMonitorTest, RegistryThatStaysAwayIsDeclaredUnreachableEveryTwelveSeconds)
{
    auto closed = std::make_unique<ClosedRegistryPort>();
    CapturedLog log;
    Watched all[3];
    for (Watched& watched: all)
        watched.monitor().addUUID("entry");

    // Refused connections: the first check after 10 seconds, then four retries.
    for (Watched& watched: all)
        ASSERT_TRUE(watched.waitForStatus(1, 20s));
    for (Watched& watched: all)
        expectStatus(watched.status().at(0), SRServiceMonitor::UNREACHABLE, 12);
    for (int retries = 0; retries < 5; ++retries)
        EXPECT_EQ(log.count(Message::PRIO_TRACE,
                            "SRServiceMonitor::checkSRFailed ServiceRegistry unavailable. (retry count: " +
                                std::to_string(retries) + ")"),
                  3U);
    EXPECT_TRUE(
        log.waitFor(Message::PRIO_TRACE, "SRServiceMonitor::checkSRFailed ServiceRegistry N_ReadSR_Retry reached."));

    // A registry that answers, but not with 200, is as good as none.
    closed.reset();
    FakeRegistry registry([](const std::string&) { return FakeRegistry::head("503 Busy"); });
    for (Watched& watched: all)
        ASSERT_TRUE(watched.waitForStatus(2, 20s));
    for (Watched& watched: all)
    {
        const auto status = watched.status();
        ASSERT_EQ(status.size(), 2U);
        expectStatus(status[1], SRServiceMonitor::UNREACHABLE, status[0].seconds + 12);
        EXPECT_TRUE(watched.gone().empty());
    }
    EXPECT_EQ(registry.requests(), std::vector<std::string>(15, ROOT)) << "five each, and none for an entry";
    EXPECT_EQ(log.count(Message::PRIO_TRACE,
                        "SRServiceMonitor::checkServiceRegistry Check for Service Registry, result: 503"),
              15U);
    EXPECT_EQ(log.count(Message::PRIO_TRACE,
                        "SRServiceMonitor::checkServiceRegistry ServiceRegistry unavailable. (retry count: 4)"),
              3U);
}

/// What the registry of the long test does at the moment.
struct Script
{
    std::atomic<bool> isRootHanging = true;
    std::atomic<int> failuresLeft = 0; ///< answers to HEAD / that are no 200

    FakeRegistry::Answer operator()(const std::string& request)
    {
        using Answer = FakeRegistry::Answer;
        const auto begins = [&](const std::string& path) { return request.compare(0, path.size(), path) == 0; };
        if (begins("HEAD / "))
        {
            if (isRootHanging)
                return {"", Answer::HANG};
            return FakeRegistry::head(failuresLeft-- > 0 ? "503 Busy" : "200 OK");
        }
        if (begins("HEAD /moved"))
            return FakeRegistry::head("302 Found");
        if (begins("HEAD /elsewhere"))
            return FakeRegistry::head("307 Temporary Redirect");
        if (begins("HEAD /lost"))
            return FakeRegistry::head("404 Not Found");
        if (begins("HEAD /cut"))
            return {"", Answer::CLOSE};
        if (begins("HEAD /slow"))
            return {"", Answer::DRIP, "HTTP/1.0 200 OK\r\n\r\n"};
        return FakeRegistry::head("200 OK");
    }
};

/// One monitor through half a minute, with others beside it.
class LongWatchTest: public testing::Test
{
protected:
    LongWatchTest(): m_registry([this](const std::string& request) { return m_script(request); }) {}

    std::size_t requestsFor(const std::string& id) const { return count(m_registry.requests(), headOf(id)); }

    /// Destroys a monitor while its check of the registry gets no answer.
    std::future<void> endWhileTheRegistryHangs(Watched& watched)
    {
        EXPECT_TRUE(waitFor([&] { return count(m_registry.requests(), ROOT) == 1; }, 20s));
        m_script.isRootHanging = false;
        return std::async(std::launch::async, [&watched] { watched.end(); });
    }

    /// Destroys a monitor in the middle of its walk over many entries.
    void endDuringAWalk(Watched& watched)
    {
        EXPECT_TRUE(waitFor([&] { return requestsFor("slow0") == 1; }, 20s));
        const auto start = Clock::now();
        watched.end();
        EXPECT_LT(Clock::now() - start, 9s);
        EXPECT_EQ(requestsFor("slow199"), 0U);
    }

    /// Ten seconds in: the registry answers, and entries that are gone are told once for each time they were added.
    void expectEntriesAreFollowed(Watched& main)
    {
        ASSERT_TRUE(main.waitForGone(3, 20s));
        expectStatus(main.status().at(0), SRServiceMonitor::REACHABLE, 10);
        EXPECT_THAT(main.gone(), ElementsAre("lost1", "lost2", "lost2"));
        for (const char* id: {"present", "lost1", "moved", "elsewhere"})
            EXPECT_EQ(requestsFor(id), 1U) << id;
        EXPECT_EQ(requestsFor("lost2"), 2U);
        EXPECT_TRUE(m_log.contains(Message::PRIO_INFORMATION, "SRServiceMonitor::checkServiceEntries Service with id "
                                                              "lost1 not found in service registry."));
        EXPECT_TRUE(m_log.contains(Message::PRIO_TRACE,
                                   "SRServiceMonitor::checkServiceEntries Remove id lost1 from SRMonitor."));
        EXPECT_TRUE(m_log.contains(Message::PRIO_TRACE,
                                   "SRServiceMonitor::checkServiceEntries Service check for moved result: 302"));
    }

    /// Twenty seconds in: three failures are silent, and the next success is told again.
    void expectShortOutageIsSilent(Watched& main)
    {
        m_script.failuresLeft = 3;
        for (const char* id: {"lost3", "cut", "behind"})
            main.monitor().addUUID(id);
        ASSERT_TRUE(main.waitForStatus(2, 20s));
        expectStatus(main.status().at(1), SRServiceMonitor::REACHABLE, 21.5);
    }

    /// A connection that is cut ends the walk: what was found gone before is not told, what was under test stays.
    void expectCutEndsTheWalk(Watched& main)
    {
        ASSERT_TRUE(waitFor([&] { return m_errors.count == 1; }, 20s));
        EXPECT_EQ(requestsFor("anew"), 1U) << "a listener may add an id";
        EXPECT_EQ(requestsFor("moved"), 1U) << "a listener may remove an id";
        EXPECT_EQ(requestsFor("present"), 2U);
        EXPECT_EQ(requestsFor("lost1"), 1U) << "what is gone is not watched any more";
        EXPECT_EQ(requestsFor("cut"), 1U);
        EXPECT_EQ(requestsFor("behind"), 0U);
        EXPECT_EQ(main.gone().size(), 3U);
        m_log.clear();
        main.monitor().removeUUID("lost3");
        EXPECT_EQ(m_log.count(Message::PRIO_TRACE), 0U);
        main.monitor().removeUUID("cut");
        EXPECT_EQ(m_log.count(Message::PRIO_TRACE), 1U);
    }

    /// Thirty seconds in: two failures more are five in all, since a success in between does not forget the first
    /// three.
    void expectFailuresAddUp(Watched& main)
    {
        m_script.failuresLeft = 2;
        ASSERT_TRUE(main.waitForStatus(3, 20s));
        expectStatus(main.status().at(2), SRServiceMonitor::UNREACHABLE, 32);
        main.end();
        for (const std::string& request: m_registry.requests())
            EXPECT_EQ(request, headOf(request.substr(6, request.find(' ', 5) - 6)));
    }

    Script m_script;
    FakeRegistry m_registry;
    CapturedLog m_log;
    CollectingErrorHandler m_errors;
};

TEST_F(LongWatchTest, EntriesAndRegistryAreFollowed)
{
    Watched hanging;
    std::this_thread::sleep_for(2s); // so that it checks before the others do
    Watched quiet;
    Watched walking;
    Watched main;
    for (int i = 0; i < 200; ++i)
        walking.monitor().addUUID("slow" + std::to_string(i));
    for (const char* id: {"present", "lost1", "moved", "lost2", "lost2", "elsewhere"})
        main.monitor().addUUID(id);
    main.onEntryGone = [&](const std::string& id)
    {
        if (id == "lost1")
            main.monitor().addUUID("anew");
        main.monitor().removeUUID("moved");
    };
    std::future<void> hangingEnds = endWhileTheRegistryHangs(hanging);

    ASSERT_NO_FATAL_FAILURE(expectEntriesAreFollowed(main));
    endDuringAWalk(walking);
    EXPECT_TRUE(quiet.waitForStatus(1, 20s));
    EXPECT_TRUE(quiet.gone().empty());
    quiet.end();
    ASSERT_NO_FATAL_FAILURE(expectShortOutageIsSilent(main));
    ASSERT_NO_FATAL_FAILURE(expectCutEndsTheWalk(main));
    EXPECT_EQ(hangingEnds.wait_for(10s), std::future_status::ready) << "its destructor waited for ever";
    EXPECT_TRUE(hanging.status().empty());
    ASSERT_NO_FATAL_FAILURE(expectFailuresAddUp(main));
}

} // namespace
