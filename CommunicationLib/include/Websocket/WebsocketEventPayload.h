#pragma once

#include "Export.h"

#include <string>

namespace Kesa::Net
{

class WebSocketProxy;

/// What accompanies an event of a connection. Borrows the proxy for the time of the event; copy the proxy to keep it.
class KESA_API WebsocketEventPayload
{
public:
    WebsocketEventPayload(WebSocketProxy& proxy, const std::string& reason);

    WebSocketProxy& webSocketProxy; ///< the connection; valid only during the event
    const std::string Reason;       ///< why the event occurred, in words
};

/// What accompanies received data.
class KESA_API WebsocketDataEventPayload: public WebsocketEventPayload
{
public:
    explicit WebsocketDataEventPayload(WebSocketProxy& proxy);

    std::string data; ///< the received text
    int flags;        ///< the frame flags of the receive, as Poco::Net::WebSocket numbers them
};

} // namespace Kesa::Net
