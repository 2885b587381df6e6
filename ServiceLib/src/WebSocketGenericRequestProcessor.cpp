#include "WebSocketGenericRequestProcessor.h"

#include "SubscriptionHandling/LibraryCall.h"
#include "SubscriptionHandling/SubscriptionManager.h"

#include <Command/WebSocketResponseObject.h>
#include <LogStream.h>
#include <SubscriptionHandling/ISubscriptionDelegateFactory.h>
#include <Websocket/WebsocketEventPayload.h>

#include <algorithm>

namespace Kesa::Service
{

using Command::WebSocketRequestObject;
using Command::WebSocketResponseObject;
using Net::WebsocketDataEventPayload;

namespace
{

void reply(const WebsocketDataEventPayload& eventPayload, const WebSocketResponseObject& response)
{
    eventPayload.webSocketProxy.write(response.toJsonString());
}

std::string addressOf(const WebsocketDataEventPayload& eventPayload)
{
    return eventPayload.webSocketProxy.address().toString();
}

/// The client's text as one line of the log: a line break in it would begin a line of the client's own.
std::string textOf(const WebsocketDataEventPayload& eventPayload)
{
    const auto isControl = [](unsigned char c) { return c < 0x20 || c == 0x7F; };
    std::string text = eventPayload.data;
    std::replace_if(text.begin(), text.end(), isControl, ' ');
    return text;
}

} // namespace

WebSocketGenericRequestProcessor::WebSocketGenericRequestProcessor(
    SubscriptionManager* manager, Poco::SharedPtr<ISubscriptionDelegateFactory> factory)
    : subscriptionHandler(manager), delegateFactory(factory)
{
}

void WebSocketGenericRequestProcessor::webSocketRequestReceived(const WebsocketDataEventPayload& eventPayload)
{
    LibraryCall call;
    KESA_LOG_TRACE("New Data from " << eventPayload.webSocketProxy.peerAddress().toString() << " to "
                                    << addressOf(eventPayload));
    if (eventPayload.webSocketProxy.hasEnded())
    {
        KESA_LOG_DEBUG("Dropped a message of a connection that has ended: "
                       << eventPayload.webSocketProxy.peerAddress().toString());
        return;
    }
    WebSocketRequestObject request(eventPayload.data);
    if (!request.isValid())
    {
        reply(eventPayload, WebSocketResponseObject(request, WebSocketResponseObject::badData, ""));
        return;
    }
    const std::string type = request.getType();
    if (type == WebSocketRequestObject::TYPE_SUBSCRIBE)
    {
        handleSubscribe(eventPayload, request);
    }
    else if (type == WebSocketRequestObject::TYPE_DATA)
    {
        reply(eventPayload,
              WebSocketResponseObject(request, 400,
                                      "The service registry can emit 'data' events but does not receive those."));
    }
    else if (type == WebSocketRequestObject::TYPE_UNSUBSCRIBE)
    {
        handleUnsubscribe(eventPayload, request);
    }
    else
    {
        KESA_LOG_INFO("Bad data received: " << addressOf(eventPayload) << textOf(eventPayload));
        reply(eventPayload, WebSocketResponseObject(request, WebSocketResponseObject::badData, ""));
    }
}

void WebSocketGenericRequestProcessor::handleSubscribe(const WebsocketDataEventPayload& eventPayload,
                                                       WebSocketRequestObject& req)
{
    SubscriptionObject::Ptr subscription = subscribe(eventPayload, req);
    if (subscription.isNull())
        return;
    reply(eventPayload, WebSocketResponseObject(req)); // always before the first data
    subscription->initialUpdate();
    subscriptionHandler->handleAutoSubscribe(*subscription);
}

void WebSocketGenericRequestProcessor::handleUnsubscribe(const WebsocketDataEventPayload& eventPayload,
                                                         WebSocketRequestObject& req)
{
    Poco::URI event = req.getEvent();
    event.setQuery("");
    req.setEvent(event);
    if (subscriptionHandler->removeSubscription(eventPayload.webSocketProxy, req) > 0)
    {
        KESA_LOG_INFO("Subscription removed: " << addressOf(eventPayload) << textOf(eventPayload));
        reply(eventPayload, WebSocketResponseObject(req));
    }
    else
    {
        KESA_LOG_INFO("Unable to remove subscription (not found): " << addressOf(eventPayload) << textOf(eventPayload));
        reply(eventPayload, WebSocketResponseObject(req, WebSocketResponseObject::unableToUnsubscribe, ""));
    }
}

SubscriptionObject::Ptr WebSocketGenericRequestProcessor::subscribe(const WebsocketDataEventPayload& eventPayload,
                                                                    WebSocketRequestObject& req)
{
    if (!subscriptionHandler->hasValidSubscriptionExpansionLevel(req))
    {
        reply(eventPayload,
              WebSocketResponseObject(req, WebSocketResponseObject::invalideSubscriptionExpansionLevel, ""));
        return SubscriptionObject::Ptr();
    }
    SubscriptionObject::Ptr subscription = subscriptionHandler->addSubscription(eventPayload.webSocketProxy, req);
    const SubscriptionResult& result = subscription->result();
    if (result.isCanceled())
    {
        KESA_LOG_INFO("Unable to add subscription: " << addressOf(eventPayload) << textOf(eventPayload));
        reply(eventPayload, WebSocketResponseObject(req, static_cast<Poco::UInt16>(result.getSubscriptionError()),
                                                    result.getErrorMsg()));
        return SubscriptionObject::Ptr();
    }
    KESA_LOG_INFO("New subscription: " << addressOf(eventPayload) << " " << textOf(eventPayload));
    subscription->registerDataSource(*delegateFactory->getSource());
    return subscription;
}

} // namespace Kesa::Service
