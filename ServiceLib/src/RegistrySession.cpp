#include "RegistrySession.h"

#include "Data/ServiceRegistryConnection.h"
#include "RegistryExchangeLimit.h"

#include <Time/Now.h>

#include <Poco/Exception.h>
#include <Poco/Net/StreamSocketImpl.h>

#include <algorithm>

namespace Kesa::Service
{

namespace
{
/// A stream socket that waits no longer than until the deadline.
class DeadlineSocket: public Poco::Net::StreamSocketImpl
{
public:
    explicit DeadlineSocket(const ExchangeDeadline::Ptr& deadline): m_deadline(deadline) {}

    /// As the base's connect() with a time limit, but for the limit, which is the deadline.
    void connectInTime(const Poco::Net::SocketAddress& address)
    {
        connectNB(address);
        wait(SELECT_WRITE);
        if (const int fault = socketError())
            error(fault, address.toString());
        setBlocking(true);
    }

    using Poco::Net::StreamSocketImpl::receiveBytes;
    using Poco::Net::StreamSocketImpl::sendBytes;

    int receiveBytes(void* buffer, int length, int flags) override
    {
        wait(SELECT_READ);
        return Poco::Net::StreamSocketImpl::receiveBytes(buffer, length, flags);
    }

    int sendBytes(const void* buffer, int length, int flags) override
    {
        const char* bytes = static_cast<const char*>(buffer);
        int sent = 0;
        while (sent < length)
        {
            wait(SELECT_WRITE);
            // Only what fits now: a send that blocks, as the parent's, would know nothing of the deadline.
            // NOLINTNEXTLINE(bugprone-parent-virtual-call)
            sent += std::max(0, SocketImpl::sendBytes(bytes + sent, length - sent, flags | MSG_DONTWAIT));
        }
        return sent;
    }

protected:
    ~DeadlineSocket() override = default;

private:
    /// Waits in slices, so that the clock of the libraries decides and not that of the system.
    void wait(int mode)
    {
        const Poco::Timespan slice(0, 100000);
        while (!poll(std::min(m_deadline->remaining(), slice), mode))
        {
        }
    }

    ExchangeDeadline::Ptr m_deadline;
};
} // namespace

ExchangeDeadline::ExchangeDeadline(int seconds): m_seconds(seconds), m_limit(RegistryExchangeLimit::current())
{
    restart();
}

void ExchangeDeadline::restart()
{
    m_end = Util::now() + Poco::Clock::ClockDiff(m_seconds) * Poco::Clock::resolution();
}

Poco::Timespan ExchangeDeadline::remaining() const
{
    const Poco::Clock::ClockDiff left = m_end - Util::now();
    if (left <= 0)
        throw Poco::TimeoutException("the service registry did not complete an exchange within " +
                                     std::to_string(m_seconds) + " seconds");
    if (!m_limit)
        return Poco::Timespan(left);
    const Poco::Clock::ClockDiff leftByLimit = m_limit->end() - Util::now().raw();
    if (leftByLimit <= 0)
        throw Poco::TimeoutException("the exchange with the service registry was ended from outside");
    return Poco::Timespan(std::min(left, leftByLimit));
}

RegistrySession::RegistrySession(int seconds)
    : HTTPClientSession(ServiceRegistryConnection::ADDRESS, ServiceRegistryConnection::PORT),
      m_deadline(new ExchangeDeadline(seconds))
{
}

std::ostream& RegistrySession::sendRequest(Poco::Net::HTTPRequest& request)
{
    m_deadline->restart();
    return HTTPClientSession::sendRequest(request);
}

bool RegistrySession::connected()
{
    if (!HTTPClientSession::connected())
        return false;
    // Between two exchanges nothing is due, so what can be read is the end of the connection.
    return !socket().poll(Poco::Timespan(0), Poco::Net::Socket::SELECT_READ);
}

void RegistrySession::connect(const Poco::Net::SocketAddress& address)
{
    DeadlineSocket* const socket = new DeadlineSocket(m_deadline);
    Poco::Net::StreamSocket connection(socket); // owns it
    socket->connectInTime(address);
    connection.setNoDelay(true);
    attachSocket(connection);
}

} // namespace Kesa::Service
