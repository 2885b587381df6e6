// The monitor's periods are fixed, so one test follows several of them through half a minute of real time. They are
// built some seconds apart, so that their checks fall one and a half seconds apart: the registry is told in between
// what to answer next. The bounds leave room for a busy machine.

#include "FakeRegistry.h"
#include "WatchedMonitor.h"

#include <CapturedLog.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <future>
#include <optional>
#include <type_traits>

using Kesa::Service::SRServiceMonitor;
using Poco::Message;
using testing::ElementsAre;
using namespace Kesa::Test;
using namespace std::chrono_literals;

namespace
{

typedef WatchedMonitor::Clock Clock;
typedef FakeRegistry::Answer Answer;

std::string headOf(const std::string& id)
{
    return "HEAD /" + id + " HTTP/1.0\r\nConnection: Close\r\nHost: 127.0.0.1:8910\r\n\r\n";
}

const std::string ROOT = headOf("");

/// An answer after which the registry would keep the connection.
Answer answerOf(const std::string& status)
{
    return {"HTTP/1.1 " + status + "\r\n\r\n"};
}

const Answer BUSY = answerOf("503 Busy");

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

void expectStatus(const WatchedMonitor::Status& status, SRServiceMonitor::SRStatus expected, double seconds)
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
    EXPECT_TRUE(std::has_virtual_destructor_v<SRServiceMonitor>);
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

/// What the registry of the long test answers at the moment.
class Script
{
public:
    /// The next checks of the registry get `next`, one each, and those behind them `usual`.
    void answerChecks(const std::deque<Answer>& next, const Answer& usual)
    {
        std::lock_guard lock(m_mutex);
        m_next = next;
        m_usual = usual;
    }

    Answer answer(const std::string& request)
    {
        const auto begins = [&](const std::string& path) { return request.compare(0, path.size(), path) == 0; };
        if (begins("HEAD / "))
            return answerToCheck();
        if (begins("HEAD /moved"))
            return answerOf("302 Found");
        if (begins("HEAD /elsewhere"))
            return answerOf("307 Temporary Redirect");
        if (begins("HEAD /lost"))
            return answerOf("404 Not Found");
        if (begins("HEAD /cut"))
            return {"", Answer::CLOSE};
        if (begins("HEAD /slow"))
            return {"", Answer::DRIP, "HTTP/1.0 200 OK\r\n\r\n"};
        return answerOf("200 OK");
    }

private:
    Answer answerToCheck()
    {
        std::lock_guard lock(m_mutex);
        if (m_next.empty())
            return m_usual;
        const Answer answer = m_next.front();
        m_next.pop_front();
        return answer;
    }

    std::mutex m_mutex; ///< guards both
    std::deque<Answer> m_next;
    Answer m_usual;
};

class LongWatchTest: public testing::Test
{
protected:
    void startRegistry()
    {
        m_port.reset();
        m_registry.emplace([this](const std::string& request) { return m_script.answer(request); });
    }

    std::size_t requestsFor(const std::string& id) const
    {
        const std::vector<std::string> requests = m_registry->requests();
        return static_cast<std::size_t>(std::count(requests.begin(), requests.end(), headOf(id)));
    }

    std::size_t traces(const std::string& text) const
    {
        return m_log.count(Message::PRIO_TRACE, "SRServiceMonitor::" + text);
    }

    /// From 10 to 12: refused connections, at 10 seconds and then four times after half a second.
    void expectFirstOutage(std::vector<WatchedMonitor>& lonely)
    {
        for (WatchedMonitor& watched: lonely)
        {
            ASSERT_TRUE(watched.waitForStatus(1, 20s));
            expectStatus(watched.status().at(0), SRServiceMonitor::UNREACHABLE, 12);
        }
        for (int retries = 0; retries < 5; ++retries)
            EXPECT_EQ(
                traces("checkSRFailed ServiceRegistry unavailable. (retry count: " + std::to_string(retries) + ")"),
                lonely.size());
        EXPECT_TRUE(waitFor([&] { return traces("checkSRFailed ServiceRegistry N_ReadSR_Retry reached.") == 3; }, 5s));
        EXPECT_EQ(traces("onCheckInterval"), 5 * lonely.size());
    }

