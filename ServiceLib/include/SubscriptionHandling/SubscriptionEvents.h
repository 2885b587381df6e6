#pragma once

#include "Export.h"
#include "SubscriptionRequest.h"

#include <Poco/AbstractDelegate.h>

#include <string>

namespace Kesa::Service
{

/// A subscription is about to be added; a listener may refuse it. Valid only during the notification.
class KESA_API SubscriptionSubscribingEventPayload
{
public:
    explicit SubscriptionSubscribingEventPayload(SubscriptionRequest& subscriptionRequest);

    /// Refuses the subscription with the code and the text that the client gets.
    void cancelSubscribing(SubscriptionError code, std::string message);

    SubscriptionRequest& request;
};

/// A subscription has been added. Valid only during the notification.
class KESA_API SubscriptionAddedEventPayload
{
public:
    explicit SubscriptionAddedEventPayload(const SubscriptionRequest& addedSubscription);

    const SubscriptionRequest& subscription;
};

/// A subscription has been removed. Valid only during the notification.
class KESA_API SubscriptionRemovedEventPayload
{
public:
    explicit SubscriptionRemovedEventPayload(const SubscriptionRequest& removedSubscription);

    const SubscriptionRequest& subscription;
};

typedef Poco::AbstractDelegate<SubscriptionAddedEventPayload> AddEventDelegate;
typedef Poco::AbstractDelegate<SubscriptionRemovedEventPayload> RemoveEventDelegate;

} // namespace Kesa::Service
