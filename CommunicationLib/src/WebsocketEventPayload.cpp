#include "Websocket/WebsocketEventPayload.h"

namespace Kesa::Net
{

WebsocketEventPayload::WebsocketEventPayload(WebSocketProxy& proxy, const std::string& reason)
    : webSocketProxy(proxy), Reason(reason)
{
}

WebsocketDataEventPayload::WebsocketDataEventPayload(WebSocketProxy& proxy)
    : WebsocketEventPayload(proxy, "data received"), flags(0)
{
}

} // namespace Kesa::Net
