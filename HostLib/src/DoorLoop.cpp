#include "DoorLoop.h"

#include "ConnectionCaps.h"
#include "ErrorDocument.h"
#include "LibraryThread.h"
#include "LogStream.h"
#include "Time/Now.h"

#include <Poco/Error.h>
#include <Poco/Exception.h>

#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string_view>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kesa::Host
{

using Kesa::Util::FastMutex;
using Kesa::Util::ScopedLock;

namespace
{

constexpr std::uint64_t LISTENER = 0;
constexpr std::uint64_t WAKE = 1;
constexpr int TICK = 100;                   // ms: how late a deadline may be noticed
constexpr int ACCEPT_SLICE = 64;            // connections accepted before the others' turn
constexpr std::size_t MAX_EVENTS = 256;     // connections looked at in one round
constexpr std::size_t MAX_EMPTY_LINES = 16; // bytes of CR and LF that may stand before a request
constexpr std::uint64_t WHOLE_REQUEST =
    32 * 1024; // a shorter request waits here for its body: the kernel holds as much
constexpr std::size_t MAX_DISCARDED = 8 * 1024 * 1024;           // what a client may still send after the last answer
constexpr long WARNING_PERIOD = 10000;                           // ms between two warnings of the same lack
constexpr unsigned READ_EVENTS = EPOLLIN | EPOLLRDHUP | EPOLLET; // edges: what was only peeked at stays readable

Poco::Clock after(long milliseconds)
{
    Poco::Clock moment = Kesa::Util::now();
    moment += milliseconds * 1000;
    return moment;
}

int checked(int descriptor)
{
    if (descriptor < 0)
        throw Poco::SystemException("No descriptor for the front door's loop: " + Poco::Error::getMessage(errno));
    return descriptor;
}

} // namespace

DoorLoop::DoorLoop(Listener& listener, ConnectionCaps& caps, std::shared_ptr<DoorSocket::Shared> shared,
                   const FrontDoor::Options& options, Dispatch dispatch)
    : m_listener(listener),
      m_caps(caps),
      m_shared(std::move(shared)),
      m_options(options),
      m_dispatch(std::move(dispatch)),
      m_epoll(checked(::epoll_create1(EPOLL_CLOEXEC))),
      m_wake(checked(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)))
{
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = WAKE;
    ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_wake, &event);
}

DoorLoop::~DoorLoop()
{
    ::close(m_wake);
    ::close(m_epoll);
}

void DoorLoop::run()
{
    Kesa::Util::LibraryThread mark;
    std::array<epoll_event, MAX_EVENTS> events;
    enableListener(true);
    while (!isDone())
    {
        const int count = ::epoll_wait(m_epoll, events.data(), static_cast<int>(events.size()), timeout());
        for (int i = 0; i < count; ++i)
            handle(events[static_cast<std::size_t>(i)]);
        onTick();
    }
    enableListener(false);
    m_connections.clear();
}

void DoorLoop::handle(const epoll_event& event)
{
    const unsigned events = event.events;
    if (event.data.u64 == LISTENER)
        acceptSome();
    else if (event.data.u64 == WAKE)
        takeReturned();
    else // unless it ended earlier in this round
        guarded(event.data.u64, [&](DoorConnection& connection) { onEvent(connection, events); });
}

/// Does something with a connection of the map. What goes wrong there ends that connection and nothing else.
template <class Action>
void DoorLoop::guarded(std::uint64_t id, Action action)
{
    const auto found = m_connections.find(id);
    if (found == m_connections.end())
        return;
    try
    {
        action(*found->second);
    }
    catch (const std::exception& e)
    {
        KESA_LOG_ERROR("A connection at the front door failed: " << e.what());
        m_connections.erase(id);
    }
}

// --- accepting ---

void DoorLoop::enableListener(bool on)
{
    if (on == m_isListening)
        return;
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = LISTENER;
    ::epoll_ctl(m_epoll, on ? EPOLL_CTL_ADD : EPOLL_CTL_DEL, m_listener.descriptor(), &event);
    m_isListening = on;
}

void DoorLoop::acceptSome()
{
    for (int i = 0; i < ACCEPT_SLICE; ++i)
    {
        int descriptor = -1;
        std::string address;
        switch (m_listener.accept(descriptor, address))
        {
        case Listener::Outcome::Accepted:
            admit(descriptor, address);
            break;
        case Listener::Outcome::Refused:
            warnOfExhaustion();
            break;
        case Listener::Outcome::Empty:
            return;
        case Listener::Outcome::Exhausted:
            warnOfExhaustion();
            return enableListener(false); // until the next tick, so that the loop does not spin
        }
    }
}

void DoorLoop::warnOfExhaustion()
{
    if (Kesa::Util::now() < m_nextWarning)
        return;
    m_nextWarning = after(WARNING_PERIOD);
    KESA_LOG_WARNING(
        "The process has no descriptor left for new connections: they are refused. Raise its limit of open "
        "files, or lower maxConnections.");
}

