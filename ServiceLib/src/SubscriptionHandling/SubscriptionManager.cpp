#include "SubscriptionManager.h"

#include "LibraryCall.h"
#include "SubscriptionMatching.h"

#include <Command/WebSocketResponseObject.h>
#include <LogStream.h>

#include <Poco/Bugcheck.h>

namespace Kesa::Service
{

using Command::HttpRequest;
using Command::RequestBase;
using Command::UrlPath;
using Command::WebSocketRequestObject;
using Net::WebSocketProxy;
using Util::FastMutex;
using Util::ScopedLock;

namespace
{
constexpr uint32_t N_EVENT_TOTAL_MAX = 1000; ///< subscriptions of the service
constexpr uint32_t N_EVENT_SUB_MAX = 200;    ///< subscriptions of one connection
} // namespace

SubscriptionManager::SubscriptionManager() = default;

SubscriptionManager::~SubscriptionManager()
{
    m_subscriptionUpdater.clear();
    m_subscriptionTree.clear();
}

bool SubscriptionManager::hasValidSubscriptionCommand(const WebSocketRequestObject& command)
{
    return command.getUrlPath().getCharacteristic() != UrlPath::INVALID;
}

bool SubscriptionManager::hasValidSubscriptionExpansionLevel(const WebSocketRequestObject& command)
{
    const unsigned int level = command.getExpansionLevel();
    return level == 0 || (command.getUrlPath().getCharacteristic() == UrlPath::SERVICE_RESOURCE_ELEMENT &&
                          level <= static_cast<unsigned int>(maxElementExpandLevel));
}

SubscriptionObject::SubscriptionObjectPtr SubscriptionManager::addSubscription(WebSocketProxy& webSocket,
                                                                               const WebSocketRequestObject& command)
{
    LibraryCall call;
    SubscriptionObject::SubscriptionObjectPtr subscription = SubscriptionObject::Create(webSocket, command);
    if (refuseBeyondLimits(*subscription, webSocket, command))
        return subscription;
    SubscriptionSubscribingEventPayload payload(*subscription);
    SubscriptionSubscribing.notify(this, payload);
    if (subscription->isCanceled())
        return subscription;
    if (!m_subscriptionTree.add(webSocket, command, subscription))
        subscription->cancel(SubscriptionError::syntax_error, "Subscription can not be added");
    else
        enter(subscription);
    return subscription;
}

bool SubscriptionManager::refuseBeyondLimits(SubscriptionObject& subscription, const WebSocketProxy& webSocket,
                                             const WebSocketRequestObject& command)
{
    if (!hasValidSubscriptionExpansionLevel(command))
    {
        subscription.cancel(SubscriptionError::access_denied_or_token_invalid_or_expired, "expansion level not valid.");
        return true;
    }
    if (m_subscriptionTree.getSubscriptionCount() >= N_EVENT_TOTAL_MAX)
    {
        subscription.cancel(SubscriptionError::maximum_number_of_event_subscriptions_reached,
                            "N_EVENT_TOTAL_MAX limit reached");
        KESA_LOG_WARNING("Subscription limit for service reached!");
        return true;
    }
    if (m_subscriptionTree.getSubscriptionCountPerWebsocket(webSocket) >= N_EVENT_SUB_MAX)
    {
        subscription.cancel(SubscriptionError::maximum_number_of_event_subscriptions_reached,
                            "N_EVENT_SUB_MAX limit reached");
        KESA_LOG_WARNING("Subscription limit for websocket connection reached!");
        return true;
    }
    return false;
}

/// The subscription stands in the tree. Its connection may end at any moment: whoever takes it out of the tree before
/// the listeners know of it leaves the rest to this thread.
void SubscriptionManager::enter(const SubscriptionObject::SubscriptionObjectPtr& subscription)
{
    SubscriptionObject::SubscriptionObjectPtr entered = subscription;
    m_subscriptionUpdater.add(entered);
    if (entered->isWithdrawn())
    {
        m_subscriptionUpdater.remove(entered);
        entered->cancel(SubscriptionError::syntax_error, "Subscription can not be added");
        return;
    }
    try
    {
        fireAdded(entered);
    }
    catch (...) // a listener's; the subscription stays
    {
        if (!entered->announce())
            letGo(entered);
        throw;
    }
    if (!entered->announce())
        letGo(entered);
}

void SubscriptionManager::fireAdded(const SubscriptionObject::SubscriptionObjectPtr& subscription)
{
    SubscriptionAddedEventPayload payload(*subscription);
    SubscriptionAdded.notify(this, payload);
}

void SubscriptionManager::letGo(const SubscriptionObject::SubscriptionObjectPtr& subscription)
{
    m_subscriptionUpdater.remove(subscription); // first, so that nothing is sent once the listeners know
    SubscriptionRemovedEventPayload payload(*subscription);
    SubscriptionRemoved.notify(this, payload);
}

void SubscriptionManager::letGoOfAll(const SubscriptionList& removed)
{
    for (auto entry = removed.begin(); entry != removed.end(); ++entry)
    {
        if (entry->isNull())
            Poco::Bugcheck::nullPointer("removed subscription", __FILE__, __LINE__);
        try
        {
            SubscriptionObject::SubscriptionObjectPtr subscription = *entry;
            if (subscription->withdraw())
                letGo(subscription);
        }
        catch (...) // a listener's: no more events, but nothing is sent to those that are gone from the tree
        {
            for (auto later = std::next(entry); later != removed.end(); ++later)
            {
                SubscriptionObject::SubscriptionObjectPtr subscription = *later;
                subscription->withdraw();
                m_subscriptionUpdater.remove(subscription);
            }
            throw;
        }
    }
}

int SubscriptionManager::removeSubscription(const WebSocketProxy& websocket, const WebSocketRequestObject& request)
{
    LibraryCall call;
    SubscriptionList removedSubscriptions;
    if (!m_subscriptionTree.remove(websocket, request, removedSubscriptions))
    {
        KESA_LOG_DEBUG("removeSubscription: no subscriptions found for connection to "
                       << websocket.peerAddress().toString());
        return 0;
    }
    letGoOfAll(removedSubscriptions);
    if (request.isAutosubscribe())
    {
        for (const auto& subscription: removedSubscriptions)
            handleAutoUnSubscribe(*subscription, request);
    }
    return static_cast<int>(removedSubscriptions.size());
}

int SubscriptionManager::removeAllSubscriptions(const WebSocketProxy& webSocket)
{
    LibraryCall call;
    SubscriptionList removedSubscriptions;
    m_subscriptionTree.remove(webSocket, removedSubscriptions);
    m_subscriptionTree.removeUnbooked(webSocket, removedSubscriptions);
    letGoOfAll(removedSubscriptions);
    return static_cast<int>(removedSubscriptions.size());
}

void SubscriptionManager::updateSubscriptionsFromRequest(HttpRequest::RequestType requestType,
                                                         const RequestBase& command,
                                                         const Poco::JSON::Object* sourceObj)
{
    LibraryCall call; // outlives m_checkMutex: changes that callbacks report run when it is free
    KESA_LOG_TRACE("updateSubscriptionsFromRequest"
                   << " for " << requestType << " @ " << command.getUri().toString());
    checkSubscriptions(requestType, command, sourceObj);
}

void SubscriptionManager::checkSubscriptions(HttpRequest::RequestType requestType, const RequestBase& requestCommand,
                                             const Poco::JSON::Object* sourceObj)
{
    ScopedLock<FastMutex> lock(m_checkMutex);
    GroupedSubscriptionList::GroupedSubList groups;
    if (!m_subscriptionTree.searchSubscriptions(requestType, requestCommand, groups))
    {
        KESA_LOG_TRACE("no subscription found.");
        return;
    }
    for (GroupedSubscriptionList::SubscriptionList& group: groups)
    {
        // All members have the same path and query, so one answer serves all.
        if (group.empty() || !subscriptionApplies(requestType, requestCommand, sourceObj, group.at(0).get()))
            continue;
        SubscriptionObject::NotificationPtr notification; // handed on, so that a group loads once
        for (SubscriptionObject::SubscriptionObjectPtr& member: group)
        {
            notification = member->subscribedDataChanged(notification);
            handleAutoSubscribe(*member);
        }
    }
}

} // namespace Kesa::Service
