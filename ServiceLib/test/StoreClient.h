#pragma once

#include "LoopbackConnection.h"
#include "SubscriptionObject.h"

#include <Command/WebSocketRequestObject.h>

#include <string>
#include <vector>

namespace Kesa::Test
{

typedef Service::SubscriptionObject::SubscriptionObjectPtr SubscriptionPtr;
typedef std::vector<SubscriptionPtr> Subscriptions;
typedef std::vector<std::string> Events;

/// What a client sends to follow a URL, or to leave it.
inline Command::WebSocketRequestObject requestFor(const std::string& event)
{
    return Command::WebSocketRequestObject(Command::WebSocketRequestObject::TYPE_SUBSCRIBE, event,
                                           Poco::Optional<long>(), Poco::Optional<long>(), nullptr, false);
}

/// The URLs of these subscriptions, in their order.
inline Events eventsOf(const Subscriptions& subscriptions)
{
    Events events;
    for (const SubscriptionPtr& subscription: subscriptions)
        events.push_back(subscription->getUri().toString());
    return events;
}

/// The URLs of these groups, in their order.
inline std::vector<Events> eventsOf(const std::vector<Subscriptions>& groups)
{
    std::vector<Events> events;
    for (const Subscriptions& group: groups)
        events.push_back(eventsOf(group));
    return events;
}

/// A client with a connection of its own.
class StoreClient
{
public:
    StoreClient(): m_proxy(m_connection.proxy()) {}

    /// A subscription of this client that stands nowhere yet.
    SubscriptionPtr subscriptionTo(const std::string& event) const
    {
        return Service::SubscriptionObject::Create(m_proxy, requestFor(event));
    }
    const Net::WebSocketProxy& connection() const { return m_proxy; }

private:
    LoopbackConnection m_connection;
    const Net::WebSocketProxy m_proxy;
};

} // namespace Kesa::Test
