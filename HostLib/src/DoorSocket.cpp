#include "DoorSocket.h"

#include "Time/Now.h"

#include <Poco/Exception.h>
#include <Poco/Net/StreamSocket.h>

#include <algorithm>
#include <cerrno>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace Kesa::Host
{

DoorSocket::DoorSocket(int descriptor, std::shared_ptr<Shared> shared)
    : Poco::Net::StreamSocketImpl(descriptor), m_shared(std::move(shared))
{
}

DoorSocket::~DoorSocket()
{
    sent(m_waiting.size() - m_sent);
}

DoorSocket* DoorSocket::of(Poco::Net::StreamSocket& socket)
{
    return dynamic_cast<DoorSocket*>(socket.impl());
}

void DoorSocket::beginRequest(std::uint64_t bytes, const Poco::Clock& deadline)
{
    m_readable = bytes;
    m_deadline = deadline;
}

void DoorSocket::discardUnread()
{
    char buffer[4096];
    while (m_readable > 0)
    {
        const std::size_t wanted = std::min<std::uint64_t>(m_readable, sizeof buffer);
        const ssize_t count = ::recv(sockfd(), buffer, wanted, MSG_DONTWAIT);
        if (count <= 0)
            return fail();
        m_readable -= static_cast<std::uint64_t>(count);
    }
}

bool DoorSocket::hasArrived(std::uint64_t bytes) const
{
    int count = 0;
    return ::ioctl(sockfd(), FIONREAD, &count) == 0 && static_cast<std::uint64_t>(count) >= bytes;
}

bool DoorSocket::takesMore()
{
    pollfd poller{sockfd(), POLLOUT, 0};
    return flush() && ::poll(&poller, 1, 0) == 1 && (poller.revents & POLLOUT) != 0;
}

bool DoorSocket::release()
{
    const bool isClean = flush() && !m_failed;
    m_released = true;
    return isClean;
}

int DoorSocket::receiveBytes(void* buffer, int length, int flags)
{
    if (m_released)
        return Poco::Net::StreamSocketImpl::receiveBytes(buffer, length, flags);
    if (m_readable == 0)
        return 0;
    flush();
    waitForInput();
    const std::size_t wanted = std::min<std::uint64_t>(m_readable, static_cast<std::uint64_t>(length));
    const int count = Poco::Net::StreamSocketImpl::receiveBytes(buffer, static_cast<int>(wanted), flags);
    if (m_readable != UNLIMITED)
        m_readable -= static_cast<std::uint64_t>(count);
    return count;
}

void DoorSocket::waitForInput() const
{
    constexpr Poco::Clock::ClockDiff SLICE = 100; // milliseconds until a stop is noticed
    while (!m_shared->isStopping)
    {
        const Poco::Clock::ClockDiff left = (m_deadline - Kesa::Util::now()) / 1000;
        pollfd poller{sockfd(), POLLIN, 0};
        if (::poll(&poller, 1, static_cast<int>(std::clamp<Poco::Clock::ClockDiff>(left, 0, SLICE))) != 0)
            return;
        if (left <= 0)
            break;
    }
    throw Poco::TimeoutException("The request's body did not arrive in time");
}

int DoorSocket::sendBytes(const void* buffer, int length, int flags)
{
    if (m_released)
        return Poco::Net::StreamSocketImpl::sendBytes(buffer, length, flags);
    const auto count = static_cast<std::size_t>(length);
    if (m_failed || m_waiting.size() - m_sent + count > MAX_WAITING || m_shared->waiting + count > MAX_WAITING_TOTAL)
    {
        fail();
        throw Poco::IOException("The client does not take its answer");
    }
    m_waiting.append(static_cast<const char*>(buffer), count);
    m_shared->waiting += count;
    if (m_waiting.size() >= SEND_AT)
        flush();
    return length;
}

bool DoorSocket::flush()
{
    while (m_sent < m_waiting.size())
    {
        const ssize_t count =
            ::send(sockfd(), m_waiting.data() + m_sent, m_waiting.size() - m_sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (count >= 0)
            sent(static_cast<std::size_t>(count));
        else if (errno == EAGAIN || errno == EWOULDBLOCK)
            return false;
        else if (errno != EINTR)
            fail();
    }
    return true;
}

void DoorSocket::sent(std::size_t count)
{
    m_sent += count;
    m_shared->waiting -= count;
    if (m_sent == m_waiting.size())
    {
        std::string().swap(m_waiting); // an idle connection keeps no buffer
        m_sent = 0;
    }
}

void DoorSocket::fail()
{
    m_failed = true;
    sent(m_waiting.size() - m_sent);
}

bool DoorSocket::poll(const Poco::Timespan& timeout, int mode)
{
    return m_released ? Poco::Net::StreamSocketImpl::poll(timeout, mode) : true;
}

} // namespace Kesa::Host
