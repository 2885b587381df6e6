#pragma once

#include "SubscriptionTree.h"
#include "SubscriptionUpdater.h"

#include <SubscriptionHandling/SubscriptionEvents.h>

#include <Poco/BasicEvent.h>

#include <string>
#include <vector>

namespace Kesa
{
/// The deepest expansion allowed on a subscription to an element.
const int maxElementExpandLevel = 3;
} // namespace Kesa

namespace Kesa::Service
{

/// The one object through which subscriptions come and go, and that turns a reported change into updates of those
/// concerned.
///
/// Threads: every operation from any thread. One data change is processed at a time; subscribing and unsubscribing do
/// not wait for it. Lock order, outermost first: m_checkMutex; then an event's, the tree's or the updater's mutex, each
/// taken alone and released before the next; then a subscription's.
/// Errors: a refusal is carried in the returned object; an exception of a listener or of a data source goes to the
/// caller.
class KESA_API SubscriptionManager
{
public:
    SubscriptionManager();
    /// Subscriptions that still stand end silently.
    ~SubscriptionManager();
    SubscriptionManager(const SubscriptionManager&) = delete;
    SubscriptionManager& operator=(const SubscriptionManager&) = delete;

    /// Before a subscription enters the tree; a listener may refuse it.
    Poco::BasicEvent<SubscriptionSubscribingEventPayload, Poco::FastMutex> SubscriptionSubscribing;
    /// After a subscription entered tree and updater.
    Poco::BasicEvent<SubscriptionAddedEventPayload, Poco::FastMutex> SubscriptionAdded;
    /// Once for each subscription that was added and is gone, after the updater has let go.
    Poco::BasicEvent<SubscriptionRemovedEventPayload, Poco::FastMutex> SubscriptionRemoved;

    /// Adds a subscription; never null. isCanceled() of the result tells a refusal, and the caller owns the reply.
    SubscriptionObject::SubscriptionObjectPtr addSubscription(Net::WebSocketProxy& webSocket,
                                                              const Command::WebSocketRequestObject& command);
    /// Removes the connection's subscriptions with the request's path and fragment; how many.
    int removeSubscription(const Net::WebSocketProxy& websocket, const Command::WebSocketRequestObject& request);
    /// Removes all of a connection; how many.
    int removeAllSubscriptions(const Net::WebSocketProxy& webSocket);

    bool hasValidSubscriptionCommand(const Command::WebSocketRequestObject& command);
    bool hasValidSubscriptionExpansionLevel(const Command::WebSocketRequestObject& command);

    /// Data has changed: every subscription concerned gets its update. `sourceObj`, the members that changed, may be
    /// null.
    void updateSubscriptionsFromRequest(Command::HttpRequest::RequestType requestType,
                                        const Command::RequestBase& command, const Poco::JSON::Object* sourceObj);

    /// Derives element subscriptions for a resource's subscription that asks for them.
    void handleAutoSubscribe(const SubscriptionObject& subscriptionObject);

private:
    typedef SubscriptionTreeNode::SubscriptionList SubscriptionList;

    bool refuseBeyondLimits(SubscriptionObject& subscription, const Net::WebSocketProxy& webSocket,
                            const Command::WebSocketRequestObject& command);
    void enter(const SubscriptionObject::SubscriptionObjectPtr& subscription);
    void fireAdded(const SubscriptionObject::SubscriptionObjectPtr& subscription);
    void letGo(const SubscriptionObject::SubscriptionObjectPtr& subscription);
    void letGoOfAll(const SubscriptionList& removed);
    void checkSubscriptions(Command::HttpRequest::RequestType requestType, const Command::RequestBase& requestCommand,
                            const Poco::JSON::Object* sourceObj);

    void handleAutoUnSubscribe(const SubscriptionObject& subscriptionObject,
                               const Command::WebSocketRequestObject& request);
    void loadElementUris(const SubscriptionObject& subscriptionObject, std::vector<std::string>& current);
    void subscribeElement(const SubscriptionObject& subscriptionObject, const std::string& url);
    /// Unsubscribes by URL and acknowledges as if the client had asked.
    void unsubscribeElement(const SubscriptionObject& element, const std::string& url);
    void keepThoseOfPage(const SubscriptionObject& subscriptionObject, const Command::WebSocketRequestObject& request,
                         SubscriptionList& elements);

    SubscriptionTree m_subscriptionTree;
    SubscriptionUpdater m_subscriptionUpdater;
    Util::FastMutex m_checkMutex; ///< one data change at a time, for its whole length
};

} // namespace Kesa::Service
