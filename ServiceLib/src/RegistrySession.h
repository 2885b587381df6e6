#pragma once

#include <Poco/Clock.h>
#include <Poco/Net/HTTPClientSession.h>
#include <Poco/SharedPtr.h>

namespace Kesa::Service
{

class RegistryExchangeLimit;

/// The moment by which an exchange has to be over: some time after its beginning, or earlier where the limit that binds
/// the thread that built this object says so.
class ExchangeDeadline
{
public:
    typedef Poco::SharedPtr<ExchangeDeadline> Ptr;

    explicit ExchangeDeadline(int seconds);

    /// Begins the next exchange.
    void restart();
    /// What is left. Raises Poco::TimeoutException, with a text that says which limit, if nothing is.
    Poco::Timespan remaining() const;

private:
    const int m_seconds;
    const RegistryExchangeLimit* const m_limit; ///< borrowed; null: none
    Poco::Clock m_end;
};

/// A connection to the service registry on which no exchange, from connecting to the last byte of the answer, takes
/// longer than its limit, however slowly the other side reads or writes: it ends with a Poco::TimeoutException.
///
/// Threads: one thread at a time.
class RegistrySession: public Poco::Net::HTTPClientSession
{
public:
    /// `seconds`: the limit of one exchange. Nothing is connected yet.
    explicit RegistrySession(int seconds);

    std::ostream& sendRequest(Poco::Net::HTTPRequest& request) override;

    /// False also if the registry has closed the connection meanwhile, which the base does not notice.
    bool connected();

protected:
    void connect(const Poco::Net::SocketAddress& address) override;

private:
    ExchangeDeadline::Ptr m_deadline; ///< shared with the socket
};

} // namespace Kesa::Service
