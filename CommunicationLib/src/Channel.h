#pragma once

#include "Export.h"

#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/WebSocket.h>
#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <memory>
#include <string>

namespace Poco::Net
{
class SocketImpl;
}

namespace Kesa::Net
{

/// Where the text that a proxy writes goes. Shared by all proxies of one websocket.
///
/// Threads: every operation from any thread.
class KESA_API Channel
{
public:
    typedef Poco::SharedPtr<Poco::Net::WebSocket> Socket;

    /// Reads the addresses once and for all; a socket that has none any more gives 0.0.0.0:0. Shares the socket.
    explicit Channel(const Socket& socket);
    virtual ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    /// See WebSocketProxy for these.
    virtual void write(const std::string& text) = 0;
    virtual void write(const std::shared_ptr<const std::string>& text, Poco::UInt64 number) = 0;
    virtual bool hasEnded() const = 0;
    virtual void shutdown() = 0;

    const Socket& socket() const { return m_socket; }
    const Poco::Net::SocketAddress& address() const { return m_address; }
    const Poco::Net::SocketAddress& peerAddress() const { return m_peerAddress; }

    /// What all handles of one socket have in common; never followed.
    const Poco::Net::SocketImpl* key() const { return m_key; }

private:
    const Socket m_socket;
    const Poco::Net::SocketImpl* const m_key;
    const Poco::Net::SocketAddress m_address;
    const Poco::Net::SocketAddress m_peerAddress;
};

} // namespace Kesa::Net
