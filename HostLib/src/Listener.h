#pragma once

#include "Export.h"

#include <Poco/Types.h>

#include <string>

namespace Kesa::Host
{

/// The listening socket of a front door.
///
/// Ownership: owns its descriptors.
/// Threads:   one thread at a time.
class KESA_API Listener
{
public:
    /// Opens the socket; clients may connect from now on and wait for accept().
    /// \param address an IPv4 or IPv6 address, or a name of this machine
    /// \param port    0 lets the system choose one
    /// Raises Poco::Net::NetException, which names address and port, when they cannot be had.
    Listener(const std::string& address, Poco::UInt16 port);
    ~Listener();
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    int descriptor() const { return m_descriptor; }
    /// The port that is listened on.
    Poco::UInt16 port() const { return m_port; }

    enum class Outcome
    {
        Accepted, ///< a connection is there
        Refused,  ///< no descriptor was left: the client was told so and closed
        Empty,    ///< nobody waits
        Exhausted ///< nothing can be accepted at the moment: try again a little later
    };
    /// Takes the next connection, which then does not block. When Accepted, `connection` is the caller's and `address`
    /// the client's, without port.
    Outcome accept(int& connection, std::string& address);

    /// Sends `answer` as far as that goes without waiting, and closes the connection.
    static void refuse(int connection, const std::string& answer);

private:
    void listenOn(const std::string& address, Poco::UInt16 port);
    Outcome refuseOne();

    const std::string m_refusal; ///< made beforehand: without descriptors nothing else should have to work
    int m_descriptor = -1;
    int m_reserve; ///< given up for a moment when the process has no descriptor left, so that a client can be refused
    Poco::UInt16 m_port = 0;
};

} // namespace Kesa::Host