void DoorLoop::admit(int descriptor, const std::string& address)
{
    if (!m_caps.enter(address))
        return Listener::refuse(descriptor,
                                rawErrorAnswer(503, "There are too many connections, or too many from this address."));
    const Poco::Net::StreamSocket socket(new DoorSocket(descriptor, m_shared));
    auto connection = std::make_unique<DoorConnection>(++m_lastId, socket, address, m_caps);
    const int on = 1;
    ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    connection->deadline = after(m_options.headTimeout);
    m_connections.emplace(m_lastId, std::move(connection));
    guarded(m_lastId, [this](DoorConnection& admitted) { watch(admitted, READ_EVENTS); });
}

void DoorLoop::watch(DoorConnection& connection, unsigned events)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = connection.id;
    const int operation = connection.isWatched ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (::epoll_ctl(m_epoll, operation, connection.descriptor(), &event) != 0)
        throw Poco::SystemException("epoll refuses a connection: " + Poco::Error::getMessage(errno));
    connection.isWatched = true;
}

// --- reading ---

void DoorLoop::onEvent(DoorConnection& connection, unsigned events)
{
    switch (connection.phase)
    {
    case DoorConnection::Phase::Reading:
        return read(connection, (events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0);
    case DoorConnection::Phase::Writing:
        return write(connection);
    case DoorConnection::Phase::Lingering:
        return discard(connection);
    }
}

void DoorLoop::read(DoorConnection& connection, bool peerIsDone)
{
    while (true)
    {
        const ssize_t count =
            ::recv(connection.descriptor(), m_buffer.data(), m_buffer.size(), MSG_PEEK | MSG_DONTWAIT);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK))
            return;
        if (count <= 0)
            return drop(connection);
        if (!skipEmptyLines(connection, static_cast<std::size_t>(count)))
            return onReceived(connection, static_cast<std::size_t>(count), peerIsDone);
        if (connection.skipped > MAX_EMPTY_LINES)
            return refuse(connection, 400, "There are too many empty lines before the request.");
    }
}

/// Old clients send an empty line after a body: it is read here and now. True if there was one.
bool DoorLoop::skipEmptyLines(DoorConnection& connection, std::size_t received)
{
    std::size_t empty = 0;
    while (empty + 1 < received && m_buffer[empty] == '\r' && m_buffer[empty + 1] == '\n')
        empty += 2;
    if (empty == 0)
        return false;
    connection.skipped += empty;
    return ::recv(connection.descriptor(), m_buffer.data(), empty, MSG_DONTWAIT) == static_cast<ssize_t>(empty);
}

void DoorLoop::onReceived(DoorConnection& connection, std::size_t received, bool peerIsDone)
{
    if (!connection.hasBegun && connection.isReused)
        connection.deadline = after(m_options.headTimeout); // the idle time is over
    connection.hasBegun = true;
    const std::string_view text(m_buffer.data(), received);
    if (text == "\r")
        return; // half of an empty line
    switch (connection.parser.parse(text))
    {
    case RequestHeadParser::State::Incomplete:
        return peerIsDone ? refuse(connection, 400, "The connection ended before the request was whole.") : void();
    case RequestHeadParser::State::Refused:
        return refuse(connection, connection.parser.status(), connection.parser.message());
    case RequestHeadParser::State::Complete:
        return onHead(connection, peerIsDone);
    }
}

void DoorLoop::onHead(DoorConnection& connection, bool peerIsDone)
{
    const RequestHead& head = connection.parser.head();
    const std::uint64_t length = head.length + head.bodyLength;
    const bool waitsForBody = !head.expectsContinue && head.bodyLength > 0 && length <= WHOLE_REQUEST;
    if (!waitsForBody || connection.door().hasArrived(length))
        return dispatch(connection);
    if (peerIsDone)
        return refuse(connection, 400, "The connection ended before the request was whole.");
    if (!connection.isHeadWhole)
        connection.deadline = after(m_options.bodyTimeout);
    connection.isHeadWhole = true;
}

void DoorLoop::dispatch(DoorConnection& connection)
{
    ::epoll_ctl(m_epoll, EPOLL_CTL_DEL, connection.descriptor(), nullptr);
    connection.isWatched = false;
    auto node = m_connections.extract(connection.id);
    ++m_away;
    m_dispatch(std::move(node.mapped()));
}

void DoorLoop::refuse(DoorConnection& connection, int status, const std::string& message)
{
    KESA_LOG_INFO("Refused a request of " << connection.address << " with " << status << ": " << message);
    const std::string answer = rawErrorAnswer(status, message);
    connection.door().sendBytes(answer.data(), static_cast<int>(answer.size()));
    connection.closes = true;
    connection.answerEnd = after(FrontDoor::ANSWER_TIMEOUT);
    write(connection);
}