    /// At 13: destroys a monitor whose check gets no answer. Gives the seconds that its destructor took.
    std::future<double> endWhileTheRegistryHangs(WatchedMonitor& watched)
    {
        EXPECT_TRUE(waitFor([&] { return requestsFor("") == 1; }, 20s));
        return std::async(std::launch::async,
                          [&watched]
                          {
                              const auto start = Clock::now();
                              watched.end();
                              return std::chrono::duration<double>(Clock::now() - start).count();
                          });
    }

    /// At 15: the registry answers, and entries that are gone are told once for each time they were added.
    void expectEntriesAreFollowed(WatchedMonitor& main)
    {
        ASSERT_TRUE(main.waitForGone(3, 20s));
        expectStatus(main.status().at(0), SRServiceMonitor::REACHABLE, 10);
        EXPECT_THAT(main.gone(), ElementsAre("lost1", "lost2", "lost2"));
        for (const char* id: {"present", "lost1", "moved", "elsewhere", "half"})
            EXPECT_EQ(requestsFor(id), 1U) << id;
        for (const char* id: {"lost2", "twice"})
            EXPECT_EQ(requestsFor(id), 2U) << id;
        EXPECT_TRUE(m_log.contains(Message::PRIO_INFORMATION, "SRServiceMonitor::checkServiceEntries Service with id "
                                                              "lost1 not found in service registry."));
        EXPECT_EQ(traces("checkServiceEntries Remove id lost1 from SRMonitor."), 1U);
        EXPECT_EQ(traces("checkServiceEntries Service check for moved result: 302"), 1U);
    }

    /// At 15: destroys a monitor in the middle of its walk over many entries, and one that has none to check.
    void endDuringAWalk(WatchedMonitor& walking, WatchedMonitor& quiet)
    {
        EXPECT_TRUE(waitFor([&] { return requestsFor("slow0") == 1; }, 20s));
        EXPECT_TRUE(quiet.waitForStatus(1, 20s));
        const auto start = Clock::now();
        walking.end();
        EXPECT_LT(Clock::now() - start, 9s);
        EXPECT_EQ(requestsFor("slow199"), 0U);
        quiet.end();
        EXPECT_TRUE(quiet.gone().empty());
        EXPECT_EQ(requestsFor(""), 4U) << "one check of each monitor so far";
        EXPECT_EQ(traces("checkServiceRegistry Check for Service Registry, result: 200"), 3U);
    }

    /// From 16.5 to 18.5: four failures of all kinds, then a success.
    void expectFourFailuresAreSilent(WatchedMonitor& failing)
    {
        m_script.answerChecks({BUSY,
                               {"HTTP/1.1 200 OK\r\n", Answer::FLOOD, "More: headers\r\n"},
                               {"", Answer::CLOSE},
                               {"hello\r\n\r\n", Answer::CLOSE}},
                              answerOf("200 OK"));
        ASSERT_TRUE(failing.waitForStatus(1, 20s));
        expectStatus(failing.status().at(0), SRServiceMonitor::REACHABLE, 12);
        EXPECT_EQ(requestsFor(""), 9U);
    }

    /// From 22 to 24: a registry that answers, but not with 200, is as good as none, and it is told again.
    void expectSecondOutage(std::vector<WatchedMonitor>& lonely)
    {
        const std::size_t checks = requestsFor("");
        m_log.clear();
        m_script.answerChecks({}, BUSY);
        for (WatchedMonitor& watched: lonely)
        {
            ASSERT_TRUE(watched.waitForStatus(2, 20s));
            const auto status = watched.status();
            expectStatus(status[1], SRServiceMonitor::UNREACHABLE, status[0].seconds + 12);
            EXPECT_TRUE(watched.gone().empty());
        }
        EXPECT_EQ(requestsFor("") - checks, 15U) << "five each";
        EXPECT_EQ(requestsFor("unasked"), 0U) << "entries are not checked meanwhile";
        EXPECT_EQ(traces("checkServiceRegistry Check for Service Registry, result: 503"), 15U);
        EXPECT_EQ(traces("checkServiceRegistry ServiceRegistry unavailable. (retry count: 4)"), 3U);
    }

    /// From 25 to 26.5: three failures are silent, and the next success is told again.
    void expectShortOutageIsSilent(WatchedMonitor& main)
    {
        for (const char* id: {"lost3", "cut", "behind"})
            main.monitor().addUUID(id);
        m_script.answerChecks({BUSY, BUSY, BUSY}, answerOf("200 OK"));
        ASSERT_TRUE(main.waitForStatus(2, 20s));
        expectStatus(main.status().at(1), SRServiceMonitor::REACHABLE, 21.5);
    }

