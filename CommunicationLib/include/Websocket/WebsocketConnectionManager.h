#pragma once

#include "Export.h"
#include "WebsocketEventPayload.h"

#include <Poco/BasicEvent.h>
#include <Poco/Net/WebSocket.h>
#include <Poco/SharedPtr.h>
#include <Poco/Timespan.h>

#include <cstddef>
#include <memory>

namespace Kesa::Net
{

class ConnectionServer;

/// The server side of all websocket connections of a process: reads their messages, writes what waits for them, answers
/// pings and closes, and finds out who is gone. Three threads of its own do that for any number of connections.
///
/// Ownership: shares each socket until its connection has ended, then closes it.
/// Threads:   every public operation from any thread, but for stop(). DataReceived fires on the message thread, one
///            message at a time and those of one connection in order; ConnectionClosed fires on the close thread. A
///            handler may block: reading, answering pings and sending go on meanwhile.
/// Errors:    an exception that leaves a handler of DataReceived is logged and closes that connection with 1011; one
///            that leaves a handler of ConnectionClosed is logged.
/// Shutdown:  1. drain(), if clients are to be told in good order; 2. stop(), idempotent, joins the threads; the
///            destructor does it too. Not from a handler.
class KESA_API WebsocketConnectionManager
{
public:
    typedef Poco::SharedPtr<WebsocketConnectionManager> Ptr;

    /// Starts the threads. Raises Poco::SystemException when the system has none left, or no descriptors.
    WebsocketConnectionManager();

    /// Stops. When the last reference goes on one of the library's own threads, which is a fault of the program, that
    /// is logged as Critical and that thread is not waited for.
    ~WebsocketConnectionManager();

    WebsocketConnectionManager(const WebsocketConnectionManager&) = delete;
    WebsocketConnectionManager& operator=(const WebsocketConnectionManager&) = delete;

    /// Fired once for each complete text message on any connection.
    Poco::BasicEvent<const WebsocketDataEventPayload> DataReceived;

    /// Fired exactly once for each connection that was added, when it has ended and its last message has left its
    /// handler.
    Poco::BasicEvent<const WebsocketEventPayload> ConnectionClosed;

    /// Takes over an upgraded connection and starts to read it, beginning with what followed the upgrade request.
    /// Nobody else may use the socket from then on. A peer that is already gone shows as a closed connection; after
    /// stop() or drain() the peer is told 1001. Raises Poco::NullPointerException for a null pointer,
    /// Poco::ExistsException for a socket that is served already, and Poco::InvalidArgumentException for a client's end
    /// or one with TLS.
    void addConnection(const Poco::SharedPtr<Poco::Net::WebSocket>& webSocket);

    /// Closes all connections with 1001, some at a time, so that not all clients come back elsewhere at one moment.
    /// Returns when all are gone, and at the latest after `deadline`. Connections that are added from now on are closed
    /// at once.
    void drain(Poco::Timespan deadline);

    /// Closes what is still open with 1001 and ends the threads; waits for a handler that is running. Raises
    /// Poco::IllegalStateException on one of the library's own threads, for which it would have to wait.
    void stop();

    /// The connections that have not ended.
    std::size_t connectionCount() const;

private:
    const std::shared_ptr<ConnectionServer> m_server; // shared with the threads
};

} // namespace Kesa::Net
