#pragma once

#include "Export.h"

#include <Poco/Net/SocketAddress.h>
#include <Poco/Net/WebSocket.h>
#include <Poco/SharedPtr.h>
#include <Poco/Types.h>

#include <memory>
#include <string>

namespace Kesa::Net
{

class Channel;
class WebsocketConnectionManager;

/// The handle of one websocket connection. Cheap to copy; all copies of one connection are equal, so that it serves as
/// a key.
///
/// Ownership: shares the socket and the connection's state, and with them outlives the connection and its manager.
/// Threads:   every const operation and shutdown() from any thread.
/// Errors:    a failed write raises; see write().
class KESA_API WebSocketProxy
{
public:
    /// Finds the state of the connection that a manager serves on this socket. On a socket that no manager serves,
    /// writes go straight to the socket, blocking, one after the other. Shares `webSocket`; `manager` is only
    /// remembered.
    WebSocketProxy(const Poco::SharedPtr<Poco::Net::WebSocket>& webSocket, WebsocketConnectionManager* manager);
    WebSocketProxy(const WebSocketProxy& other);
    WebSocketProxy& operator=(const WebSocketProxy&) = delete;
    ~WebSocketProxy();

    /// The local address of the connection, read once: it works after the socket has closed. Without a socket,
    /// 0.0.0.0:0.
    Poco::Net::SocketAddress address() const;

    /// The client's address, under the same terms.
    Poco::Net::SocketAddress peerAddress() const;

    /// Sends the text as one websocket text message, or queues it when the peer does not take it at once. Never blocks
    /// on a peer of a served connection. Raises Poco::Net::WebSocketException when the connection has ended, and when
    /// more waits for the peer than may wait, which closes the connection; any Poco::Exception of an unserved socket.
    void write(const std::string& text) const;

    /// The same for a text that many connections share: it is not copied where it has to wait. While it waits, a later
    /// text with the same `number` takes its place; the number is that of one subscription of the process, and 0 means
    /// that the text is never replaced. Raises Poco::NullPointerException for a null text.
    void write(const std::shared_ptr<const std::string>& text, Poco::UInt64 number) const;

    /// True once the connection is marked as ended, which is before ConnectionClosed fires: every write raises from
    /// then on. Always false on a socket that no manager serves.
    bool hasEnded() const;

    /// Closes the connection with code 1000. What waits for the peer is still sent.
    void shutdown();

    /// A strict weak order in which all copies of one connection are equivalent.
    bool operator<(const WebSocketProxy& other) const;

    /// True for copies of the same connection.
    bool operator==(const WebSocketProxy& other) const;

    /// True when this is the handle of that socket.
    bool operator==(const Poco::Net::WebSocket& socket) const;

    const Poco::SharedPtr<Poco::Net::WebSocket> webSocket; ///< the connection, shared by all copies
    const WebsocketConnectionManager* manager;             ///< serves this connection; not owned, never followed here

private:
    friend class ConnectionServer;

    WebSocketProxy(const Poco::SharedPtr<Poco::Net::WebSocket>& webSocket, const WebsocketConnectionManager* manager,
                   const std::shared_ptr<Channel>& channel);

    Poco::Net::SocketAddress m_address;
    Poco::Net::SocketAddress m_peerAddress;
    std::shared_ptr<Channel> m_channel; // where writes go; null only without a socket
};

} // namespace Kesa::Net
