#include "IoLoop.h"

#include "Connection.h"
#include "ConnectionQueue.h"
#include "LimitsAndTimes.h"

#include <Time/Now.h>

#include <Poco/Exception.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Kesa::Net
{

using Kesa::Util::ScopedLock;

IoLoop::IoLoop(ConnectionQueue& ready, ConnectionQueue& ended)
    : m_ready(ready),
      m_ended(ended),
      m_epoll(::epoll_create1(EPOLL_CLOEXEC)),
      m_wakeUp(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      m_buffer(READ_PER_TURN)
{
    epoll_event registration = {};
    registration.events = EPOLLIN;
    registration.data.ptr = nullptr; // all others point to their connection
    if (m_epoll >= 0 && m_wakeUp >= 0 && ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_wakeUp, &registration) == 0)
        return;
    const std::string error = std::strerror(errno);
    ::close(m_epoll);
    ::close(m_wakeUp);
    throw Poco::SystemException("Cannot poll websocket connections", error);
}

IoLoop::~IoLoop()
{
    ::close(m_epoll);
    ::close(m_wakeUp);
}

bool IoLoop::add(const Entry& connection)
{
    {
        const ScopedLock lock(m_mutex);
        if (m_isRefusing)
            return false;
        m_connections.insert(connection);
        m_posted.push_back(connection);
        ++m_open;
    }
    wake();
    return true;
}

void IoLoop::post(const Entry& connection)
{
    {
        const ScopedLock lock(m_mutex);
        m_posted.push_back(connection);
    }
    wake();
}

void IoLoop::refuse()
{
    const ScopedLock lock(m_mutex);
    m_isRefusing = true;
    if (m_connections.empty())
        m_isEmpty.set();
}

bool IoLoop::waitUntilEmpty(long milliseconds)
{
    return m_isEmpty.tryWait(milliseconds);
}

std::vector<IoLoop::Entry> IoLoop::connections() const
{
    const ScopedLock lock(m_mutex);
    return {m_connections.begin(), m_connections.end()};
}

void IoLoop::quit()
{
    m_isQuitting = true;
    wake();
}

void IoLoop::wake()
{
    const std::uint64_t one = 1;
    while (::write(m_wakeUp, &one, sizeof one) < 0 && errno == EINTR)
    {
    }
}

void IoLoop::run()
{
    while (!m_isQuitting)
        turn();
    closeAll();
}

void IoLoop::turn()
{
    std::vector<epoll_event> events;
    wait(events);
    const Poco::Clock now = Kesa::Util::now();
    for (const epoll_event& event: events)
        dispatch(event, now);
    lookAtPosted(now);
    lookAtOverdue(now);
    m_gone.clear();
}

void IoLoop::wait(std::vector<epoll_event>& events)
{
    constexpr int MOST_EVENTS = 256;
    int timeout = -1;
    if (!m_deadlines.empty())
    {
        const Poco::Clock::ClockDiff left = m_deadlines.begin()->first - Kesa::Util::now().microseconds();
        timeout = static_cast<int>(std::clamp<Poco::Clock::ClockDiff>(left / 1000 + 1, 0, LONGEST_WAIT_MS));
    }
    events.resize(MOST_EVENTS);
    const int count = ::epoll_wait(m_epoll, events.data(), MOST_EVENTS, timeout);
    events.resize(static_cast<std::size_t>(std::max(count, 0)));
}

void IoLoop::dispatch(const epoll_event& event, const Poco::Clock& now)
{
    if (!event.data.ptr)
    {
        std::uint64_t count;
        while (::read(m_wakeUp, &count, sizeof count) < 0 && errno == EINTR)
        {
        }
        return;
    }
    Connection& connection = *static_cast<Connection*>(event.data.ptr);
    try
    {
        if (event.events & EPOLLIN)
            connection.read(m_buffer.data(), m_buffer.size(), now);
        else if (event.events & (EPOLLERR | EPOLLHUP))
            connection.breakOff("the client has gone");
        if (event.events & EPOLLOUT)
            connection.flush(now);
    }
    catch (const std::exception& error) // no memory for what this peer sent
    {
        connection.breakOff(error.what());
    }
    settle(connection, now);
}

void IoLoop::lookAtPosted(const Poco::Clock& now)
{
    std::vector<Entry> posted;
    {
        const ScopedLock lock(m_mutex);
        posted.swap(m_posted);
        std::erase_if(posted, [this](const Entry& entry) KESA_NO_THREAD_SAFETY_ANALYSIS
                      { return m_connections.count(entry) == 0; });
    }
    for (const Entry& connection: posted)
    {
        connection->start(m_epoll, now);
        settle(*connection, now);
    }
}

void IoLoop::lookAtOverdue(const Poco::Clock& now)
{
    while (!m_deadlines.empty() && m_deadlines.begin()->first <= now.microseconds())
    {
        Connection& connection = *m_deadlines.begin()->second;
        m_deadlines.erase(m_deadlines.begin());
        m_scheduledAt.erase(&connection);
        settle(connection, now);
    }
}

/// Lets the connection go on, and does what follows from it.
void IoLoop::settle(Connection& connection, const Poco::Clock& now)
{
    const Connection::Step step = connection.step(now);
    if (step.hasJustEnded)
        --m_open;
    if (step.hasMessages)
        m_ready.push(connection.shared_from_this());
    if (step.isOver)
        m_ended.push(connection.shared_from_this());
    if (step.isClosed)
        forget(connection);
    else
        schedule(connection, std::max(step.deadline, now + 1));
}

/// Deadlines mostly move later; then the connection is looked at in vain once, and asked again. Only one that moves
/// earlier is entered anew.
void IoLoop::schedule(Connection& connection, const Poco::Clock& deadline)
{
    const auto [entry, isNew] = m_scheduledAt.try_emplace(&connection, deadline.microseconds());
    if (!isNew && entry->second <= deadline.microseconds())
        return;
    if (!isNew)
        m_deadlines.erase({entry->second, &connection});
    entry->second = deadline.microseconds();
    m_deadlines.insert({entry->second, &connection});
}

void IoLoop::forget(Connection& connection)
{
    const auto scheduled = m_scheduledAt.find(&connection);
    if (scheduled != m_scheduledAt.end())
    {
        m_deadlines.erase({scheduled->second, &connection});
        m_scheduledAt.erase(scheduled);
    }
    m_gone.push_back(connection.shared_from_this());
    const ScopedLock lock(m_mutex);
    m_connections.erase(m_gone.back());
    if (m_isRefusing && m_connections.empty())
        m_isEmpty.set();
}

void IoLoop::closeAll()
{
    for (const Entry& connection: connections())
    {
        connection->breakOff("the service has stopped");
        settle(*connection, Kesa::Util::now());
    }
    m_gone.clear();
}

} // namespace Kesa::Net
