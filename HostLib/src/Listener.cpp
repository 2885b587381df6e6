#include "Listener.h"

#include "ErrorDocument.h"

#include <Poco/Error.h>
#include <Poco/Net/NetException.h>
#include <Poco/Net/SocketAddress.h>

#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kesa::Host
{

namespace
{

constexpr int BACKLOG = 1024; // clients that may wait while the loop is busy; the kernel has a bound of its own

int openReserve()
{
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

[[noreturn]] void raise(const std::string& address, Poco::UInt16 port, int error)
{
    const std::string where = "Cannot listen on " + address + ", port " + std::to_string(port) + ": ";
    if (error == EADDRINUSE)
        throw Poco::Net::NetException(where +
                                          "another process has that port. Stop it, or choose another port; with port 0 "
                                          "the system chooses one",
                                      error);
    if (error == EADDRNOTAVAIL)
        throw Poco::Net::NetException(where + "this machine does not have that address", error);
    throw Poco::Net::NetException(where + Poco::Error::getMessage(error), error);
}

Poco::Net::SocketAddress resolve(const std::string& address, Poco::UInt16 port)
{
    try
    {
        return Poco::Net::SocketAddress(address, port);
    }
    catch (const Poco::Exception& e)
    {
        throw Poco::Net::NetException("Cannot listen on " + address + ": that is no address of this machine",
                                      e.displayText());
    }
}

} // namespace

Listener::Listener(const std::string& address, Poco::UInt16 port)
    : m_refusal(rawErrorAnswer(503, "The service has no descriptor left for another connection.")),
      m_reserve(openReserve())
{
    try
    {
        listenOn(address, port);
    }
    catch (...)
    {
        ::close(m_descriptor);
        ::close(m_reserve);
        throw;
    }
}

Listener::~Listener()
{
    ::close(m_descriptor);
    ::close(m_reserve);
}

void Listener::listenOn(const std::string& address, Poco::UInt16 port)
{
    const Poco::Net::SocketAddress wanted = resolve(address, port);
    const int on = 1;
    const int off = 0;
    m_descriptor = ::socket(wanted.af(), SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (m_descriptor < 0)
        raise(address, port, errno);
    // A port of which old connections linger may be taken again at once. Two listeners on it are still refused.
    ::setsockopt(m_descriptor, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (wanted.af() == AF_INET6)
        ::setsockopt(m_descriptor, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
    if (::bind(m_descriptor, wanted.addr(), wanted.length()) != 0 || ::listen(m_descriptor, BACKLOG) != 0)
        raise(address, port, errno);
    sockaddr_storage bound{};
    socklen_t length = sizeof bound;
    if (::getsockname(m_descriptor, reinterpret_cast<sockaddr*>(&bound), &length) != 0)
        raise(address, port, errno);
    m_port = Poco::Net::SocketAddress(reinterpret_cast<sockaddr*>(&bound), length).port();
}

Listener::Outcome Listener::accept(int& connection, std::string& address)
{
    while (true)
    {
        sockaddr_storage peer{};
        socklen_t length = sizeof peer;
        connection = ::accept4(m_descriptor, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (connection >= 0)
        {
            address = Poco::Net::SocketAddress(reinterpret_cast<sockaddr*>(&peer), length).host().toString();
            return Outcome::Accepted;
        }
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return Outcome::Empty;
        if (errno == EMFILE || errno == ENFILE)
            return refuseOne();
        if (errno != EINTR && errno != ECONNABORTED && errno != EPROTO && errno != EPERM)
            return Outcome::Exhausted;
        // The connection was gone before it was accepted: the next one may be well.
    }
}

void Listener::refuse(int connection, const std::string& answer)
{
    char request[4096];
    // A close with unread input would reset the connection, and the answer with it.
    ::recv(connection, request, sizeof request, MSG_DONTWAIT);
    ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::close(connection);
}

Listener::Outcome Listener::refuseOne()
{
    if (m_reserve < 0 && (m_reserve = openReserve()) < 0)
        return Outcome::Exhausted;
    ::close(m_reserve);
    const int connection = ::accept4(m_descriptor, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (connection >= 0)
        refuse(connection, m_refusal);
    m_reserve = openReserve();
    return connection >= 0 ? Outcome::Refused : Outcome::Exhausted;
}

} // namespace Kesa::Host