// --- answering ---

void DoorLoop::giveBack(Connection connection)
{
    {
        ScopedLock<FastMutex> lock(m_mutex);
        m_returned.push_back(std::move(connection));
    }
    forget();
}

void DoorLoop::forget()
{
    --m_away;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(m_wake, &one, sizeof one); // a full counter wakes as well
}

void DoorLoop::takeReturned()
{
    std::uint64_t count = 0;
    [[maybe_unused]] const ssize_t ignored = ::read(m_wake, &count, sizeof count);
    std::vector<Connection> returned;
    {
        ScopedLock<FastMutex> lock(m_mutex);
        returned.swap(m_returned);
    }
    for (Connection& connection: returned)
    {
        const std::uint64_t id = connection->id;
        connection->answerEnd = after(FrontDoor::ANSWER_TIMEOUT);
        m_connections.emplace(id, std::move(connection));
        guarded(id, [this](DoorConnection& back) { write(back); });
    }
}

/// Sends what waits. What comes next depends on how far that went.
void DoorLoop::write(DoorConnection& connection)
{
    DoorSocket& door = connection.door();
    const bool isSent = door.flush();
    if (door.failed())
        return drop(connection);
    if (isSent)
        return connection.closes || m_isStopping ? linger(connection) : nextRequest(connection);
    connection.deadline = std::min(after(m_options.writeTimeout), connection.answerEnd);
    if (connection.phase != DoorConnection::Phase::Writing || !connection.isWatched)
        watch(connection, EPOLLOUT);
    connection.phase = DoorConnection::Phase::Writing;
}

void DoorLoop::nextRequest(DoorConnection& connection)
{
    connection.reset();
    connection.isReused = true;
    connection.deadline = after(m_options.idleTimeout);
    watch(connection, READ_EVENTS); // tells at once of what has arrived meanwhile
}

/// A close with unread input makes the kernel reset the connection, and the end of the answer may be lost. So the end
/// is announced, and input thrown away until the client closes too.
void DoorLoop::linger(DoorConnection& connection)
{
    ::shutdown(connection.descriptor(), SHUT_WR);
    if (m_isStopping && !connection.door().hasArrived(1))
        return drop(connection); // nothing unread, and no time to wait
    connection.phase = DoorConnection::Phase::Lingering;
    connection.deadline = after(m_options.lingerTimeout);
    watch(connection, EPOLLIN | EPOLLRDHUP);
}

void DoorLoop::discard(DoorConnection& connection)
{
    const ssize_t count = ::recv(connection.descriptor(), m_buffer.data(), m_buffer.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
        return;
    if (count > 0)
        connection.discarded += static_cast<std::size_t>(count);
    if (count <= 0 || connection.discarded > MAX_DISCARDED)
        drop(connection);
}

/// Closes the connection. It is gone when this returns.
void DoorLoop::drop(DoorConnection& connection)
{
    m_connections.erase(connection.id);
}

// --- time ---

void DoorLoop::onTick()
{
    if (m_stopRequested && !m_isStopping)
        beginStop();
    const Poco::Clock now = Kesa::Util::now();
    if (now < m_nextTick)
        return;
    m_nextTick = after(TICK);
    if (!m_isStopping)
        enableListener(true);
    std::vector<std::uint64_t> late;
    for (const auto& [id, connection]: m_connections)
        if (connection->deadline <= now)
            late.push_back(id);
    for (const std::uint64_t id: late)
        guarded(id, [this](DoorConnection& connection) { onDeadline(connection); });
}

void DoorLoop::onDeadline(DoorConnection& connection)
{
    const bool isIdle = connection.isReused && !connection.hasBegun;
    if (connection.phase != DoorConnection::Phase::Reading || isIdle)
        return drop(connection);
    refuse(connection, 408, "The request did not arrive in time.");
}

int DoorLoop::timeout() const
{
    return m_connections.empty() && m_isListening && !m_isStopping ? -1 : TICK;
}

void DoorLoop::stop()
{
    m_stopRequested = true;
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t ignored = ::write(m_wake, &one, sizeof one);
}

/// Nobody new is let in, and who has no whole request is closed; answers have a moment to leave.
void DoorLoop::beginStop()
{
    m_isStopping = true;
    m_stopEnd = after(FrontDoor::STOP_GRACE);
    enableListener(false);
    std::erase_if(m_connections,
                  [](const auto& entry) { return entry.second->phase == DoorConnection::Phase::Reading; });
}

bool DoorLoop::isDone()
{
    if (!m_isStopping || Kesa::Util::now() >= m_stopEnd)
        return m_isStopping;
    if (!m_connections.empty() || m_away != 0)
        return false;
    ScopedLock<FastMutex> lock(m_mutex);
    return m_returned.empty();
}

} // namespace Kesa::Host
