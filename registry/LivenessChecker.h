#pragma once

#include "Entry.h"
#include "LivenessCheck.h"

#include <Mutex.h>

#include <Poco/Clock.h>

#include <functional>
#include <list>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace Kesa::Registry
{

/// Asks every watched service again and again whether it lives, many at once, and tells which do not answer any more.
///
/// A service that dies is found out after at most `failures` periods, and one that hangs `timeout` later; see
/// docs/registry.md for the figures. A check that this machine cannot make for want of descriptors says nothing about
/// the service and is made later.
///
///     LivenessChecker checker(isWatched, gone, options);
///     checker.watch(*entry, true);
///     checker.start();
///
/// Threads:  watch() from any thread, start() and stop() from one at a time. One thread of its own makes all checks and
///           calls back.
/// Shutdown: stop() (idempotent) waits for a running callback; the destructor calls it. Not from a callback.
class LivenessChecker
{
public:
    static constexpr long PERIOD = 5000;          ///< ms from the start of a check to that of the next
    static constexpr long TIMEOUT = 2000;         ///< ms that a service has to answer
    static constexpr unsigned FAILURES = 3;       ///< failed checks in a row that end the patience
    static constexpr std::size_t PARALLEL = 8192; ///< so that 20,000 that hang still take no more than a period
    static constexpr std::size_t DESCRIPTORS = 4; ///< one descriptor in so many is for checks, the rest for clients

    struct Options
    {
        long period = PERIOD;
        long timeout = TIMEOUT;
        unsigned failures = FAILURES;
        std::size_t parallel = PARALLEL; ///< checks at once
    };

    /// True if the entry with this id is still to be watched.
    typedef std::function<bool(const std::string& id)> IsWatched;
    /// These do not answer. They are checked on, and told again, as long as they are watched.
    typedef std::function<void(const std::vector<std::string>& ids)> Gone;

    /// What a callback raises is logged, and its round of checks ends there.
    LivenessChecker(IsWatched isWatched, Gone gone, const Options& options);
    ~LivenessChecker();
    LivenessChecker(const LivenessChecker&) = delete;
    LivenessChecker& operator=(const LivenessChecker&) = delete;

    /// Begins to check a service: now, or a period later.
    void watch(const Entry& entry, bool atOnce);
    void start();
    void stop();

private:
    typedef LivenessCheck::State State;
    /// What is known of one service.
    struct Watched
    {
        std::string id;
        Poco::Net::SocketAddress address;
        std::string uri;
        unsigned failures = 0; ///< in a row
    };
    /// By the time of the next check. Its nodes move from place to place, so that no lack of memory loses a service.
    typedef std::multimap<Poco::Clock, Watched> Schedule;
    /// A check that is under way.
    struct Running
    {
        Schedule::node_type watched;
        Poco::Clock begin;
        LivenessCheck check;
        std::list<Running>::iterator place; ///< its own
    };

    void run();
    bool takeNew();
    void checkRound();
    void waitForEvents();
    void onEvent(Running& running);
    State await(Running& running, int operation) const;
    void expire();
    void startDue();
    bool startFirst();
    void conclude(Running& running, State state);
    void setStarved(bool isStarved);
    void report();
    int timeToWait() const;
    void wake() const;

    const IsWatched m_isWatched;
    const Gone m_gone;
    const Options m_options;
    const int m_epoll;
    const int m_wake; ///< an eventfd, ready when there is something new
    std::thread m_thread;

    // Of the thread alone, once it runs.
    std::size_t m_parallel = 0;      ///< what the options and the limit of descriptors allow
    Schedule m_due;                  ///< those whose check is not under way
    std::list<Running> m_running;    ///< the oldest first
    std::vector<std::string> m_dead; ///< to be told at the end of this round
    bool m_isStarved = false;        ///< checks wait for descriptors

    Kesa::Util::FastMutex m_mutex;           ///< guards the two below
    Schedule m_new KESA_GUARDED_BY(m_mutex); ///< for m_due
    bool m_isStopping KESA_GUARDED_BY(m_mutex) = false;
};

} // namespace Kesa::Registry
