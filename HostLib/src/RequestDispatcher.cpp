#include "RequestDispatcher.h"

#include "ApplicationServices.h"
#include "DoorSocket.h"
#include "ErrorDocument.h"
#include "UpgradeCheck.h"

#include "Websocket/WebsocketConnectionManager.h"

#include <Poco/Exception.h>
#include <Poco/Net/HTTPServerRequestImpl.h>
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
    else
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
    DoorSocket* door = DoorSocket::of(dynamic_cast<Poco::Net::HTTPServerRequestImpl&>(request).socket());
    if (!door || !door->takesMore())
        throw Poco::IOException("A client that does not read its answers asked for a websocket");
    request.set("Upgrade", "websocket"); // POCO wants the word alone, where a list is allowed
    const Poco::SharedPtr<Poco::Net::WebSocket> webSocket(new Poco::Net::WebSocket(request, response));
    if (door->release())
        manager->addConnection(webSocket);
}

} // namespace Kesa::Host
