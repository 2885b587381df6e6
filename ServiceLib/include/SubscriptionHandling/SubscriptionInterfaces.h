#pragma once

#include "Export.h"

namespace Kesa::Command
{
class WebSocketResponseObject;
}

namespace Kesa::Service
{

class SubscriptionObject;
class SubscriptionRequest;
class SubscriptionSubscribingEventPayload;

/// Where a subscription gets its data.
class KESA_API ISubscriptionDataSource
{
public:
    virtual ~ISubscriptionDataSource();

    /// Fills `response` with the present data of the subscribed URL: an array for the root, a service or a resource, an
    /// object for an element. True if data was delivered; false makes this load fail, and nothing is sent.
    ///
    /// Threads: the connection layer's for first data, the one that reports a change, and the worker of delivery,
    /// several at once. What is handed over is taken as a snapshot when the call returns. A slow source holds up other
    /// clients' messages and other changes.
    virtual bool fetchData(const SubscriptionRequest& request, Command::WebSocketResponseObject& response) = 0;
};

/// What a service supplies: its data, and a veto.
class KESA_API ISubscriptionInterface: public ISubscriptionDataSource
{
public:
    ~ISubscriptionInterface() override;

    /// Called for every subscription about to be added, on the thread that adds it; may refuse it through the payload.
    virtual void checkNewSubscription(SubscriptionSubscribingEventPayload& payload) = 0;
    /// Makes the given subscription send an update now. A null pointer does nothing.
    virtual void sendUpdate(SubscriptionObject*& subscription) = 0;
};

} // namespace Kesa::Service