    /// At 26.5: a connection that is cut ends the walk: what was found gone before is not told, what was under test
    /// stays.
    void expectCutEndsTheWalk(WatchedMonitor& main)
    {
        ASSERT_TRUE(waitFor([&] { return m_errors.count == 1; }, 20s));
        EXPECT_EQ(requestsFor("anew"), 1U) << "a listener may add an id";
        EXPECT_EQ(requestsFor("moved"), 1U) << "a listener may remove an id";
        EXPECT_EQ(requestsFor("present"), 2U);
        EXPECT_EQ(requestsFor("elsewhere"), 2U);
        EXPECT_EQ(requestsFor("lost1"), 1U) << "what is gone is not watched any more";
        EXPECT_EQ(requestsFor("cut"), 1U);
        EXPECT_EQ(requestsFor("behind"), 0U);
        EXPECT_EQ(main.gone().size(), 3U);
        m_log.clear();
        main.monitor().removeUUID("lost3");
        EXPECT_EQ(m_log.count(Message::PRIO_TRACE), 0U);
        main.monitor().removeUUID("cut");
        EXPECT_EQ(m_log.count(Message::PRIO_TRACE), 1U);
        main.end();
    }

    /// At 28.5: one failure more is the fifth, since a success in between does not forget the first four.
    void expectFailuresAddUp(WatchedMonitor& failing)
    {
        m_script.answerChecks({BUSY}, answerOf("200 OK"));
        ASSERT_TRUE(failing.waitForStatus(2, 20s));
        expectStatus(failing.status().at(1), SRServiceMonitor::UNREACHABLE, failing.status().at(0).seconds + 10);
        failing.end();
    }

    Script m_script;
    std::optional<ClosedRegistryPort> m_port{std::in_place};
    std::optional<FakeRegistry> m_registry;
    CapturedLog m_log;
    CountingErrorHandler m_errors;
};

TEST_F(LongWatchTest, RegistryAndEntriesAreFollowed)
{
    const auto start = Clock::now();
    std::vector<WatchedMonitor> lonely(3);
    for (WatchedMonitor& watched: lonely)
        watched.monitor().addUUID("unasked");
    std::this_thread::sleep_until(start + 3s);
    WatchedMonitor hanging;
    std::this_thread::sleep_until(start + 5s);
    WatchedMonitor main, quiet, walking;
    for (int i = 0; i < 200; ++i)
        walking.monitor().addUUID("slow" + std::to_string(i));
    for (const char* id: {"present", "lost1", "moved", "lost2", "twice", "lost2", "twice", "half", "elsewhere", "half"})
        main.monitor().addUUID(id);
    main.monitor().removeUUID("half");
    main.onEntryGone = [&](const std::string& id)
    {
        if (id == "lost1")
            main.monitor().addUUID("anew");
        main.monitor().removeUUID("moved");
    };
    std::this_thread::sleep_until(start + 6500ms);
    WatchedMonitor failing;

    ASSERT_NO_FATAL_FAILURE(expectFirstOutage(lonely));
    m_script.answerChecks({{"", Answer::HANG}}, answerOf("200 OK"));
    startRegistry();
    std::future<double> secondsToEnd = endWhileTheRegistryHangs(hanging);
    ASSERT_NO_FATAL_FAILURE(expectEntriesAreFollowed(main));
    endDuringAWalk(walking, quiet);
    ASSERT_NO_FATAL_FAILURE(expectFourFailuresAreSilent(failing));
    ASSERT_NO_FATAL_FAILURE(expectSecondOutage(lonely));
    for (WatchedMonitor& watched: lonely)
        watched.end();
    ASSERT_NO_FATAL_FAILURE(expectShortOutageIsSilent(main));
    ASSERT_NO_FATAL_FAILURE(expectCutEndsTheWalk(main));
    ASSERT_NO_FATAL_FAILURE(expectFailuresAddUp(failing));

    ASSERT_EQ(secondsToEnd.wait_for(20s), std::future_status::ready) << "its destructor waits for ever";
    EXPECT_NEAR(secondsToEnd.get(), 10, 3) << "a check is given ten seconds";
    EXPECT_TRUE(hanging.status().empty());
    for (const std::string& request: m_registry->requests())
        EXPECT_EQ(request, headOf(request.substr(6, request.find(' ', 5) - 6)));
    EXPECT_EQ(static_cast<std::size_t>(m_registry->connections()), m_registry->requests().size())
        << "each check has a connection of its own";
}

} // namespace
