#pragma once

#include "Export.h"

#include <Poco/SharedPtr.h>

namespace Kesa::Command
{
class WebSocketRequestObject;
}

namespace Kesa::Net
{
class WebsocketDataEventPayload;
}

namespace Kesa::Service
{

class ISubscriptionDelegateFactory;
class SubscriptionManager;
class SubscriptionObject;

/// The one place where a client's websocket message becomes an action and gets its reply.
///
/// Ownership: borrows the manager, shares the factory.
/// Threads:   webSocketRequestReceived() runs on a thread of the connection layer, one message of all clients at a
/// time.
/// Errors:    catches nothing; an exception goes to the event that delivered the message.
class KESA_API WebSocketGenericRequestProcessor
{
public:
    WebSocketGenericRequestProcessor(SubscriptionManager* manager,
                                     Poco::SharedPtr<ISubscriptionDelegateFactory> factory);

    /// Handles the text of one JSON object that came in on a connection. A message of a connection that has ended
    /// meanwhile is dropped.
    void webSocketRequestReceived(const Net::WebsocketDataEventPayload& eventPayload);

private:
    void handleSubscribe(const Net::WebsocketDataEventPayload& eventPayload, Command::WebSocketRequestObject& req);
    void handleUnsubscribe(const Net::WebsocketDataEventPayload& eventPayload, Command::WebSocketRequestObject& req);
    /// The new subscription, or null when the request has been refused and the refusal has been written.
    Poco::SharedPtr<SubscriptionObject> subscribe(const Net::WebsocketDataEventPayload& eventPayload,
                                                  Command::WebSocketRequestObject& req);

    SubscriptionManager* subscriptionHandler;
    Poco::SharedPtr<ISubscriptionDelegateFactory> delegateFactory;
};

} // namespace Kesa::Service
