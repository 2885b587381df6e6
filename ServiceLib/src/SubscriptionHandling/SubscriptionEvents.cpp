#include <SubscriptionHandling/SubscriptionEvents.h>

namespace Kesa::Service
{

SubscriptionSubscribingEventPayload::SubscriptionSubscribingEventPayload(SubscriptionRequest& subscriptionRequest)
    : request(subscriptionRequest)
{
}

void SubscriptionSubscribingEventPayload::cancelSubscribing(SubscriptionError code, std::string message)
{
    request.cancel(code, message);
}

SubscriptionAddedEventPayload::SubscriptionAddedEventPayload(const SubscriptionRequest& addedSubscription)
    : subscription(addedSubscription)
{
}

SubscriptionRemovedEventPayload::SubscriptionRemovedEventPayload(const SubscriptionRequest& removedSubscription)
    : subscription(removedSubscription)
{
}

} // namespace Kesa::Service
