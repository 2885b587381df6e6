#include "RequestDispatcher.h"

#include "ApplicationServices.h"
#include "ErrorDocument.h"
#include "FrontDoor.h"
#include "UpgradeCheck.h"

#include "Websocket/WebsocketConnectionManager.h"

#include <Poco/Net/HTTPServerRequest.h>
#include <Poco/Net/HTTPServerResponse.h>
#include <Poco/Net/WebSocket.h>

namespace Kesa::Host
{

using Kesa::Net::WebsocketConnectionManager;
using Poco::Net::HTTPServerRequest;
using Poco::Net::HTTPServerResponse;

namespace
{

void refuse(HTTPServerResponse& response, const UpgradeVerdict& verdict)
{
    if (verdict.status == 405)
        response.set("Allow", "GET");
    if (verdict.status == 426)
    {
        response.set("Upgrade", "websocket");
        response.set("Sec-WebSocket-Version", "13");
    }
    sendError(response, verdict.status, verdict.message);
}

} // namespace

void RequestDispatcher::handle(HTTPServerRequest& request, HTTPServerResponse& response) const
{
    if (wantsUpgrade(request))
        upgrade(request, response);
    else if (!m_handleFirst || !m_handleFirst(request, response))
        m_rest.handle(request, response);
}

void RequestDispatcher::upgrade(HTTPServerRequest& request, HTTPServerResponse& response) const
{
    const UpgradeVerdict verdict = checkUpgrade(request, m_allowedOrigins);
    if (!verdict.isAllowed())
        return refuse(response, verdict);
    auto manager = ApplicationServices::getService<WebsocketConnectionManager>();
    if (manager.isNull())
        return sendError(response, 503, "The service takes no websockets at the moment.");
    if (manager->connectionCount() >= m_maxWebsockets) // those on their way in other threads may come on top
        return sendError(response, 503, "The service serves as many websockets as it may. Try again later.");
    const auto webSocket = FrontDoor::takeWebsocket(request, response);
    if (!webSocket.isNull())
        manager->addConnection(webSocket);
}

} // namespace Kesa::Host
