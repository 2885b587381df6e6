#pragma once

#include "SubscriptionTreeNode.h"

#include <Mutex.h>

#include <cstdint>
#include <map>
#include <vector>

namespace Kesa::Service
{

/// The thread-safe face of the tree of subscriptions. Knows for each connection which nodes hold its subscriptions and
/// how many there are, so that a closed connection is dropped without a walk and limits are checked without counting.
///
/// Threads: every operation from any thread, each under m_subscriptionTreeMutex for its whole length. That mutex is
/// innermost, apart from what the last share of a node or of a connection takes when it goes; no event and no delivery
/// runs under it.
class KESA_API SubscriptionTree
{
public:
    SubscriptionTree();
    ~SubscriptionTree();
    SubscriptionTree(const SubscriptionTree&) = delete;
    SubscriptionTree& operator=(const SubscriptionTree&) = delete;

    /// Places a subscription under the URL of its request. False for a URL without a place, logged, and for a
    /// connection that has ended.
    bool add(const Net::WebSocketProxy& webSocket, const Command::WebSocketRequestObject& request,
             SubscriptionObject::SubscriptionObjectPtr& subscription);
    /// Takes out the connection's subscriptions with the path and fragment of the URL, whatever their query, and
    /// appends them to `removed`, which must be empty: its size is what the connection's count goes down by. False when
    /// there is none.
    bool remove(const Net::WebSocketProxy& webSocket, const Command::WebSocketRequestObject& request,
                SubscriptionTreeNode::SubscriptionList& removed);
    bool remove(const Net::WebSocketProxy& webSocket, const Command::UrlPath& url,
                SubscriptionTreeNode::SubscriptionList& removed);
    /// Takes out all subscriptions that are booked for the connection and appends them to `removed`. False when nothing
    /// is booked, logged, or when the last booked node had none.
    bool remove(const Net::WebSocketProxy& webSocket, SubscriptionTreeNode::SubscriptionList& removed);
    /// Takes out those of the connection that the bookkeeping had lost sight of: neighbours, under another fragment, of
    /// a subscription that was removed by URL.
    void removeUnbooked(const Net::WebSocketProxy& webSocket, SubscriptionTreeNode::SubscriptionList& removed);
    /// Appends copies of the groups that a change at the request's URL may concern. Always true.
    bool searchSubscriptions(Command::HttpRequest::RequestType type, const Command::RequestBase& request,
                             GroupedSubscriptionList::GroupedSubList& out);
    /// What is booked for the connection, 0 when nothing is.
    uint32_t getSubscriptionCountPerWebsocket(const Net::WebSocketProxy& webSocket);
    /// The sum over all connections.
    uint32_t getSubscriptionCount() const;
    /// The connection's subscriptions to the elements of the resource `url`. False, logged, when there is none in the
    /// tree.
    bool getElementSubscriptionsPerWebsocket(const Command::UrlPath& url, const Net::WebSocketProxy& webSocket,
                                             SubscriptionTreeNode::SubscriptionList& out);
    /// Empties the tree; the counts keep their values.
    void clear();

private:
    typedef std::vector<SubscriptionTreeNode::SubscriptionTreeNodePtr> Nodes;

    struct WebsocketSubscriptionMapEntry
    {
        Nodes nodes; ///< where the connection has subscriptions, without repeats, in order of first use
        uint32_t subscriptionCount = 0;
    };

    /// Books one subscription more at the node.
    void addToWebsocketMap(const Net::WebSocketProxy& webSocket, SubscriptionTreeNode::SubscriptionTreeNodePtr node)
        KESA_REQUIRES(m_subscriptionTreeMutex);
    /// Takes the node and `count` subscriptions off the connection's entry, also where others of it stay at the node.
    void removeFromWebsocketMap(const Net::WebSocketProxy& webSocket,
                                SubscriptionTreeNode::SubscriptionTreeNodePtr node, uint32_t count)
        KESA_REQUIRES(m_subscriptionTreeMutex);
    /// Keeps in mind whether the node still holds subscriptions of the connection that its entry no longer knows.
    /// Forgets a node that holds none, so that a client cannot make the list grow.
    void noteUnbooked(const Net::WebSocketProxy& webSocket, const SubscriptionTreeNode::SubscriptionTreeNodePtr& node)
        KESA_REQUIRES(m_subscriptionTreeMutex);
    /// Erases the nodes that the subscriptions from `removed[first]` on have left empty.
    void pruneAfterRemoval(const SubscriptionTreeNode::SubscriptionList& removed, std::size_t first)
        KESA_REQUIRES(m_subscriptionTreeMutex);

    SubscriptionTreeNode::SubscriptionTreeNodePtr m_root; ///< set in the constructor, never replaced
    mutable Util::Mutex m_subscriptionTreeMutex;          ///< guards the nodes and both maps
    std::map<Net::WebSocketProxy, WebsocketSubscriptionMapEntry>
        m_websocketSubscriptionsMap KESA_GUARDED_BY(m_subscriptionTreeMutex);
    /// Nodes that hold subscriptions which the map above no longer knows; empty in regular use.
    std::map<Net::WebSocketProxy, Nodes> m_unbookedNodes KESA_GUARDED_BY(m_subscriptionTreeMutex);
};

} // namespace Kesa::Service
