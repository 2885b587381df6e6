#pragma once

#include "GroupedSubscriptionList.h"

#include <Command/HttpRequest.h>
#include <Command/UrlPath.h>

#include <map>
#include <string>

namespace Kesa::Service
{

/// One node of the URL-shaped index of subscriptions. A URL's path decides the way down from the root over service and
/// resource to element; a subscription hangs at the node whose level is the characteristic of its URL. A node touches
/// one child on the way, whatever the number of subscriptions.
///
/// Invariant: a child's level is the step below its parent's; a node below the root is empty only after a failed
/// addChild or a removeByWebsocket, until prune or removeChild passes through it.
/// Ownership: shares its children with the tree's bookkeeping; a parent need not outlive them.
/// Threads:   no lock of its own; reached under the tree's mutex.
class KESA_API SubscriptionTreeNode
{
public:
    typedef Poco::SharedPtr<SubscriptionTreeNode> SubscriptionTreeNodePtr;
    typedef std::map<std::string, SubscriptionTreeNodePtr> SubscriptionTreeChildList;
    typedef GroupedSubscriptionList::SubscriptionList SubscriptionList;

    explicit SubscriptionTreeNode(Command::UrlPath::Characteristic level);

    /// Places `subscription` under the URL of `command`. `nodeResult` becomes the node that took it; where that is this
    /// node it stays as it was. False, logged, for a URL without a place; nodes made on the way stay.
    bool addChild(const Net::WebSocketProxy& websocket, const Command::WebSocketRequestObject& command,
                  SubscriptionObject::SubscriptionObjectPtr& subscription, SubscriptionTreeNodePtr& nodeResult);
    /// Appends the groups at the URL's node and at its parent to `foundSubscriptionList`. Always true.
    bool searchSubscriptions(const SubscriptionTreeNode* parentNode, Command::HttpRequest::RequestType requestType,
                             const Command::RequestBase& requestCommand,
                             GroupedSubscriptionList::GroupedSubList& foundSubscriptionList);
    /// Takes the connection's subscriptions out of the URL's node and prunes nodes that are empty on the way back up.
    /// `modifiedNode` becomes the node where they stood, also when that was pruned; it stays as it was where that is
    /// this node. False when there is none.
    bool removeChild(const Net::WebSocketProxy& websocket, const Command::UrlPath& urlPath,
                     SubscriptionTreeNodePtr& modifiedNode, SubscriptionList& removedSubscriptions);
    /// Takes the connection's subscriptions out of this node's own list.
    bool removeByWebsocket(const Net::WebSocketProxy& webSocket, SubscriptionList& removed);
    /// Erases the empty nodes on the way to the URL.
    void prune(const Command::UrlPath& urlPath);

    /// True when there is neither a subscription here nor a child.
    bool isEmpty() const;
    /// Whether the connection has subscriptions at this very node.
    bool hasSubscriptionsForWebsocket(const Net::WebSocketProxy& webSocket) const;
    /// Drops children and subscriptions.
    void clear();
    /// This node's subscriptions of the connection, group after group, in key order.
    SubscriptionList getNodeSubscriptionsPerWebsocket(const Net::WebSocketProxy& webSocket) const;
    /// On the root: the connection's subscriptions to the elements of the resource `url`, element after element, in key
    /// order; what was in `out` goes. False, logged, on another node, for another kind of URL, and when the tree has no
    /// such resource.
    bool searchElementSubscriptionsPerWebsocketPerResource(const Command::UrlPath& url,
                                                           const Net::WebSocketProxy& webSocket, SubscriptionList& out);
    /// A copy; the nodes are shared.
    SubscriptionTreeChildList getChildNodeList() const;

private:
    /// The key of the child on the way to `url`, and its level; INVALID with an empty key below the deepest level.
    static void getNextTreeLevel(Command::UrlPath::Characteristic level, const Command::UrlPath& url,
                                 Command::UrlPath::Characteristic& nextLevel, std::string& key);

    SubscriptionTreeChildList m_childNodeList;
    const Command::UrlPath::Characteristic m_level;
    GroupedSubscriptionList m_groupedSubscriptionList;
};

} // namespace Kesa::Service
