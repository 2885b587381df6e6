#include "LivenessChecker.h"

#include "GuardedStep.h"

#include <LogStream.h>
#include <Time/Now.h>

#include <Poco/Exception.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <unistd.h>

namespace Kesa::Registry
{

using Kesa::Util::FastMutex;
using Kesa::Util::now;
using Kesa::Util::ScopedLock;

namespace
{

constexpr long STARVED_PAUSE = 100; ///< ms until what this machine lacked something for is tried again
constexpr int START_SLICE = 256;    ///< checks begun before the answers of others are looked at

Poco::Clock later(Poco::Clock from, long milliseconds)
{
    from += Poco::Clock::ClockDiff(milliseconds) * 1000;
    return from;
}

int created(int descriptor)
{
    if (descriptor < 0)
        throw Poco::SystemException("No descriptor is left for the checks of services");
    return descriptor;
}

/// Checks must not take the descriptors that clients need.
std::size_t allowedChecks(std::size_t wanted)
{
    constexpr std::size_t LEAST = 16;
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return std::min(wanted, LEAST);
    return std::min(wanted, std::max<std::size_t>(limit.rlim_cur / LivenessChecker::DESCRIPTORS, LEAST));
}

} // namespace

LivenessChecker::LivenessChecker(IsWatched isWatched, Gone gone, const Options& options)
    : m_isWatched(std::move(isWatched)),
      m_gone(std::move(gone)),
      m_options(options),
      m_epoll(created(::epoll_create1(EPOLL_CLOEXEC))),
      m_wake(created(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)))
{
    epoll_event event{};
    event.events = EPOLLIN;
    ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_wake, &event); // its data is null
}

LivenessChecker::~LivenessChecker()
{
    stop();
    ::close(m_wake);
    ::close(m_epoll);
}

void LivenessChecker::watch(const Entry& entry, bool atOnce)
{
    {
        ScopedLock<FastMutex> lock(m_mutex);
        m_new.emplace(later(now(), atOnce ? 0 : m_options.period), Watched{entry.id, entry.address, entry.uri});
    }
    if (atOnce) // else the thread looks again before the first check is due
        wake();
}

void LivenessChecker::start()
{
    if (m_thread.joinable())
        return;
    m_parallel = allowedChecks(m_options.parallel);
    m_thread = std::thread([this] { run(); });
}

void LivenessChecker::stop()
{
    {
        ScopedLock<FastMutex> lock(m_mutex);
        m_isStopping = true;
    }
    wake();
    if (m_thread.joinable())
        m_thread.join();
}

void LivenessChecker::wake() const
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(m_wake, &one, sizeof one);
}

void LivenessChecker::run()
{
    bool goesOn = true;
    const auto checkAll = [&]
    {
        while ((goesOn = takeNew()))
            checkRound();
    };
    while (goesOn)
        if (!Kesa::Host::runGuarded("Checking which services live", checkAll))
            std::this_thread::sleep_for(std::chrono::milliseconds(STARVED_PAUSE));
}

void LivenessChecker::checkRound()
{
    waitForEvents(); // before expire(): an answer that is here is no late answer
    expire();
    startDue();
    report();
}

/// False when it is time to stop.
bool LivenessChecker::takeNew()
{
    ScopedLock<FastMutex> lock(m_mutex);
    m_due.merge(m_new);
    return !m_isStopping;
}

void LivenessChecker::waitForEvents()
{
    std::array<epoll_event, 512> events;
    int count = 0;
    int wait = timeToWait();
    do
    {
        count = ::epoll_wait(m_epoll, events.data(), static_cast<int>(events.size()), wait);
        for (int i = 0; i < count; ++i)
        {
            std::uint64_t wakes = 0;
            if (auto* running = static_cast<Running*>(events[static_cast<std::size_t>(i)].data.ptr))
                onEvent(*running);
            else [[maybe_unused]]
                const ssize_t ignored = ::read(m_wake, &wakes, sizeof wakes);
        }
        wait = 0;
    } while (count == static_cast<int>(events.size()));
}

/// Milliseconds until something is to be done.
int LivenessChecker::timeToWait() const
{
    Poco::Clock next = later(now(), m_options.period);
    if (!m_running.empty())
        next = std::min(next, later(m_running.front().begin, m_options.timeout));
    if (!m_due.empty() && m_running.size() < m_parallel)
        next = std::min(next, m_due.begin()->first);
    const Poco::Clock::ClockDiff left = next - now();
    return left <= 0 ? 0 : static_cast<int>(left / 1000 + 1);
}

void LivenessChecker::expire()
{
    const Poco::Clock present = now();
    while (!m_running.empty() && later(m_running.front().begin, m_options.timeout) <= present)
        conclude(m_running.front(), State::Dead);
}

void LivenessChecker::startDue()
{
    const Poco::Clock present = now();
    for (int i = 0; i < START_SLICE && m_running.size() < m_parallel; ++i)
    {
        if (m_due.empty() || m_due.begin()->first > present)
            return;
        if (!m_isWatched(m_due.begin()->second.id))
            m_due.erase(m_due.begin());
        else if (!startFirst())
            return;
    }
}

/// Begins the check that is due first. False if nothing can be started at the moment.
bool LivenessChecker::startFirst()
{
    Running& running = m_running.emplace_back();
    running.watched = m_due.extract(m_due.begin());
    running.begin = now();
    running.place = std::prev(m_running.end());
    const Watched& watched = running.watched.mapped();
    State state = running.check.begin(watched.address, watched.uri);
    if (state == State::Waiting)
        state = await(running, EPOLL_CTL_ADD);
    if (state != State::Waiting)
        conclude(running, state);
    setStarved(state == State::NotAsked);
    return state != State::NotAsked;
}

/// Waits on for what the check needs next. NotAsked if the machine has no room for one more to wait for.
LivenessChecker::State LivenessChecker::await(Running& running, int operation) const
{
    epoll_event event{};
    event.events = running.check.events();
    event.data.ptr = &running;
    const bool waits = ::epoll_ctl(m_epoll, operation, running.check.descriptor(), &event) == 0;
    return waits ? State::Waiting : State::NotAsked;
}

void LivenessChecker::onEvent(Running& running)
{
    State state = running.check.proceed();
    if (state == State::Waiting)
        state = await(running, EPOLL_CTL_MOD);
    if (state != State::Waiting)
        conclude(running, state);
}

/// Ends a check, with its descriptor.
void LivenessChecker::conclude(Running& running, State state)
{
    Schedule::node_type node = std::move(running.watched);
    node.key() = state == State::NotAsked ? later(now(), STARVED_PAUSE) : later(running.begin, m_options.period);
    m_running.erase(running.place);
    Watched& watched = m_due.insert(std::move(node))->second;
    if (state == State::Alive)
        watched.failures = 0;
    else if (state == State::Dead && ++watched.failures >= m_options.failures)
        m_dead.push_back(watched.id);
}

void LivenessChecker::setStarved(bool isStarved)
{
    if (isStarved && !m_isStarved)
        KESA_LOG_WARNING(
            "Services cannot be checked at the moment: the process lacks descriptors, ports or memory. Raise "
            "its limit of open files.");
    m_isStarved = isStarved;
}

void LivenessChecker::report()
{
    const std::vector<std::string> dead = std::move(m_dead);
    m_dead.clear();
    if (!dead.empty())
        m_gone(dead);
}

} // namespace Kesa::Registry
